// Stations: the far ends of the switch that are no lines of the board.
#pragma once

#include <memory>

#include "board.h"

namespace softboard {

struct ReceivedPage;
struct TiffFile;

// Puts the session of a station on its connected call: it sends its file when it has called, receives otherwise. It
// hangs up when there can be no session. Does nothing for other ends, and for a silent station. Called without the
// lock.
void begin_station(Board& board, const std::shared_ptr<Call>& call, size_t side);

// Where a station's received pages go: one file a call, STATION-yyyymmdd-hhmmss-mmm.tif in the station's folder.
class StationFile {
  public:
    explicit StationFile(const StationConfig* station) : station_(station) {}  // null = a channel's end
    // Writes what the station's session has received since. Called without the lock.
    void store_pages(Board& board, FaxSession& session);

  private:
    void store(const ReceivedPage& page);

    const StationConfig* const station_;
    std::shared_ptr<TiffFile> file_;
    uint16_t pages_ = 0;
};

// Starts a thread for each station that calls. The lock is held.
void start_calling_stations(Board& board);

}  // namespace softboard
