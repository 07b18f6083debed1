// A test of the provider that exports inner functions, too.
#pragma once

#include "harness.h"
#include "inner_exports.h"

class InnerFixture : public harness::ProviderFixture {
  protected:
    void SetUp() override;

    decltype(&inner_report_event_num2) report_event_num2 = nullptr;
    decltype(&inner_KX_STATUS_name) KX_STATUS_name = nullptr;
    decltype(&inner_line_status_name) line_status_name = nullptr;
    decltype(&inner_fax_rate) fax_rate = nullptr;
    decltype(&inner_fault_with_locks) fault_with_locks = nullptr;
    decltype(&inner_without_line) without_line = nullptr;

  private:
    template <class Function>
    void find(Function& function, const char* name) {
        function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
        ASSERT_NE(function, nullptr) << name;
    }
};
