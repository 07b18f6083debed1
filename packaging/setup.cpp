// Installation and removal, from the first look to the last word.
#include "setup.h"

#include <windows.h>

#include <algorithm>

#include "call_configuration.h"
#include "event_source.h"
#include "exit_status.h"
#include "machine.h"
#include "steps.h"
#include "text.h"
#include "undo.h"

namespace {

constexpr wchar_t DIALOG[] = L"qorvconf.cpl";
constexpr wchar_t BOARD_CONFIGURATION[] = L"softboard.ini";
constexpr wchar_t SERVICE_PROGRAM[] = L"calder.exe";

struct Source {
    const wchar_t* name;
    bool of_software_board;
};
constexpr Source SOURCES[] = {{PROVIDER_FILE, false}, {DRIVER_FILE, true}, {DIALOG, true}, {SERVICE_PROGRAM, true}};

// The log lies where both the telephony service and administrators may write; environment variables are expanded.
constexpr wchar_t BOARD_CONFIGURATION_TEXT[] =
    L"; Configuration of the software board, read when the telephony service starts the provider. What is not said "
    L"here\r\n"
    L"; is as in softboard.ini.example of the package, which explains every key.\r\n"
    L"\r\n"
    L"[board]\r\n"
    L"; \"fast\" = as fast as the processor goes, \"realtime\" = as long as on a telephone line.\r\n"
    L"pace=fast\r\n"
    L"\r\n"
    L"; Four channels, which are the lines with the numbers 100 to 103.\r\n"
    L"[module.2]\r\n"
    L"first_channel=0\r\n"
    L"channels=4\r\n"
    L"first_number=100\r\n"
    L"\r\n"
    L"; A fax machine to send to, which takes everything and keeps nothing.\r\n"
    L"[station.machine]\r\n"
    L"number=200\r\n"
    L"\r\n"
    L"[log]\r\n"
    L"file=%ProgramData%\\Calder\\calddlld.log\r\n";

// ---- before anything is touched -----------------------------------------------------------------------------------

std::string missing_sources(const SetupOptions& options) {
    for (const Source& source : SOURCES) {
        const bool needed = !source.of_software_board || options.software_board || options.fax_stand_in;
        if (!needed || is_file(options.package + L"\\" + source.name)) continue;
        return utf8(options.package) + " lacks " + utf8(source.name) +
               ": unpack the whole package and start again there";
    }
    return "";
}

std::string newer_version(const SetupOptions& options) {
    const uint64_t installed = file_version(in_system_folder(PROVIDER_FILE)).number;
    const uint64_t offered = file_version(options.package + L"\\" + PROVIDER_FILE).number;
    if (installed <= offered) return "";
    return "version " + version_text(installed) + " is installed, this is " + version_text(offered) +
           ": remove the newer one first if you mean it";
}

std::string foreign_driver(const SetupOptions& options) {
    const std::wstring driver = in_system_folder(DRIVER_FILE);
    if (!options.software_board || !is_file(driver) || is_software_board(driver)) return "";
    return utf8(driver) +
           " is not the software board: if a board needs it, install without --software-board (and remove first what "
           "was installed with it), else delete it and install again";
}

// What speaks against installing, in words; empty when nothing does.
std::string objection(const SetupOptions& options) {
    for (const auto& look : {missing_sources, newer_version, foreign_driver}) {
        const std::string text = look(options);
        if (!text.empty()) return text;
    }
    return "";
}

// ---- the steps ----------------------------------------------------------------------------------------------------

bool put_in_system_folder(Installation& installation, const SetupOptions& options, const wchar_t* name) {
    return put_file(installation, options.package + L"\\" + name, in_system_folder(name));
}

bool register_event_source(Installation& installation) {
    const size_t changes = installation.log.in_progress.size();
    for (const wchar_t* name : EVENT_FILE_VALUES) {
        if (!set_value(installation, EVENT_SOURCE_KEY, name, registry_text(EVENT_FILE, REG_EXPAND_SZ))) return false;
    }
    for (const EventSourceNumber& number : EVENT_NUMBERS) {
        if (!set_value(installation, EVENT_SOURCE_KEY, number.name, registry_number(number.value))) return false;
    }
    if (installation.log.in_progress.size() != changes) {
        installation.lines.emplace_back("registered the event source Halvorsund Telephony Service Provider");
    }
    return true;
}

// A file that an administrator has named stays named as long as it exists.
bool name_call_configuration(Installation& installation) {
    const MachineKey key = machine_key(PARAMETERS_KEY);
    const std::optional<TextValue> present = text_value(key.key.get(), CONFIGURATION_VALUE);
    if (present && present->type == REG_SZ && is_file(present->text)) return true;
    const std::wstring path = programs_folder() + L"\\kxcall.cfg";
    return put_configuration(installation, std::string(DEFAULT_CALL_CONFIGURATION), path) &&
           set_value(installation, PARAMETERS_KEY, CONFIGURATION_VALUE, registry_text(path));
}

bool put_board_configuration(Installation& installation) {
    return put_configuration(installation, utf8(with_environment(BOARD_CONFIGURATION_TEXT)),
                             in_system_folder(BOARD_CONFIGURATION));
}

// The service's program; it runs as long as its file is replaced by nothing newer.
bool put_service_program(Installation& installation, const SetupOptions& options) {
    const std::wstring source = options.package + L"\\" + SERVICE_PROGRAM;
    const std::wstring program = programs_folder() + L"\\" + SERVICE_PROGRAM;
    return make_folder(installation, programs_folder()) &&
           (!is_file(program) || same_files(source, program) || stop_host_service_of(installation, program)) &&
           put_file(installation, source, program);
}

bool install_software_board(Installation& installation, const SetupOptions& options) {
    return put_in_system_folder(installation, options, DRIVER_FILE) &&
           put_in_system_folder(installation, options, DIALOG) && put_board_configuration(installation) &&
           put_service_program(installation, options) && name_call_configuration(installation) &&
           put_host_service(installation, programs_folder() + L"\\" + SERVICE_PROGRAM) &&
           start_host_service(installation);
}

bool install_fax_stand_in(Installation& installation, const SetupOptions& options) {
    return put_service_program(installation, options) &&
           put_fax_stand_in(installation, programs_folder() + L"\\" + SERVICE_PROGRAM);
}

// Telephony comes last: it loads the provider at once and asks it for its lines.
bool install_everything(Installation& installation, const SetupOptions& options) {
    return put_in_system_folder(installation, options, PROVIDER_FILE) && register_event_source(installation) &&
           (!options.software_board || install_software_board(installation, options)) &&
           (!options.fax_stand_in || install_fax_stand_in(installation, options)) &&
           add_to_telephony(installation, PROVIDER_FILE, options.software_board);
}

bool has_installed(const InstallLog& log, const std::wstring& path) {
    return std::any_of(log.done.begin(), log.done.end(),
                       [&](const Change& change) { return change.kind == ChangeKind::file && change.name == path; });
}

// ---- the end ------------------------------------------------------------------------------------------------------

std::string joined(const std::vector<std::string>& texts) {
    std::string all;
    for (const std::string& text : texts) all += (all.empty() ? "" : "; ") + text;
    return all;
}

// Takes back what is in progress. The text says whether that went through.
std::string undo_installation(InstallLog& log) {
    std::vector<std::string> lines;
    std::vector<std::string> problems;
    undo_changes(log, log.in_progress, lines, problems);
    if (problems.empty()) return "everything was undone";
    return "not everything could be undone: " + joined(problems) + "; then: qorvsetup remove";
}

SetupOutcome failure(const std::string& text) {
    return {SETUP_FAILED, {}, text};
}

SetupOutcome no_rights() {
    return {SETUP_NO_RIGHTS, {}, "this takes an administrator: start the console with \"Run as administrator\""};
}

std::string unreadable(uint32_t error) {
    return "reading the registry for what is installed: " + windows_error(error);
}

// An installation that was cut short (by a power failure, say) is undone before anything else.
bool undo_interrupted(Installation& installation) {
    if (installation.log.in_progress.empty()) return true;
    std::vector<std::string> problems;
    installation.lines.push_back("an earlier installation was cut short and is undone first");
    undo_changes(installation.log, installation.log.in_progress, installation.lines, problems);
    installation.error = joined(problems);
    return problems.empty();
}

bool finish(Installation& installation) {
    if (installation.log.in_progress.empty()) return true;
    const std::vector<Change> changes = installation.log.in_progress;
    const InstallLog before = installation.log;
    install_log_commit(installation.log);
    if (const uint32_t error = install_log_write(installation.log)) {
        installation.error = "noting in the registry what was done: " + windows_error(error);
        installation.log = before;
        return false;
    }
    discard_replaced(installation.log, changes, installation.lines);
    return true;
}

}  // namespace

SetupOutcome setup_install(SetupOptions options) {
    if (!is_administrator()) return no_rights();
    Installation installation;
    if (const uint32_t error = install_log_read(installation.log)) return failure(unreadable(error));
    if (!undo_interrupted(installation)) return {SETUP_FAILED, installation.lines, installation.error};
    // What was installed goes along with an upgrade.
    options.software_board = options.software_board || has_installed(installation.log, in_system_folder(DRIVER_FILE));
    const std::string text = objection(options);
    if (!text.empty()) return {SETUP_FAILED, installation.lines, text};

    const bool good = install_everything(installation, options);
    const bool in_place = installation.log.in_progress.empty();
    if (!good || !finish(installation)) {
        return failure(installation.error + "; " + undo_installation(installation.log));
    }
    if (in_place) installation.lines.emplace_back("everything is in place already");
    return {SETUP_GOOD, installation.lines, ""};
}

SetupOutcome setup_remove() {
    if (!is_administrator()) return no_rights();
    Installation installation;
    if (const uint32_t error = install_log_read(installation.log)) return failure(unreadable(error));
    if (!undo_interrupted(installation)) return {SETUP_FAILED, installation.lines, installation.error};
    if (installation.log.done.empty()) {
        install_log_write(installation.log);  // a key without notes, of a run that was cut short, goes too
        installation.lines.emplace_back("nothing is installed by this program");
        return {SETUP_GOOD, installation.lines, ""};
    }
    std::vector<std::string> problems;
    undo_changes(installation.log, installation.log.done, installation.lines, problems);
    if (is_folder(log_folder())) {
        installation.lines.push_back("the logs in " + utf8(log_folder()) + " stay");
    }
    if (problems.empty()) return {SETUP_GOOD, installation.lines, ""};
    return {SETUP_FAILED, installation.lines, joined(problems) + "; then: qorvsetup remove"};
}
