// Locks, opens and appends on shared tables, with one retry policy.
//
// The engine tries once and returns at once. Only this file decides to wait. Between two tries for
// a lock or an append, the wait is the half-second notice that tells the user the reason. Between
// two opens, it is one second on the clock.
//
// `second_variant` holds the older forms of opening and appending; NET_USE and ADD_REC of the data
// library are the newer ones.

#pragma once

#include <functional>
#include <optional>
#include <string>

#include "session/session.h"

namespace brenik {

inline constexpr double kDefaultRetrySeconds = 5;
// How long one notice stays up, and so how long one wait takes.
inline constexpr double kRetryStepSeconds = 0.5;

// Lock the current record, or the current table. Each tries once at once, then twice per second
// until `seconds` have passed. 0 seconds repeats for ever; less than 0 never repeats. False if
// another session still holds the lock.
[[nodiscard]] bool REC_LOCK(Session& session, double seconds = kDefaultRetrySeconds);
[[nodiscard]] bool FIL_LOCK(Session& session, double seconds = kDefaultRetrySeconds);

// Releases the current record's lock and keeps all others. Does nothing in an empty work area.
void REC_UNLOCK(Session& session);

// Appends a blank record to the current work area and repeats until `seconds` have passed; 0 allows
// no repeat. False if every try was refused.
[[nodiscard]] bool append_with_retries(Session& session, double seconds, bool release_other_locks);
// The same for a record that the caller has begun (Table::add_record).
[[nodiscard]] Table::Added add_with_retries(Session& session, double seconds, std::size_t distinct);

struct NetUse {
    bool exclusive = false;
    double seconds = kDefaultRetrySeconds;  // how long to retry; 0 for ever, less than 0 not at all
    std::optional<std::string> alias = {};
    OpenIn where = OpenIn::kCurrentArea;
    bool attach_index = false;
};

// Where the two variants of NET_USE differ.
struct Opening {
    std::string path;
    // True if the compound index must still be attached to the table just opened. `repeated` is
    // false for the first attempt and true for every later one.
    std::function<bool(Table& table, bool repeated)> lacks_index;
    // Called before each second of the wait, and at the end of an open that was retried.
    std::function<void(platform::Cursor cursor)> show_cursor;
};

// The name of a table's compound index: the table's name without every ".DBF", in any case, and
// with ".CDX".
std::string index_name(std::string table);

// Opens a table and retries once per second. If `options` ask for the index, the table lacks it and
// the file exists, the open attaches it: under its own name after the first attempt, under the
// table's name after a repeated one. False if every attempt failed or the index is held
// exclusively.
[[nodiscard]] bool open_with_retries(Session& session, const NetUse& options,
                                     const Opening& opening);

namespace second_variant {

// Like NET_USE of the data library, with three differences: it attaches an index only if the table
// has no order open, it leaves the cursor alone, and a damaged file throws EngineFault.
[[nodiscard]] bool NET_USE(Session& session, const std::string& file, const NetUse& options = {});

// Appends a blank record after releasing the session's other locks on the table. Sets no
// identifier, counter or stamp.
[[nodiscard]] bool ADD_REC(Session& session, double seconds = kDefaultRetrySeconds);

}  // namespace second_variant

}  // namespace brenik
