// What installations have changed on this machine. Every change is noted in the registry before it is made, so that a
// failed installation, one that was cut short, and a removal all know what to undo.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

enum class ChangeKind {
    file,      // put where there was none; detail: its fingerprint, empty while the installation is in progress
    replaced,  // a file put over another one; detail: the path at which that is kept
    folder,    // made
    key,       // made, under HKEY_LOCAL_MACHINE
    value,     // of the key `name`; detail: its name; before and put: RegistryValue in text form, before empty when new
    service,   // registered
    started,   // a service that did not run
    stopped,   // a service that ran
    provider,  // added to TAPI; `name` is its file name
};

struct Change {
    ChangeKind kind;
    std::wstring name;
    std::wstring detail = L"";
    std::wstring before = L"";
    std::wstring put = L"";  // of a value, empty while the installation is in progress
};

struct InstallLog {
    std::vector<Change> done;         // by installations that went through, the first one first
    std::vector<Change> in_progress;  // by one that has not (yet)
};

// Both give 0 or the Windows error.
uint32_t install_log_read(InstallLog& log);
// Takes its registry key away when nothing is noted any more.
uint32_t install_log_write(const InstallLog& log);

// Makes the changes in progress part of what was done. What an installation before has noted for the same thing stays:
// removal goes back to what was there before the first. Files that were kept for a way back are noted, too, as long as
// they are there.
void install_log_commit(InstallLog& log);
