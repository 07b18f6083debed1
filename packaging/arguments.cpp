// Parsing of qorvsetup's command line, and its help.
#include "arguments.h"

#include <iterator>

#include "command_help.h"

namespace {

struct OptionRow {
    const char* name;
    SetupCommand command;
    bool SetupArguments::*flag;
};

constexpr OptionRow OPTIONS[] = {
    {"--software-board", SetupCommand::install, &SetupArguments::software_board},
    {"--fax-stand-in", SetupCommand::install, &SetupArguments::fax_stand_in},
    {"--json", SetupCommand::check, &SetupArguments::json},
};

// In the order of SetupCommand.
constexpr CommandHelp COMMANDS[] = {
    {"install",
     "  qorvsetup install [options]  copy the provider to the system folder, register its event source and add it to\n"
     "                               telephony. A step that fails undoes the earlier ones. Over an older version it\n"
     "                               upgrades; a second time it changes nothing\n"
     "    --software-board           also install the software board: its driver library, configuration and dialog,\n"
     "                               and the host service \"calder\", so that faxes go through without a board\n"
     "    --fax-stand-in             also register a placeholder for the Windows service \"Fax\" if there is none\n"},
    {"remove",
     "  qorvsetup remove             undo what install did. Received faxes, logs and what was edited since stay\n"},
    {"check",
     "  qorvsetup check [options]    tell, a line each, whether everything is there that the provider needs\n"
     "    --json                     for programs\n"},
};

constexpr char HEADING[] = "qorvsetup - puts the provider of the Halvorsund fax boards on this machine\n\n";

constexpr char COMMON[] =
    "  qorvsetup [COMMAND] --help   this text, or the command's part of it\n"
    "  qorvsetup --version          this program's version\n";

constexpr char EXIT_STATUSES[] =
    "\n"
    "Exit status: 0 done, everything in order; 1 check: it can work, but something asks for attention; 2 wrong\n"
    "arguments; 3 a step failed (an installation is then undone), or check: it cannot work; 4 administrator rights\n"
    "are missing and nothing was touched.";

constexpr ProgramHelp HELP = {HEADING, COMMANDS, std::size(COMMANDS), COMMON, EXIT_STATUSES};

SetupArguments with_error(const std::string& text) {
    SetupArguments arguments;
    arguments.error = text;
    return arguments;
}

bool take_option(SetupArguments& arguments, const std::string& word) {
    for (const OptionRow& row : OPTIONS) {
        if (word != row.name || arguments.command != row.command) continue;
        arguments.*row.flag = true;
        return true;
    }
    return false;
}

}  // namespace

SetupArguments parse_setup_arguments(const std::vector<std::string>& words) {
    if (words.empty()) return with_error("no command given");
    const std::optional<size_t> command = find_command(HELP, words[0]);
    SetupArguments arguments;
    if (asks_for_help(words)) {
        arguments.help = help_text(HELP, command);
        return arguments;
    }
    if (words[0] == "--version" && words.size() == 1) {
        arguments.command = SetupCommand::version;
        return arguments;
    }
    if (!command) return with_error("what is " + words[0] + "?");
    arguments.command = static_cast<SetupCommand>(*command);
    for (size_t i = 1; i < words.size(); ++i) {
        if (!take_option(arguments, words[i])) return with_error("what is " + words[i] + "?");
    }
    return arguments;
}
