// The audio between the two ends of a connected call: what one engine sends, the other one hears, in frames of 20 ms,
// at the configured pace.
#pragma once

#include <memory>

#include "board.h"

namespace softboard {

// Starts the thread that carries the call's audio until the call ends, unless it runs already. The lock is held.
void link_audio(Board& board, const std::shared_ptr<Call>& call);

}  // namespace softboard
