// The two notifications. They differ in more than their stamp.

#include "BrenikDB/notify.h"

#include "BrenikDB/codes.h"
#include "BrenikDB/selection.h"
#include "RSData/journal.h"
#include "fwp/trace_log.h"

namespace brenik {

namespace {

int note_addition(Session& session, std::int64_t record) {
    if (!session.areas.used()) return kBadTable;
    session.areas.table("AddedRec").go_to(to_record_number(record));
    if (session.areas.end_of_file()) return kBadRecord;
    return RSADD(session) ? kSuccess : kAdditionNotStamped;
}

}  // namespace

int AddedRec(Session& session, int table, std::int64_t record) {
    trace(session, "AddedRec", [&] { return Array{"AddedRec: nTable, nRec:", table, record}; });
    session.areas.select(table);
    const int code = note_addition(session, record);
    trace(session, "AddedRec", [&] { return Array{"AddedRec return:", code}; });
    return code;
}

int DeletedRec(Session& session, int table, std::int64_t record) {
    trace(session, "DeletedRec", [&] { return Array{"DeletedRec nTable, nRec:", table, record}; });
    WorkAreas& areas = session.areas;
    areas.select(table);
    if (!areas.used()) {
        areas.select(kNamesArea);
        return kBadTable;
    }
    Table& current = areas.table("DeletedRec");
    current.go_to(to_record_number(record));
    if (current.end_of_file() || !current.deleted()) return kBadRecord;
    return RSDEL(session, {.quiet = true}) ? kSuccess : kDeletionNotStamped;
}

}  // namespace brenik
