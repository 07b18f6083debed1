// calder.exe: the host service for machines without the board maker's, and its installation.
#include <windows.h>

#include <string>

#include "command_line.h"
#include "host_service.h"
#include "log_file.h"
#include "program.h"
#include "service_control.h"
#include "text.h"

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

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
    const CalderArguments arguments = parse_calder_arguments(program_arguments());
    if (!arguments.error.empty()) return usage_error(arguments.error);
    switch (arguments.command) {
        case CalderCommand::install:
            return tell_report(service_install(arguments.fax_stand_in));
        case CalderCommand::remove:
            return tell_report(service_remove());
        case CalderCommand::run:
            return run_in_foreground();
        case CalderCommand::service:
            return run_as_service();
        case CalderCommand::help:
            print_line(arguments.help);
            return 0;
        case CalderCommand::version:
            print_line("calder " QORV_VERSION);
            return 0;
    }
    return EXIT_USAGE;
}
