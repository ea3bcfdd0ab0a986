// Locks on a record or a whole table, with the retry policy that all waiting writers share.
//
// The engine tries a lock once and answers at once. Waiting is decided here and nowhere else: the
// half-second notice that tells the person at the workstation why nothing happens is the wait.

#pragma once

#include <string>

#include "session/session.h"

namespace brenik {

inline constexpr double kDefaultRetrySeconds = 5;
// Length of one notice, and so of one wait.
inline constexpr double kRetryStepSeconds = 0.5;

// Shows the notice of one failed repeat.
void show_retry_notice(Session& session, const std::string& text, const std::string& title);

// Each locks something of the current work area: one attempt at once, then, while `seconds` last, a
// repeat per half second. 0 seconds repeats for ever, less than 0 not at all. False when the lock
// stayed somebody else's.
[[nodiscard]] bool REC_LOCK(Session& session, double seconds = kDefaultRetrySeconds);
[[nodiscard]] bool FIL_LOCK(Session& session, double seconds = kDefaultRetrySeconds);

// Releases the current record's lock; other locks stay. Nothing happens in an empty work area.
void REC_UNLOCK(Session& session);

}  // namespace brenik
