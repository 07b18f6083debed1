// The fixture of the fax engine's tests: one open line, the commands of the fax service, a file for the job, and a look
// at the fax thread and the line's lock.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "command_block.h"
#include "harness.h"

class FaxFixture : public harness::ProviderFixture {
  protected:
    // LINE1 is open and waits for calls. A derived fixture goes on from there.
    void SetUp() override;
    void TearDown() override;

    // TSPI_lineDevSpecific on LINE1; the block is answered in place.
    LONG request(CommandBlock& block);
    // The same, expecting that the request is accepted; the block's result.
    uint32_t command(CommandBlock block);

    // TIFFOPEN of the job's file, expecting success; and TIFFCLOSE, its result.
    void open_file(const std::string& mode = "w+");
    uint32_t close_file(uint32_t job_command = 0);

    // A transmission or reception from its command to the end of its thread.
    void send_fax(const FaxTexts& texts = {});
    void receive_fax(const FaxTexts& texts = {});
    // Waits until of all threads only the lines' own are left.
    void fax_thread_ends();
    // What the fax thread did.
    harness::View of_the_job(const harness::View& view) const;

    // How the job ended for the fax service and for TAPI: the two events.
    harness::Lines outcome() const;

    // Whether somebody holds the lock of LINE1; asked from a thread that does not.
    bool line_is_locked() const;
    HANDLE line_mutex() const;
    // A note of it.
    void note_lock(const std::string& where) const;
    // ... with every event from now on.
    void note_lock_at_events() const;

    // The path of the job's file, different in every process; removed at the end.
    const std::string& file() const { return file_; }

  private:
    std::string file_;
};

// With a call that was placed from LINE1 and answered, as a transmission has it.
class OutgoingFaxFixture : public FaxFixture {
  protected:
    void SetUp() override;
};

// With a call that came in on LINE1 and was answered, as a reception has it.
class IncomingFaxFixture : public FaxFixture {
  protected:
    void SetUp() override;
    virtual harness::CallData incoming_call() const { return {}; }
};

// A driver's fax step that ends with this result in its record.
std::function<int(DornLine*, DornFaxRecord*)> fax_step(int result, uint32_t status, uint32_t line_status);

// The records that the provider gave to a driver function, as they were at the call, in order.
std::vector<std::vector<uint8_t>> records_of(const std::string& function);

// Puts more in front of a driver function's handler.
template <class Result, class... Arguments, class Before>
void before(std::function<Result(Arguments...)>& handler, Before first) {
    handler = [usual = handler, first](Arguments... arguments) {
        first();
        return usual(arguments...);
    };
}

// How traces name LINE1 while it has its first call, and without one.
extern const char* const kLine;
extern const char* const kIdleLine;
// The text, named as of LINE1 with its call: "[4] hdLine(...): text".
std::string of_line(int level, const std::string& text);

harness::Lines joined(const std::vector<harness::Lines>& parts);
// How a good job's end is told to TAPI.
const harness::Lines& call_is_disconnected();
