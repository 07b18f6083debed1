// What the scripted driver does when a test has not said otherwise.
#pragma once

#include "scripted_driver.h"

namespace harness {

void add_usual_lines(ScriptedDriver::Handlers& usual);
void add_usual_calls(ScriptedDriver::Handlers& usual);
void add_usual_fax(ScriptedDriver::Handlers& usual);
void add_usual_tiff(ScriptedDriver::Handlers& usual);
void add_usual_log(ScriptedDriver::Handlers& usual);

// Closes the files that the provider has left open.
void close_tiff_files();

// A report with its tagged values, as the driver hands it to a handler.
struct ScriptedReport {
    DornReport head;
    std::vector<Tag> tags;
};

}  // namespace harness
