// Exit statuses of qorvsetup.
#pragma once

enum SetupStatus : int {
    SETUP_GOOD = 0,       // done; everything that was checked is in order
    SETUP_ATTENTION = 1,  // check: the provider can work, but something asks for attention
    SETUP_USAGE = 2,      // wrong arguments
    SETUP_FAILED = 3,     // a step failed (an installation is then undone); check: the provider cannot work
    SETUP_NO_RIGHTS = 4,  // this is not an administrator; nothing was touched
};
