// Stations: the far ends of the switch that are no lines of the board.
#pragma once

#include <memory>
#include <string>

#include "board.h"

namespace softboard {

struct ReceivedPage;
struct TiffFile;

// The session of a station whose call is connected: sends its file when it has called, receives otherwise. Called
// without the lock. Throws Failure.
std::shared_ptr<FaxSession> make_station_session(Board& board, const StationConfig& station, bool calling);

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
