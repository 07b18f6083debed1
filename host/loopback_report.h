// What a loopback has to tell at its end, and whether all of it is as it should be.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "arguments.h"
#include "fax_file.h"
#include "own_process.h"
#include "transfer.h"

// Both ends of one run, and what the comparison found.
struct Loopback {
    Transfer sent;
    Transfer received;
    std::vector<FaxPage> received_pages;
    std::optional<std::string> stamp;
    std::vector<PageComparison> comparisons;
};

// The closing report: pages, rate, time, results, stamp, and which pages are identical.
void show_loopback(const Arguments& arguments, const Loopback& loopback);

// What has to be true besides the two results: the stamp, every page of `pages` sent, and every page identical.
Failure loopback_failure(const Arguments& arguments, size_t pages, const Loopback& loopback);

// Tells the handles and threads of the process after the first run and after the last, and fails when there are more
// of them by as many as there were runs between: that much is no accident.
Failure compare_counts(const Arguments& arguments, const ProcessCounts& first, const ProcessCounts& last);
