// The retry loops and the routines that use them.

#include "c_source/retries.h"

#include "c_source/Misc.h"
#include "platform/file.h"
#include "util/runtime.h"

namespace brenik {

namespace {

constexpr std::string_view kTableExtension = ".DBF";
// Standard extension of compound index files.
constexpr std::string_view kIndexExtension = ".CDX";

void show_retry_notice(Session& session, const std::string& text, const std::string& title) {
    session.ui.notice(text, title, static_cast<int>(kRetryStepSeconds * 1000));
}

// `notice` makes the text of the notice; most locks are free, and need none.
template <class Attempt, class Notice>
bool lock_with_retries(Session& session, double seconds, Attempt attempt, Notice notice,
                       const char* title) {
    if (attempt(LockTry::kAtOnce)) return true;
    const bool for_ever = seconds == 0;
    while (for_ever || seconds > 0) {
        if (attempt(LockTry::kInTurn)) return true;
        show_retry_notice(session, notice(), title);
        seconds -= kRetryStepSeconds;
    }
    return false;
}

auto locked_by_another(const WorkAreas& areas) {
    return [&areas] {
        return std::string(trim_right(areas.alias())) + " is locked by another user. Retrying...";
    };
}

// 0 seconds means no repeat, unlike for locks.
template <class Attempt>
bool append_repeatedly(Session& session, double seconds, Attempt attempt) {
    const auto appended = [&](LockTry one) {
        attempt(one);
        return !session.areas.network_error();
    };
    return lock_with_retries(session, seconds > 0 ? seconds : -1, appended,
                             locked_by_another(session.areas), "Append record");
}

// The open fails if the index file is held exclusively: without its orders, the first change to the
// table would leave the index stale.
bool attach(Session& session, const std::string& orders) {
    Table& table = session.areas.table("NET_USE");
    try {
        table.clear_orders();
        if (session.areas.add_orders(orders)) return true;
    } catch (const EngineFault&) {
        session.areas.refuse();
        throw;
    }
    session.areas.refuse();
    return false;
}

bool open_once(Session& session, const NetUse& options, const Opening& opening, bool repeated) {
    WorkAreas& areas = session.areas;
    const std::string path = session.path_of(opening.path);
    areas.open(path, options.alias,
               options.exclusive ? TableSharing::kExclusive : TableSharing::kShared, options.where);
    if (areas.network_error()) return false;
    if (repeated) opening.show_cursor(platform::Cursor::kArrow);
    const std::string index = index_name(path);
    const bool attaches = options.attach_index &&
                          opening.lacks_index(areas.table("NET_USE"), repeated) &&
                          platform::file_exists(index);
    return !attaches || attach(session, repeated ? path : index);
}

}  // namespace

bool REC_LOCK(Session& session, double seconds) {
    Table& table = session.areas.table("REC_LOCK");
    const RecordNumber record = table.record_number();
    const auto notice = [&] {
        return std::string(trim_right(session.areas.alias())) + " ( record " +
               std::to_string(record) + ") is locked by another user or program. Retrying...";
    };
    return lock_with_retries(
        session, seconds, [&](LockTry attempt) { return table.lock_record(record, attempt); },
        notice, "Record Locking");
}

bool FIL_LOCK(Session& session, double seconds) {
    Table& table = session.areas.table("FIL_LOCK");
    return lock_with_retries(
        session, seconds, [&](LockTry attempt) { return table.lock_table(attempt); },
        locked_by_another(session.areas), "File Locking");
}

void REC_UNLOCK(Session& session) {
    if (!session.areas.used()) return;
    Table& table = session.areas.table("REC_UNLOCK");
    table.unlock_record(table.record_number());
}

bool append_with_retries(Session& session, double seconds, bool release_other_locks) {
    return append_repeatedly(session, seconds, [&](LockTry attempt) {
        session.areas.append_blank(release_other_locks, attempt);
    });
}

Table::Added add_with_retries(Session& session, double seconds, std::size_t distinct) {
    auto added = Table::Added::kRefused;
    append_repeatedly(session, seconds, [&](LockTry attempt) {
        added = session.areas.add_record(attempt, distinct);
    });
    return added;
}

// The rest of the name keeps its case: on some systems two folders may differ in case alone.
std::string index_name(std::string table) {
    for (std::size_t at; (at = position(kTableExtension, upper(table))) != 0;) {
        table.erase(at - 1, kTableExtension.size());
    }
    return table.append(kIndexExtension);
}

bool open_with_retries(Session& session, const NetUse& options, const Opening& opening) {
    if (open_once(session, options, opening, false)) return true;
    const bool for_ever = options.seconds == 0;
    for (double seconds = options.seconds; for_ever || seconds > 0; seconds -= 1) {
        if (open_once(session, options, opening, true)) return true;
        opening.show_cursor(platform::Cursor::kWait);
        SLEEP(session.clock, 1);
    }
    opening.show_cursor(platform::Cursor::kArrow);
    return false;
}

namespace second_variant {

bool NET_USE(Session& session, const std::string& file, const NetUse& options) {
    return open_with_retries(session, options,
                             {std::string(trim_right(file)),
                              [](const Table& table, bool) { return table.order_count() == 0; },
                              [](platform::Cursor) {}});
}

bool ADD_REC(Session& session, double seconds) {
    session.areas.table("ADD_REC");
    return append_with_retries(session, seconds, true);
}

}  // namespace second_variant

}  // namespace brenik
