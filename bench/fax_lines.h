// The product as the fax benchmarks use it: the provider over the software board, as many lines as wanted, and faxes
// between them.
#pragma once

#include <memory>
#include <string>

#include "bench_folder.h"
#include "call.h"
#include "fax_job.h"
#include "line.h"
#include "provider.h"

// The provider, started over a software board of this configuration, whose log goes to board.log in the folder.
std::unique_ptr<Provider> start_over_software_board(const BenchFolder& folder, const std::string& configuration);

// Ends the program unless there is no failure.
void must(const Failure& failure, const std::string& what);

// The ends of a call on open lines.
void place_call(Line& line, const std::string& number);
void answer_call(Line& line, CallInfo& info);

// A fax on a connected call, which is then still to be ended. TAPI's part is played as in faxhost.
FaxResult send_fax(Line& line, StatusReader& status, const std::string& file);
FaxResult receive_fax(Line& line, StatusReader& status, const std::string& file, const CallInfo& call);
