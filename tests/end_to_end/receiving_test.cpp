// Faxes from fax machines of all kinds to lines of the provider.
#include <tiffio.h>

#include "end_to_end.h"
#include "text.h"

class Receiving : public EndToEnd {
  protected:
    // A fax machine that calls channel `number` with three pages, or with these.
    std::string machine(const std::string& name, const std::string& number, const std::string& traits) {
        if (sent_file.empty()) sent_file = three_pages();
        return "[station." + name + "]\nnumber = 2" + number + "\nident = " + name + "\ncalls = " + number +
               "\nfile = " + sent_file + "\n" + traits;
    }

    Fax receive_on_line_0(const std::string& traits, const std::string& pace = "fast") {
        given_board("[board]\npace = " + pace + "\n" + machine("far", "100", traits));
        const std::unique_ptr<Line> line = open_line(0, true);
        return receive(*line, received());
    }

    std::string received() const { return folder.file("received.tif"); }
    std::string stamp() const { return fax_file_stamp(received()).value_or("no stamp"); }

    std::string sent_file;
};

struct CallingMachine {
    const char* name;
    const char* traits;
    DWORD dwRate;
};

// At the same time, because each costs the provider's pause after a ring.
TEST_F(Receiving, FourFaxesAtOnceComeAsTheyWereSent) {
    constexpr CallingMachine machines[] = {{"ecm14400", "", 14400},
                                           {"ecm2400", "max_rate = 2400\n", 2400},
                                           {"plain14400", "ecm = no\n", 14400},
                                           {"plain9600", "ecm = no\nmax_rate = 9600\n", 9600}};
    std::string ini;
    for (int i = 0; i < 4; ++i) ini += machine(machines[i].name, std::to_string(100 + i), machines[i].traits);
    given_board(ini);
    std::vector<std::unique_ptr<Line>> lines;
    std::vector<Fax> faxes(4);
    std::vector<OwnedThread> threads;
    for (int i = 0; i < 4; ++i) {
        lines.push_back(open_line(i, true));
        threads.push_back(
            thread_start([&, i] { faxes[i] = receive(*lines[i], folder.file(format("received%d.tif", i))); }));
    }
    threads.clear();
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(machines[i].name);
        EXPECT_EQ("KX_STATUS_OK", kx_result_text(faxes[i].result.status, faxes[i].result.line_status));
        EXPECT_EQ(machines[i].name, faxes[i].result.progress.remote_id);
        EXPECT_EQ(format("2%d", 100 + i), faxes[i].result.progress.caller_id);
        EXPECT_EQ(machines[i].dwRate, faxes[i].result.progress.dwRate);
        EXPECT_EQ(3u, faxes[i].result.progress.pages);
        expect_pages(drawn_pages(3), folder.file(format("received%d.tif", i)));
        EXPECT_EQ("0536870920", fax_file_stamp(folder.file(format("received%d.tif", i))));
    }
}

TEST_F(Receiving, FromAMachineThatHangsUpDuringPageTwoKeepsPageOneAndIsStamped) {
    const Fax fax = receive_on_line_0("hangup_page = 2\n");
    EXPECT_FALSE(fax.failure) << failure_line(fax.failure);
    EXPECT_EQ("KX_STATUS_ERROR_HANGUP", kx_result_text(fax.result.status, 0));
    expect_pages({drawn_page(1)}, received());
    EXPECT_EQ("0536871936", stamp());
}

TEST_F(Receiving, ThatFailsBeforeTheFirstPageLeavesAReadablePlaceholder) {
    const Fax fax = receive_on_line_0("trains = no\n");
    EXPECT_NE(0u, fax.result.status);
    const std::unique_ptr<TIFF, void (*)(TIFF*)> placeholder(TIFFOpenW(wide(received()).c_str(), "r"), TIFFClose);
    ASSERT_TRUE(placeholder);
    uint32_t width = 0;
    uint32_t rows = 0;
    TIFFGetField(placeholder.get(), TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(placeholder.get(), TIFFTAG_IMAGELENGTH, &rows);
    EXPECT_EQ(1728u, width);
    EXPECT_EQ(4u, rows);
    EXPECT_EQ(1, TIFFLastDirectory(placeholder.get()));
    EXPECT_EQ("0538968064", stamp());
}

TEST_F(Receiving, ThatIsAbortedInTheMiddleOfPageTwoKeepsPageOneAndIsStamped) {
    sent_file = folder.file("long.tif");
    write_fax(sent_file, {drawn_page(1, 2200), drawn_page(2, 2200), drawn_page(3, 2200)});
    // A page is told when its end has come, and stored a moment later.
    on_page = [this](uint32_t pages) {
        while (pages == 1 && !fax_file_stamp(received())) Sleep(1);
        if (pages == 1) SetEvent(stop.get());
    };
    const Fax fax = receive_on_line_0("", "40");
    EXPECT_EQ("KX_STATUS_ALERT", kx_result_text(fax.result.status, 0));
    expect_pages({drawn_page(1, 2200)}, received());
    EXPECT_EQ("0538968064", stamp());
}

TEST_F(Receiving, TellsWhoCalledAndWhom) {
    const Fax fax = receive_on_line_0("name = Far End\n");
    EXPECT_EQ("2100", fax.call.caller_id);
    EXPECT_EQ("Far End", fax.call.caller_name);
    EXPECT_EQ("100", fax.call.called_id);
    EXPECT_EQ("100", fax.result.progress.called_id);
}

// The provider's ring detection takes a call that is closed within its pause for one that still rings; a host that
// wants the next one waits.
TEST_F(Receiving, TwiceOnOneLineOffersTheSecondCallAsWell) {
    given_board("");
    const std::unique_ptr<Line> line = open_line(0, true);
    const std::unique_ptr<Line> other = open_line(1);
    for (int i = 0; i < 2; ++i) {
        const OwnedThread sender =
            thread_start([&] { EXPECT_EQ(0u, send(*other, "100", three_pages()).result.status); });
        CallInfo call;
        ASSERT_FALSE(call_answer(*line, 1, stop.get(), call));
        FaxJob job;
        job.receiving = true;
        job.file = received();
        FaxResult result;
        EXPECT_FALSE(fax_job_run(
            *line, job, status, [](const FaxProgress&) {}, nullptr, result));
        EXPECT_EQ(0u, result.status);
        call_end_for_next(*line, stop.get());
    }
}
