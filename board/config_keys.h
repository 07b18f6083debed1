// The keys of each kind of section of softboard.ini, and how their values are taken.
#pragma once

#include "config.h"
#include "ini.h"

namespace softboard {

// A [module.N] section: the module, and where the numberings of its channels begin.
struct ModulePlan {
    ModuleConfig module;
    uint32_t first_unit = 0;
    uint32_t first_number = 0;
};

enum class Found { no, yes, wrong };

// Each takes the entry into the record if it has such a key; a wrong value leaves the record as it was.
Found take_board_entry(BoardConfig& board, const IniEntry& entry);
Found take_module_entry(ModulePlan& plan, const IniEntry& entry);
// Of [channel.N]; in [module.N] they are the defaults of the module's channels.
Found take_channel_entry(ChannelConfig& channel, const IniEntry& entry);
// Of [channel.N] only.
Found take_numbering_entry(ChannelConfig& channel, const IniEntry& entry);
Found take_station_entry(StationConfig& station, const IniEntry& entry);
Found take_log_entry(LogConfig& log, const IniEntry& entry);

}  // namespace softboard
