// calder.exe: the host service for machines without the board maker's, and its installation.
#include <windows.h>

#include <string>
#include <vector>

#include "host_service.h"
#include "log_file.h"
#include "program.h"
#include "service_control.h"
#include "text.h"

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

constexpr char HELP[] =
    "calder - host service of the Halvorsund fax boards\n"
    "\n"
    "  calder install [--fax-stand-in]   register the service \"calder\" (started with the machine) and name the call\n"
    "                                    configuration file kxcall.cfg beside this program for the provider; with\n"
    "                                    --fax-stand-in also a placeholder for a missing Windows service \"Fax\"\n"
    "  calder remove                     stop and remove the service, and the placeholder if it is one\n"
    "  calder run                        do the service's work in the foreground until Ctrl-C\n"
    "  calder --help                     this text\n"
    "\n"
    "The service creates the shared segment HalvorsundMSFTSPSharedMemory before any provider does, so that every\n"
    "account may read it, and writes one line per finished fax to %ProgramData%\\Calder\\calder.log (1 MB each, three\n"
    "older ones kept). Start and stop it with: net start calder, net stop calder. The provider asks the service\n"
    "manager whether calder runs; \"calder run\" does not count for it.\n"
    "\n"
    "Two jobs in a row with the same result are told apart by what the job publishes on its way (numbers, station id,\n"
    "pages): a job that published nothing and ended like the one before it leaves no line.\n"
    "\n"
    "Exit status: 0 done, 1 a step failed, 2 wrong arguments.";

int tell_report(const ServiceReport& report) {
    for (const std::string& line : report.lines) print_line(line);
    if (report.error == 0) return 0;
    std::string line = "calder: " + report.failed_step + ": " + windows_error(report.error);
    if (report.error == ERROR_ACCESS_DENIED) line += "; run this as an administrator";
    print_error(line);
    return EXIT_FAILED;
}

int run_in_foreground() {
    const LogFile log = service_log();
    host_service_work(
        stop_event(), [] {},
        [&log](std::string_view line) {
            print_line(line);
            log_write(log, line);
        });
    return 0;
}

int run_as_service() {
    const DWORD error = host_service_dispatch();
    if (error == 0) return 0;
    print_error("calder: only the service manager starts it this way; in the foreground it is: calder run");
    return EXIT_FAILED;
}

int usage_error(const std::string& text) {
    print_error("calder: " + text + "; see calder --help");
    return EXIT_USAGE;
}

}  // namespace

int main() {
    const std::vector<std::string> arguments = program_arguments();
    if (arguments.empty()) return usage_error("no command given");
    const std::string& command = arguments[0];
    if (command == "--help" || command == "-h" || command == "help") {
        print_line(HELP);
        return 0;
    }
    const bool fax_stand_in = command == "install" && arguments.size() == 2 && arguments[1] == "--fax-stand-in";
    if (arguments.size() > 1 && !fax_stand_in) return usage_error("what is " + arguments.back() + "?");
    if (command == "install") return tell_report(service_install(fax_stand_in));
    if (command == "remove") return tell_report(service_remove());
    if (command == "run") return run_in_foreground();
    if (command == SERVICE_ARGUMENT) return run_as_service();
    return usage_error("what is " + command + "?");
}
