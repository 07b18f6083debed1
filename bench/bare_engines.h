// The floor of whole faxes: two of spandsp's T.30 engines that hear each other, with nothing of the product around
// them.
#pragma once

#include <memory>
#include <string>

struct BareFaxSettings {
    std::string send_path;     // TIFF file
    std::string receive_path;  // where the pages go
    bool ecm = true;
};

class BareFax {
  public:
    explicit BareFax(const BareFaxSettings& settings);
    BareFax(const BareFax&) = delete;
    BareFax& operator=(const BareFax&) = delete;
    ~BareFax();

    // 20 ms of line time; false when both ends are through.
    bool carry_frame();
    // Both ends are through and content.
    bool is_good() const;

  private:
    struct End;
    std::unique_ptr<End> ends_[2];  // caller, which sends, and called
};

struct BareFaxResult {
    bool good = false;
    double seconds = 0;       // that it took
    double line_seconds = 0;  // that it would take on a telephone line
};
BareFaxResult run_bare_fax(const BareFaxSettings& settings);

// So many faxes at once, each of them 20 ms further at every tick of a clock, on as many threads as there are
// processors.
struct BareFaxesResult {
    bool good = false;
    double processor_seconds = 0;  // from making the engines to their end
    double line_seconds = 0;       // of each
};
BareFaxesResult run_bare_faxes_in_real_time(unsigned count, const BareFaxSettings& settings);
