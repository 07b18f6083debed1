// Putting the provider on a machine and taking it off again.
#pragma once

#include <string>
#include <vector>

struct SetupOptions {
    std::wstring package;         // the folder that the files come from
    bool software_board = false;  // its driver library, dialog and configuration, and the host service
    bool fax_stand_in = false;    // a placeholder for a missing Windows service "Fax"
};

struct SetupOutcome {
    int status = 0;                  // SetupStatus
    std::vector<std::string> lines;  // what was done, and what the administrator should know
    std::string error;               // not empty: what failed, why, and what to do
};

// Installs all of it or nothing. Over an older version it upgrades, over a newer one it refuses; what is in place
// already stays as it is, and a software board that is installed goes along with an upgrade. What an earlier run that
// was cut short has begun is undone first. Blocks until the host service runs, 30 s at most.
SetupOutcome setup_install(SetupOptions options);

// Undoes what setup_install did, the last thing first. What cannot be undone now (a file in use) is told and stays
// noted for the next time. Blocks until the host service has stopped, 10 s at most.
SetupOutcome setup_remove();
