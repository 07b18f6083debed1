// Parsing of the command line.
#include "arguments.h"

#include <algorithm>

#include "fax_file.h"
#include "options.h"
#include "text.h"

namespace {

Failure mistake(const std::string& text) {
    return {EXIT_USAGE, "", text, "see faxhost --help"};
}

Failure parse_words(const CommandRow& command, const std::vector<std::string>& words, Arguments& arguments) {
    for (size_t i = 1; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (word.compare(0, 2, "--") != 0) {
            arguments.files.push_back(full_path(word));
            continue;
        }
        const OptionRow* option = find_option(word, command.command);
        if (!option) return mistake(format("faxhost %s has no option %s", command.name, word.c_str()));
        if (option->value && i + 1 == words.size()) return mistake(word + " lacks its " + option->value);
        const std::string value = option->value ? words[++i] : "";
        if (!option->set(arguments, value)) return mistake("\"" + value + "\" is no value for " + word);
    }
    return {};
}

Failure check_complete(const CommandRow& command, const Arguments& arguments) {
    if (arguments.files.size() != command.files) {
        return mistake(
            format("faxhost %s takes %zu file names, not %zu", command.name, command.files, arguments.files.size()));
    }
    const bool needs_line = command.command == Command::send || command.command == Command::receive;
    if (needs_line && !arguments.line_given) return mistake(format("faxhost %s needs --line", command.name));
    if (command.command == Command::send && arguments.number.empty()) return mistake("faxhost send needs --to");
    if (command.command == Command::receive && arguments.folder.empty()) return mistake("faxhost receive needs --dir");
    if (command.command != Command::loopback) return {};
    if (arguments.from == arguments.to_line) return mistake("a loopback needs two lines, --from and --to");
    if (_stricmp(arguments.files[0].c_str(), arguments.files[1].c_str()) == 0) {
        return mistake("the received file would overwrite the one that is sent");
    }
    return {};
}

}  // namespace

Failure parse_arguments(const std::vector<std::string>& words, Arguments& arguments) {
    if (words.empty()) return mistake("no command given");
    if (words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
        arguments.help = true;
        return {};
    }
    if (words.size() == 1 && words[0] == "--version") {
        arguments.version = true;
        return {};
    }
    const CommandRow* command = find_command(words[0]);
    if (!command) return mistake("there is no command \"" + words[0] + "\"");
    arguments.command = command->command;
    if (std::find(words.begin(), words.end(), "--help") != words.end()) {
        arguments.help = true;
        return {};
    }
    if (Failure failure = parse_words(*command, words, arguments)) return failure;
    return check_complete(*command, arguments);
}
