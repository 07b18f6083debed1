// The steps of a fax session as the driver's calls take them. The engine runs the document in a flow of its own; each
// step waits for the point of it that the interface promises, and has every report up to there delivered.
// All are called with the board's lock held, let go of it while they wait or work on files, and throw Failure.
#pragma once

#include <string>

#include "entry.h"

namespace softboard {

// Sends the file's pages from first_page on, or receives when the path is empty.
void begin_fax(LineCall& call, const std::string& send_path, uint32_t first_page);

void get_remote_info(LineCall& call, DornRemoteInfo& info);
void wait_for_training(LineCall& call);

// 1 = there is a page to send, 0 = there are no more.
int next_page(LineCall& call);
// Returns when the page is confirmed.
void send_page(LineCall& call, const DornFaxRecord& record);
void end_of_document(LineCall& call);

// 1 = a page has been written to the record's file, 0 = there are no more.
int receive_page(LineCall& call, const DornFaxRecord& record);
void end_reception(LineCall& call);

}  // namespace softboard
