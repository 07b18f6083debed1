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
        std::wstring command = wide("\"" + full_path(program) + "\" " + arguments);
        PROCESS_INFORMATION process = {};
        if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process)) {
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
