// Counters read, raised and written back under their lock.

#include "data/identifiers.h"

#include "RSData/stamps.h"
#include "c_source/Data.h"
#include "engine/selected_area.h"

namespace brenik {

namespace {

constexpr int kIdentifierDigits = 5;

// Of the current record of `area`, by the counter of table number `table`.
bool identify(Session& session, std::string& identifier, int table, int area,
              RecordObject* object) {
    if (table == kSecondNotesArea) table = area = kNotesArea;
    std::optional<std::string> issued;
    const bool writable = with_writable_record(session, area, [&] {
        reread_counter(session);
        issued = issue_identifier(session, table, area, object);
    });
    if (issued) identifier = *issued;
    return writable && issued;
}

}  // namespace

bool lock_record_of(Session& session, int area) {
    const SelectedArea selected(session.areas, area);
    return REC_LOCK(session);
}

void reread_counter(Session& session) {
    session.areas.table(kSystemArea, "ADSREFRESHRECORD").refresh_record();
}

std::optional<std::string> issue_identifier(Session& session, int table, int area,
                                            RecordObject* object) {
    WorkAreas& areas = session.areas;
    const std::string counter = "U_ID" + std::to_string(table);
    if (areas.field_position(kSystemArea, counter) == 0) return std::nullopt;
    const std::int64_t number = areas.field(kSystemArea, counter).whole() + 1;
    const std::string identifier =
        areas.field(kSystemArea, "MYUDN").text() + RSN2ADS(number, kIdentifierDigits);
    areas.set_field(kSystemArea, counter, number);
    areas.set_field(area, "U_ID", identifier);
    if (object) object->assign("U_ID", identifier);
    // The counter is on its way before anything names the identifier: a process that ends here
    // leaves a number unused, never one to be issued twice.
    areas.table(kSystemArea, "COMMIT").commit();
    return identifier;
}

bool NEXTUID(Session& session, std::string& identifier, const NextUid& options) {
    WorkAreas& areas = session.areas;
    const int area = areas.current();
    const int table = options.object ? options.object->NDB() : options.table.value_or(area);
    if (areas.field_position("U_ID") == 0 || !areas.used(kSystemArea)) return false;
    const auto issue = [&] {
        if (!options.record_locked && !REC_LOCK(session)) return false;
        const bool issued = identify(session, identifier, table, area, options.object);
        if (!options.record_locked) REC_UNLOCK(session);
        return issued;
    };
    if (options.counter_locked) return issue();
    return lock_record_of(session, kSystemArea) && releasing_counter(session, issue);
}

}  // namespace brenik
