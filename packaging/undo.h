// Taking changes back.
#pragma once

#include <string>
#include <vector>

#include "install_log.h"

enum class Undone {
    yes,   // or it was gone already
    left,  // on purpose, somebody else has made it his: `text` says what stays and why
    no,    // `text` says why, and what to do
};

struct UndoResult {
    Undone undone = Undone::yes;
    std::string text;  // what was done, in one line; empty when nothing was to do
};

// Takes one change back, as far as it was made at all. Blocks until a service has stopped, 10 s at most.
UndoResult undo_change(const Change& change);

// Takes the changes back, the last one first, notes after each in the registry what is left of them, and adds a line
// for each to `lines`. Those that cannot be taken back stay in `changes`, and `problems` gets a line for each.
void undo_changes(InstallLog& log, std::vector<Change>& changes, std::vector<std::string>& lines,
                  std::vector<std::string>& problems);

// The files over which others were put by these changes go, now that the installation is through; those in use at the
// next start of Windows, or when the provider is removed. Adds a line for each of the latter.
void discard_replaced(InstallLog& log, const std::vector<Change>& changes, std::vector<std::string>& lines);
