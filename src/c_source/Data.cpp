// The retry loop and the two locks that it serves.

#include "c_source/Data.h"

#include "util/runtime.h"

namespace brenik {

namespace {

template <class Attempt>
bool lock_with_retries(Session& session, double seconds, Attempt attempt, const std::string& notice,
                       const std::string& title) {
    if (attempt()) return true;
    const bool for_ever = seconds == 0;
    while (for_ever || seconds > 0) {
        if (attempt()) return true;
        show_retry_notice(session, notice, title);
        seconds -= kRetryStepSeconds;
    }
    return false;
}

}  // namespace

void show_retry_notice(Session& session, const std::string& text, const std::string& title) {
    session.ui.notice(text, title, static_cast<int>(kRetryStepSeconds * 1000));
}

bool REC_LOCK(Session& session, double seconds) {
    Table& table = session.areas.table("REC_LOCK");
    const RecordNumber record = table.record_number();
    const std::string notice = std::string(trim_right(session.areas.alias())) + " ( record " +
                               std::to_string(record) +
                               ") is locked by another user or program. Retrying...";
    return lock_with_retries(
        session, seconds, [&] { return table.lock_record(record); }, notice, "Record Locking");
}

bool FIL_LOCK(Session& session, double seconds) {
    Table& table = session.areas.table("FIL_LOCK");
    const std::string notice =
        std::string(trim_right(session.areas.alias())) + " is locked by another user. Retrying...";
    return lock_with_retries(
        session, seconds, [&] { return table.lock_table(); }, notice, "File Locking");
}

void REC_UNLOCK(Session& session) {
    if (!session.areas.used()) return;
    Table& table = session.areas.table("REC_UNLOCK");
    table.unlock_record(table.record_number());
}

}  // namespace brenik
