// The audio between the two ends of a connected call: what one engine sends, the other one hears, in frames of 20 ms,
// at the configured pace.
#pragma once

#include <memory>

#include "board.h"

namespace softboard {

// The functions are called with the board's lock held.

// Carries the call's audio from now on until the call ends. Throws std::bad_alloc.
void link_audio(Board& board, const std::shared_ptr<Call>& call);

// Something has changed that the call's audio depends on: its state, or what its ends are doing.
void wake_link(Board& board, Call& call);

}  // namespace softboard
