// qorvsetup.exe: puts the provider on this machine, looks whether it can work there, takes it off again.
#include <windows.h>

#include "arguments.h"
#include "check.h"
#include "exit_status.h"
#include "program.h"
#include "setup.h"

namespace {

int usage_error(const std::string& text) {
    print_error("qorvsetup: " + text + "; see qorvsetup --help");
    return SETUP_USAGE;
}

int tell(const SetupOutcome& outcome) {
    for (const std::string& line : outcome.lines) print_line(line);
    if (!outcome.error.empty()) print_error("qorvsetup: " + outcome.error);
    return outcome.status;
}

int tell_checks(bool json) {
    const std::vector<CheckResult> results = check_machine();
    print_line(json ? check_json(results) : check_lines(results, output_has_colours()));
    return check_status(results);
}

}  // namespace

int main() {
    const SetupArguments arguments = parse_setup_arguments(program_arguments());
    if (!arguments.error.empty()) return usage_error(arguments.error);
    switch (arguments.command) {
        case SetupCommand::install:
            return tell(setup_install({program_folder(), arguments.software_board, arguments.fax_stand_in}));
        case SetupCommand::remove:
            return tell(setup_remove());
        case SetupCommand::check:
            return tell_checks(arguments.json);
        case SetupCommand::help:
            print_line(arguments.help);
            return SETUP_GOOD;
        case SetupCommand::version:
            print_line("qorvsetup " QORV_VERSION);
            return SETUP_GOOD;
    }
    return SETUP_USAGE;
}
