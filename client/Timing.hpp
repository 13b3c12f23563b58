#pragma once

// How long lcf waits, and why. Every wait of the tool is derived from what the protocol
// guarantees, never from the speed of the machine it runs on:
// - a controller answers only after it has read its whole device through its own tools, which
//   takes a slow board seconds;
// - a controller that has just accepted an ASSIGN reads nothing for the settling pause, so a
//   request that arrives then waits in its queue.
// Times are seconds on one steady clock.

#include "wire/MessageFormat.hpp"

namespace lcf::timing {

// The slowest reading of a whole device lcf waits for: a small ARMv5 board spawning its
// seventeen device commands takes seconds.
constexpr double kSlowestReadingSeconds = 6.0;

constexpr double kSettleSeconds = lcfd::kSettleSeconds;

// The longest a present controller takes to answer a request: it may have just begun its
// settling pause, and then it reads its whole device.
constexpr double kLongestAnswerSeconds = kSettleSeconds + kSlowestReadingSeconds;

// The daemon acknowledges an ASSIGN before it applies it, and its pause begins only once the
// device commands have run: this much more is allowed for them before the pause is over.
constexpr double kApplyingSeconds = 1.0;

// Answers arriving in a stream (a crowded segment answers one after the other) are followed
// until none came for a quiet period derived from their spacing, within these bounds.
constexpr double kShortestQuietSeconds = 1.5;
constexpr double kLongestQuietSeconds = 6.0;

// A request whose answer is missing is sent again after this long at first, doubling with each
// attempt; once the controller's own answer time is known, twice that is used instead.
constexpr double kFirstResendSeconds = 3.0;

// query, assign and clear give up on a controller after this long: time for the longest answer
// and for sending once more after a lost datagram.
constexpr double kRequestTimeoutSeconds = kLongestAnswerSeconds + kFirstResendSeconds + 2.0;

}  // namespace lcf::timing
