// Locks, opens and appends on shared tables, with the retry policies that all of them share.
//
// The engine tries once and answers at once. Waiting is decided here and nowhere else: for a lock
// or an append the half-second notice that tells the person at the workstation why nothing happens
// is the wait; between two opens it is a second on the clock.
//
// `second_variant` holds the older ways of opening and appending that stand beside NET_USE and
// ADD_REC of the data library.

#pragma once

#include <functional>
#include <optional>
#include <string>

#include "session/session.h"

namespace brenik {

inline constexpr double kDefaultRetrySeconds = 5;
// Length of one notice, and so of one wait.
inline constexpr double kRetryStepSeconds = 0.5;

// Each locks something of the current work area: one attempt at once, then, while `seconds` last, a
// repeat per half second. 0 seconds repeats for ever, less than 0 not at all. False when the lock
// stayed somebody else's.
[[nodiscard]] bool REC_LOCK(Session& session, double seconds = kDefaultRetrySeconds);
[[nodiscard]] bool FIL_LOCK(Session& session, double seconds = kDefaultRetrySeconds);

// Releases the current record's lock; other locks stay. Nothing happens in an empty work area.
void REC_UNLOCK(Session& session);

// Appends a blank record to the current work area, with repeats while `seconds` last; 0 allows
// none. False when the append stayed refused.
[[nodiscard]] bool append_with_retries(Session& session, double seconds, bool release_other_locks);
// The same for the record that has been begun there (Table::add_record).
[[nodiscard]] Table::Added add_with_retries(Session& session, double seconds, std::size_t distinct);

struct NetUse {
    bool exclusive = false;
    double seconds = kDefaultRetrySeconds;  // to go on retrying; 0 for ever, less than 0 not at all
    std::optional<std::string> alias = {};
    OpenIn where = OpenIn::kCurrentArea;
    bool attach_index = false;
};

// What the two variants of NET_USE do in their own ways.
struct Opening {
    std::string path;
    // Whether the compound index is still to be attached to the table that has just been opened,
    // by the first attempt or by a repeated one.
    std::function<bool(Table& table, bool repeated)> lacks_index;
    // Told of the wait before each second of it, and of the end of a retried open.
    std::function<void(platform::Cursor cursor)> show_cursor;
};

// The compound index of a table: its name without every ".DBF", whatever that one's case.
std::string index_name(std::string table);

// Opens a table with retries a second apart. The index that it lacks, where `options` ask for it
// and the file is there, is attached under its own name after the first attempt and under the
// table's name after a repeated one. False when every open failed, or the index is somebody else's.
[[nodiscard]] bool open_with_retries(Session& session, const NetUse& options,
                                     const Opening& opening);

namespace second_variant {

// As NET_USE of the data library, but an index is attached only where the table has no order open
// yet, the cursor stays as it is, and a damaged file is an EngineFault.
[[nodiscard]] bool NET_USE(Session& session, const std::string& file, const NetUse& options = {});

// Appends a blank record, releasing the session's other locks on the table first: no identifier, no
// counter, no stamp.
[[nodiscard]] bool ADD_REC(Session& session, double seconds = kDefaultRetrySeconds);

}  // namespace second_variant

}  // namespace brenik
