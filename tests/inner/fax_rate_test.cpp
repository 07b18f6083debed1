// The rates of a fax modem's codes. Only the first is ever looked up.
#include "inner_fixture.h"

namespace {

class FaxRate : public InnerFixture {};

}  // namespace

TEST_F(FaxRate, OfEveryCode) {
    const std::vector<uint32_t> rates = {2400, 9600, 4800, 9600, 0, 0, 0, 14400, 0, 0, 0, 14400, 0, 0, 0, 0};
    for (uint32_t code = 0; code < rates.size(); ++code) EXPECT_EQ(fax_rate(code), rates[code]) << code;
}
