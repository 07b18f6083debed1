// A whole fax as fast as the processor goes: from the FAXSEND command to the end notification, against two bare engines
// on the same pages. The far end is a station of the software board, so that no ring is waited for.
#include "bare_engines.h"
#include "call.h"
#include "fax_file.h"
#include "fax_lines.h"
#include "results.h"
#include "stopwatch.h"

namespace {

struct Kind {
    const char* name;
    bool ecm;
    const char* number;
};
constexpr Kind KINDS[] = {{"fax of three pages, error correction", true, "200"},
                          {"fax of three pages, no error correction", false, "201"}};

std::string configuration(const BenchFolder& folder) {
    const std::string stores = "folder=" + folder.file("") + "\n";
    return "[board]\npace=fast\n[station.with-ecm]\nnumber=200\n" + stores +
           "[station.without-ecm]\nnumber=201\necm=no\n" + stores;
}

void measure(const Results& results, const Kind& kind, Line& line, const BenchFolder& folder, const std::string& file,
             unsigned rounds) {
    StatusReader status;
    status.tried = true;  // a host's search for a line's record among all is its own affair
    std::vector<double> bare;
    std::vector<double> product;
    for (unsigned i = 0; i < rounds; ++i) {
        const BareFaxResult floor = run_bare_fax({file, folder.file("bare.tif"), kind.ecm});
        if (!floor.good) give_up("the bare engines do not get their fax through");
        bare.push_back(floor.seconds * 1000);
        place_call(line, kind.number);
        const FaxResult fax = send_fax(line, status, file);
        call_end(line);
        if (fax.status != 0) give_up("a fax has failed");
        product.push_back(fax.seconds * 1000);
    }
    results.add({kind.name, "ms", median(product), median(bare), 1.25});
}

}  // namespace

int main() {
    BenchArguments arguments;
    const Results results(arguments, "fax");
    const std::string file = full_path(arguments.take("--file"));
    const unsigned rounds = arguments.take_number("--rounds", 31);
    const BenchFolder folder;
    const std::unique_ptr<Provider> provider = start_over_software_board(folder, configuration(folder));
    Line line;
    must(line_open(line, *provider, 0, false), "line 0");
    for (const Kind& kind : KINDS) measure(results, kind, line, folder, file, rounds);
    line_close(line);
    return 0;
}
