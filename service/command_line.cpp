// Parsing of calder's command line, and its help.
#include "command_line.h"

#include <iterator>

#include "command_help.h"
#include "service_control.h"

namespace {

// In the order of CalderCommand.
constexpr CommandHelp COMMANDS[] = {
    {"install",
     "  calder install [options]  register the service \"calder\", which starts with the machine, and name the call\n"
     "                            configuration file kxcall.cfg beside this program for the provider\n"
     "    --fax-stand-in          also register a placeholder for the Windows service \"Fax\" if there is none\n"},
    {"remove", "  calder remove             stop and remove the service, and the placeholder if it is one\n"},
    {"run",
     "  calder run                do the service's work in the foreground until Ctrl-C; the provider asks the service\n"
     "                            manager whether calder runs, and this does not count for it\n"},
};

constexpr char HEADING[] = "calder - host service of the Halvorsund fax boards\n\n";

constexpr char COMMON[] =
    "  calder [COMMAND] --help   this text, or the command's part of it\n"
    "  calder --version          this program's version\n"
    "\n"
    "The service creates the shared segment HalvorsundMSFTSPSharedMemory before any provider does, so that every\n"
    "account may read it, and writes one line per finished fax to %ProgramData%\\Calder\\calder.log (1 MB each, three\n"
    "older ones kept). Start and stop it with: net start calder, net stop calder.\n"
    "\n"
    "Two jobs in a row with the same result are told apart by what the job publishes on its way (numbers, station id,\n"
    "pages): a job that published nothing and ended like the one before it leaves no line.\n";

constexpr char EXIT_STATUSES[] =
    "\n"
    "Exit status: 0 done; 1 a step failed; 2 wrong arguments.";

constexpr ProgramHelp HELP = {HEADING, COMMANDS, std::size(COMMANDS), COMMON, EXIT_STATUSES};

CalderArguments with_error(const std::string& text) {
    CalderArguments arguments;
    arguments.error = text;
    return arguments;
}

CalderArguments with_command(CalderCommand command) {
    CalderArguments arguments;
    arguments.command = command;
    return arguments;
}

}  // namespace

CalderArguments parse_calder_arguments(const std::vector<std::string>& words) {
    if (words.empty()) return with_error("no command given");
    const std::optional<size_t> command = find_command(HELP, words[0]);
    if (asks_for_help(words)) {
        CalderArguments arguments;
        arguments.help = help_text(HELP, command);
        return arguments;
    }
    if (words.size() == 1 && words[0] == "--version") return with_command(CalderCommand::version);
    if (words.size() == 1 && words[0] == SERVICE_ARGUMENT) return with_command(CalderCommand::service);
    if (!command) return with_error("what is " + words[0] + "?");
    CalderArguments arguments = with_command(static_cast<CalderCommand>(*command));
    for (size_t i = 1; i < words.size(); ++i) {
        if (arguments.command != CalderCommand::install || words[i] != "--fax-stand-in") {
            return with_error("what is " + words[i] + "?");
        }
        arguments.fax_stand_in = true;
    }
    return arguments;
}
