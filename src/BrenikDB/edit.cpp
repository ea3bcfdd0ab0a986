// The edit transaction: EditStart or EditBegin, SetField, EditEnd.

#include "BrenikDB/edit.h"

#include "BrenikDB/codes.h"
#include "BrenikDB/selection.h"
#include "RSData/journal.h"
#include "c_source/Strings.h"
#include "c_source/retries.h"
#include "data/scatgat.h"
#include "fwp/trace_log.h"
#include "util/runtime.h"

namespace brenik {

namespace {

bool is_current_record(Session& session, std::int64_t record) {
    return record == 0 || record == std::int64_t{session.areas.record_number()};
}

// The type to convert to. A NULL element has no type of its own, so its field's kind decides.
char element_type(const Value& element, const FieldDescription& field) {
    return static_cast<char>(element.is_nil() ? field.value : element.kind());
}

// Keeps the padded element if the text differs only in trailing blanks.
void set_element(Session& session, Value& element, char type, const std::string& text) {
    if (type != 'C') {
        element = CASTANY(session.ui, text, type);
    } else if (element.is_nil() || trim_right(element.text()) != trim_right(text)) {
        element = text;
    }
}

int write_under_lock(Session& session) {
    if (!REC_LOCK(session)) return kLockRefused;
    return RSSET(session, {.values = session.buffer}) ? kSuccess : kEditNotStamped;
}

}  // namespace

int EditStart(Session& session, int table, const Value& identifier) {
    trace(session, "EditStart", [&] {
        return Array{"EditStart nTable, U_ID:", table, identifier};
    });
    if (const int code = select_table(session, "EditStart", table); code != kSuccess) return code;
    if (!identifier.is_text()) {
        trace(session, "EditStart", "EditStart U_ID is not Char.");
        return kIdentifierNotFound;
    }
    if (!seek_in_order(session, practice::kIdentifierField, identifier)) return kIdentifierNotFound;
    session.buffer = SCATGAT(session);
    trace(session, "EditStart", [&] {
        return Array{"EditStart record selected", identifier, session.areas.record_number(),
                     session.areas.alias()};
    });
    return kSuccess;
}

int EditBegin(Session& session, int table, std::int64_t record) {
    trace(session, "EditBegin", [&] { return Array{"EditBegin nTable, nRec:", table, record}; });
    if (const int code = select_table(session, "EditBegin", table); code != kSuccess) return code;
    WorkAreas& areas = session.areas;
    const RecordNumber count = areas.record_count();
    if (record < 1 || record > std::int64_t{count}) {
        trace(session, "EditBegin", [&] {
            return Array{"EditBegin Error in nRec. Count =" + std::to_string(count), record};
        });
        return kBadRecord;
    }
    areas.table("EditBegin").go_to(to_record_number(record));
    if (areas.end_of_file() || std::int64_t{areas.record_number()} != record) {
        trace(session, "EditBegin", [&] {
            return Array{"At Eof or bad RecNo after GoTo", areas.alias(), areas.end_of_file(),
                         areas.record_number(), record};
        });
        return kBadRecord;
    }
    session.buffer = SCATGAT(session);
    trace(session, "EditBegin", [&] {
        return Array{"EditBegin record selected", areas.record_number(), areas.alias()};
    });
    return kSuccess;
}

int SetField(Session& session, int table, std::int64_t record, const std::string& field,
             const std::string& text) {
    WorkAreas& areas = session.areas;
    trace(session, "SetField", [&] {
        return Array{"Set Field",           field,         text,   table,
                     areas.record_number(), areas.alias(), record, session.buffer == nullptr};
    });
    if (table != areas.current()) return kNotCurrentArea;
    if (!is_current_record(session, record) || !session.buffer) return kBadRecord;
    const std::size_t position = areas.field_position(field);
    if (position == 0 || position > session.buffer->size()) {
        trace(session, "SetField", [&] {
            return Array{
                "Set Field BRERR_FIELD", areas.end_of_file(), static_cast<std::int64_t>(position),
                areas.record_number(),   areas.alias(),       record};
        });
        return kUnknownField;
    }
    Value& element = (*session.buffer)[position - 1];
    set_element(session, element,
                element_type(element, areas.table("SetField").fields()[position - 1]), text);
    trace(session, "SetField", [&] { return Array{"Set Field", kSuccess}; });
    return kSuccess;
}

int EditEnd(Session& session, int table, std::int64_t record) {
    WorkAreas& areas = session.areas;
    trace(session, "EditEnd", [&] {
        return Array{"EditEnd",           record,       table, areas.record_number(),
                     areas.end_of_file(), areas.alias()};
    });
    if (table != areas.current()) return kNotCurrentArea;
    const bool editable = is_current_record(session, record) && !areas.end_of_file();
    const int code = editable && session.buffer ? write_under_lock(session) : kBadRecord;
    REC_UNLOCK(session);
    trace(session, "EditEnd", [&] { return Array{"EditEnd", code}; });
    return code;
}

}  // namespace brenik
