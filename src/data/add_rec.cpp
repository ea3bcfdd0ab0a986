// The steps of an append, in the order that keeps identifiers unique: lock the counter, append,
// read the counter again, write it back, journal, release.

#include "data/add_rec.h"

#include "RSData/journal.h"
#include "RSData/stamps.h"
#include "c_source/Data.h"
#include "engine/selected_area.h"
#include "util/runtime.h"

namespace brenik {

namespace {

constexpr int kIdentifierDigits = 5;
constexpr std::int64_t kLastRecordNumber = 99999999;

bool lock_counter(Session& session) {
    const SelectedArea selected(session.areas, kSystemArea);
    return REC_LOCK(session);
}

bool append_with_retries(Session& session, double seconds) {
    WorkAreas& areas = session.areas;
    const std::string notice =
        std::string(trim_right(areas.alias())) + " is locked by another user. Retrying...";
    areas.append_blank(false);
    while (areas.network_error() && seconds > 0) {
        areas.append_blank(false);
        if (!areas.network_error()) break;
        show_retry_notice(session, notice, "Append record");
        seconds -= kRetryStepSeconds;
    }
    return !areas.network_error();
}

// Running number of events; it starts again at 0.
void assign_record_number(WorkAreas& areas, Date today) {
    const std::int64_t last = areas.field(kSystemArea, "RECORDNO").whole();
    const Value next = last >= kLastRecordNumber ? std::int64_t{0} : last + 1;
    areas.set_field(kSystemArea, "RECORDNO", next);
    areas.set_field(kEventsArea, "ENTRY", today);
    areas.set_field(kEventsArea, "RNO", next);
}

// A table without a counter of its own keeps a blank identifier.
void assign_identifier_to(WorkAreas& areas, int area) {
    const std::string counter = "U_ID" + std::to_string(area);
    if (areas.field_position(kSystemArea, counter) == 0) return;
    const std::int64_t number = areas.field(kSystemArea, counter).whole() + 1;
    const std::string digits = RSN2ADS(number, kIdentifierDigits);
    areas.set_field(kSystemArea, counter, number);
    areas.set_field(area, "U_ID", areas.field(kSystemArea, "MYUDN").text() + digits);
}

void identify_and_journal(Session& session, int area, bool commit) {
    WorkAreas& areas = session.areas;
    areas.table(kSystemArea, "ADSREFRESHRECORD").refresh_record();
    if (area == kEventsArea) assign_record_number(areas, session.variables.TODAY);
    assign_identifier_to(areas, area);
    // The counter is on its way before anything names the identifier: a process that ends here
    // leaves a number unused, never one to be issued twice.
    areas.table(kSystemArea, "COMMIT").commit();
    const std::string identifier = areas.field(area, "U_ID").text();
    // A journal entry that cannot be appended does not undo the record.
    static_cast<void>(RSADD(session, {.area = area, .commit = commit, .identifier = identifier}));
}

}  // namespace

bool ADD_REC(Session& session, std::optional<bool> assign_identifier, bool commit, double seconds) {
    WorkAreas& areas = session.areas;
    // The second slot of the notes shares its counter, and its record, with the first.
    const int area = areas.current() == kSecondNotesArea ? kNotesArea : areas.current();
    const bool identified = assign_identifier.value_or(areas.field_position(area, "U_ID") != 0 &&
                                                       areas.used(kSystemArea));
    if (!identified) return append_with_retries(session, seconds);
    if (!lock_counter(session)) return false;
    const bool appended = append_with_retries(session, seconds);
    if (appended) identify_and_journal(session, area, commit);
    areas.table(kSystemArea, "UNLOCK").unlock_all();
    return appended;
}

}  // namespace brenik
