// The commands of faxhost. Each prints what it has to tell and returns its failure, if any.
#pragma once

#include "arguments.h"
#include "failure.h"

Failure command_lines(const Arguments& arguments);
Failure command_send_fax(const Arguments& arguments);
Failure command_receive(const Arguments& arguments);
Failure command_loopback(const Arguments& arguments);
Failure command_status(const Arguments& arguments);
Failure command_events(const Arguments& arguments);
Failure command_configure(const Arguments& arguments);
