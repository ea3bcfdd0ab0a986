// The steps of an append, in the order that keeps identifiers unique: lock the counter, append,
// read the counter again, write it back, journal, release.

#include "data/add_rec.h"

#include "RSData/journal.h"
#include "c_source/Data.h"
#include "data/identifiers.h"

namespace brenik {

namespace {

constexpr std::int64_t kLastRecordNumber = 99999999;

void assign_field(WorkAreas& areas, int area, RecordObject* object, std::string_view field,
                  const Value& value) {
    areas.set_field(area, field, value);
    if (object) object->assign(field, value);
}

// Running number of events; it starts again at 0.
void assign_record_number(Session& session, int area, RecordObject* object) {
    WorkAreas& areas = session.areas;
    const std::int64_t last = areas.field(kSystemArea, "RECORDNO").whole();
    const Value next = last >= kLastRecordNumber ? std::int64_t{0} : last + 1;
    areas.set_field(kSystemArea, "RECORDNO", next);
    assign_field(areas, area, object, "ENTRY", session.variables.TODAY);
    assign_field(areas, area, object, "RNO", next);
}

// A table without a counter of its own keeps a blank identifier.
void identify_and_journal(Session& session, int table, int area, const NewRecord& options) {
    reread_counter(session);
    if (table == kEventsArea) assign_record_number(session, area, options.object);
    issue_identifier(session, table, area, options.object);
    const std::string identifier = session.areas.field(area, "U_ID").text();
    // A journal entry that cannot be appended does not undo the record.
    static_cast<void>(RSADD(session, {.area = area,
                                      .commit = options.commit,
                                      .identifier = identifier,
                                      .table_code = table_code_of(table)}));
}

bool append_identified(Session& session, int table, int area, const NewRecord& options) {
    bool appended = false;
    const auto append = [&] {
        appended = append_with_retries(session, options.seconds, false);
        if (appended) identify_and_journal(session, table, area, options);
    };
    if (area == session.areas.current()) {
        append();
        return appended;
    }
    return with_writable_record(session, area, append) && appended;
}

// The operator's mark on the record object; notes carry none.
void mark_object(const Session& session, int area, RecordObject* object) {
    const bool marked = object && object->FIELDPOS("ENTRY") != 0 &&
                        object->FIELDPOS("OPERATOR") != 0 && area != kNotesArea;
    if (!marked) return;
    object->assign("OPERATOR", session.variables.MOPERATOR);
    object->assign("ENTRY", session.variables.TODAY);
}

}  // namespace

bool ADD_REC(Session& session, const NewRecord& options) {
    WorkAreas& areas = session.areas;
    const bool notes = areas.current() == kSecondNotesArea;
    const int area = notes ? kNotesArea : areas.current();
    const int table = options.object && !notes ? options.object->NDB() : area;
    const bool identified = options.assign_identifier.value_or(
        areas.field_position(area, "U_ID") != 0 && areas.used(kSystemArea));
    if (identified && !lock_record_of(session, kSystemArea)) return false;
    const bool appended =
        identified ? releasing_counter(
                         session, [&] { return append_identified(session, table, area, options); })
                   : append_with_retries(session, options.seconds, false);
    if (appended) mark_object(session, area, options.object);
    return appended;
}

}  // namespace brenik
