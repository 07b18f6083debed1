// faxhost.exe: the telephony host's command line.
#include "arguments.h"
#include "commands.h"
#include "program.h"
#include "session.h"

namespace {

struct CommandFunction {
    Command command;
    Failure (*run)(const Arguments& arguments);
};

constexpr CommandFunction FUNCTIONS[] = {
    {Command::lines, command_lines},         {Command::send, command_send_fax}, {Command::receive, command_receive},
    {Command::loopback, command_loopback},   {Command::status, command_status}, {Command::events, command_events},
    {Command::configure, command_configure},
};

Failure run(const Arguments& arguments) {
    for (const CommandFunction& row : FUNCTIONS) {
        if (row.command == arguments.command) return row.run(arguments);
    }
    return {};
}

}  // namespace

int main() {
    // From the first moment on, so that an interrupt at any time ends things in order.
    stop_event();
    const std::vector<std::string> words = program_arguments();
    Arguments arguments;
    Failure failure = parse_arguments(words, arguments);
    if (!failure && arguments.help) {
        print_line(help_text(words));
        return EXIT_GOOD;
    }
    if (!failure && arguments.version) {
        print_line("faxhost " QORV_VERSION);
        return EXIT_GOOD;
    }
    if (!failure) failure = run(arguments);
    if (failure) show_failure(arguments, failure);
    return failure.exit_status;
}
