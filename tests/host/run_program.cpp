#include "run_program.h"

#include <windows.h>

#include "fax_file.h"
#include "owned.h"
#include "temporary_folder.h"
#include "text.h"

static constexpr DWORD PROGRAM_TIMEOUT = 60000;  // milliseconds

static OwnedHandle inheritable_file(const std::string& path) {
    SECURITY_ATTRIBUTES inheritable = {sizeof(inheritable), nullptr, TRUE};
    return owned_file(CreateFileW(wide(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inheritable, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

// On a busy machine it happens that Wine is gone before the new program has begun, which it calls an internal error.
// The program is started again then.
static bool start(const std::wstring& command, STARTUPINFOW& startup, PROCESS_INFORMATION& process) {
    constexpr int MOST_TRIES = 4;
    constexpr DWORD PAUSE = 500;  // milliseconds
    for (int tries = 1; !CreateProcessW(nullptr, std::wstring(command).data(), nullptr, nullptr, TRUE, 0, nullptr,
                                        nullptr, &startup, &process);
         ++tries) {
        if (GetLastError() != ERROR_INTERNAL_ERROR || tries == MOST_TRIES) return false;
        Sleep(PAUSE);
    }
    return true;
}

// Output goes to files, not pipes: a service that a program starts may keep a pipe open for as long as it runs.
ProgramRun run_program(const std::string& program, const std::string& arguments) {
    const TemporaryFolder folder;
    ProgramRun run;
    {
        const OwnedHandle output = inheritable_file(folder.file("output"));
        const OwnedHandle errors = inheritable_file(folder.file("errors"));
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = output.get();
        startup.hStdError = errors.get();
        PROCESS_INFORMATION process = {};
        if (!start(wide("\"" + full_path(program) + "\" " + arguments), startup, process)) {
            run.exit_status = GetLastError();
            run.errors = program + " cannot be started";
            return run;
        }
        const OwnedHandle thread(process.hThread);
        const OwnedHandle handle(process.hProcess);
        if (WaitForSingleObject(handle.get(), PROGRAM_TIMEOUT) != WAIT_OBJECT_0) {
            TerminateProcess(handle.get(), 0xFFFFFFFF);
            WaitForSingleObject(handle.get(), INFINITE);
        }
        GetExitCodeProcess(handle.get(), &run.exit_status);
    }
    run.output = read_text(folder.file("output"));
    run.errors = read_text(folder.file("errors"));
    return run;
}
