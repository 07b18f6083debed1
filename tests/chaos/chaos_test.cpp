// Random operations on a provider that is shut down and started again between them. A run depends on its seed alone;
// one that fails prints it. QORV_CHAOS_OPERATIONS and QORV_CHAOS_SEED make another run of it, QORV_CHAOS_TRACE=1 the
// same one with every trace line of the provider in the journal.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "board.h"
#include "client.h"
#include "fake_windows.h"
#include "import_table.h"
#include "journal.h"
#include "objects.h"
#include "provider_fixture.h"
#include "text.h"

namespace chaos {

bool is_traced(int level) {
    static const bool all = std::getenv("QORV_CHAOS_TRACE") != nullptr;
    return all || level <= 2;
}

namespace {

using harness::text;
using harness::windows;

constexpr uint32_t LINES = 6;
constexpr uint32_t TAPI_THREADS = 4;
constexpr uint32_t OPERATIONS_OF_A_START = 500;
constexpr uint64_t OPERATIONS = 10000;

uint64_t from_environment(const char* name, uint64_t otherwise) {
    const char* value = std::getenv(name);
    return value ? std::strtoull(value, nullptr, 10) : otherwise;
}

// How the next start's life is: from a calm day to one on which everything goes wrong.
void draw_habits() {
    constexpr uint32_t STAYS[] = {0, 50, 80, 98};
    constexpr uint32_t HURRIES[] = {0, 20, 1000, 30000};
    constexpr uint32_t STALLS[] = {0, 0, 10, 100};
    constexpr uint32_t FAILURES[] = {0, 2, 10, 30};
    habits = {STAYS[chance().below(4)], HURRIES[chance().below(4)], STALLS[chance().below(4)]};
    failures = FAILURES[chance().below(4)];
    resets_take_long = chance().percent(50);
    const bool is_short = chance().one_in(4);
    shortages = {is_short ? 20u : 0u, is_short ? 20u : 0u};
    harness::note(text("stays %u, hurries %u, stalls %u, failures %u, shortages %d", habits.stays, habits.hurries,
                       habits.stalls, failures, is_short));
}

uint32_t lines_started = 0;

// TAPI gives up a start that fails and tries it again.
void start_provider() {
    for (LONG result = -1; result != 0;) {
        DWORD lines = 0, phones = 0, options = 0;
        const Doing doing("the start-up", "the provider", "reset thread");
        const LONG enumerated =
            provider.TSPI_providerEnumDevices(PROVIDER_ID, &lines, &phones, nullptr, nullptr, nullptr);
        if (enumerated != 0 || lines != LINES) give_up(text("the enumeration returned %ld", enumerated));
        const size_t before = live_record_count();
        result =
            provider.TSPI_providerInit(TSPI_VERSION, PROVIDER_ID, DEVICE_ID_BASE, 0, lines, 0, on_completion, &options);
        if (alive("reset thread") > 0) wait("the end of the resets", [] { return alive("reset thread") == 0; });
        // The record of each reset stays, which is the provider's old habit.
        if (live_record_count() > before + LINES)
            give_up("a start-up leaves more than its resets' records:\n" + live_records());
        lines_started += static_cast<uint32_t>(live_record_count() - before);
        if (result != 0 && failures == 0 && shortages.of_handles == 0)
            give_up(text("the start-up returned %ld", result));
        if (result != 0) provider.TSPI_providerShutdown(TSPI_VERSION, PROVIDER_ID);
    }
}

// What must be so whenever nothing is under way.
void check_rest() {
    wait("everything to come to rest",
         [] { return alive("fax thread") + alive("drop_call_thread") + alive("a report") == 0; });
    check_freed_records();
    for (const TapiLine& line : tapi_lines)
        if (!lock_is_free(line.name))
            give_up("the lock of " + line.name + " is held by nobody who runs:\n" + held_locks());
}

void check_everything_is_given_back() {
    check_rest();
    wait("the provider's threads to end", [] { return alive("ring_det_thread") + alive("out_call_thread") == 0; });
    if (open_handle_count() != 0) give_up("handles are left open:\n" + open_handles());
    if (attached_lines() != 0) give_up("channels are left attached");
    if (live_record_count() != lines_started)
        give_up(text("records are left, %u of them of resets:\n", lines_started) + live_records());
}

void shut_down() {
    const Doing doing("the shutdown", "the provider");
    if (provider.TSPI_providerShutdown(TSPI_VERSION, PROVIDER_ID) != 0) give_up("the shutdown failed");
    if (initialisations() != 0) give_up(text("the driver library is initialised %d times", initialisations()));
}

void play(uint64_t operations) {
    for (uint64_t left = operations; left > 0;) {
        const auto now = static_cast<uint32_t>(std::min<uint64_t>(left, OPERATIONS_OF_A_START));
        left -= now;
        harness::new_chapter();
        draw_habits();
        start_provider();
        for (uint32_t i = 0; i < TAPI_THREADS; ++i)
            start_thread(text("TAPI's thread %u", i + 1), [now] { play_tapi(now / TAPI_THREADS); });
        wait("TAPI's threads", [] { return alive("TAPI's thread") == 0; });
        close_everything();
        check_everything_is_given_back();
        shut_down();
    }
}

TEST(Chaos, EndsEveryRequestOnceAndGivesEverythingBack) {
    const uint64_t seed = from_environment("QORV_CHAOS_SEED", 1);
    const uint64_t operations = from_environment("QORV_CHAOS_OPERATIONS", OPERATIONS);
    HMODULE module = LoadLibraryA(harness::provider_path().c_str());
    ASSERT_TRUE(module);
    windows.reset();
    harness::Replacements replacements(module);
    windows.install(replacements);
    for (const harness::Fakes& fakes : {object_fakes(), memory_fakes()})
        for (const harness::Fake& one : fakes) EXPECT_TRUE(replacements.replace(one.name, one.function)) << one.name;
    provider = harness::find_exports(module);
    install_board(LINES);
    add_lines(LINES);
    begin_world(seed, [] { provider.TSPI_lineSetStatusMessages(nullptr, 0, 0); });
    play(operations);
    EXPECT_GT(lines_started, 0u) << "the provider's records are not known by their sizes any more";
    if (operations >= OPERATIONS) {
        EXPECT_TRUE(everything_was_taken());
    }
    std::printf("seed %llu, %llu operations, %llu turns\n%s", seed, operations, steps(), operations_made().c_str());
}

}  // namespace

}  // namespace chaos
