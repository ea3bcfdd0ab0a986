// Reads, raises and writes counters under their lock.

#include "data/identifiers.h"

#include <algorithm>

#include "RSData/journal.h"
#include "RSData/system_record.h"
#include "c_source/retries.h"
#include "engine/orders.h"
#include "engine/selected_area.h"
#include "fwp/trace_log.h"
#include "practice/identifiers.h"
#include "practice/journal_entry.h"
#include "util/runtime.h"

namespace brenik {

namespace {

// The range counts as used up when less than 1/kHardlyAny of it is left above the highest
// identifier.
constexpr std::int64_t kHardlyAny = 1000;

// The greatest whole number that a field can hold.
std::int64_t greatest_in(const FieldDescription& field) {
    const int digits = field.decimals > 0 ? field.width - field.decimals - 1 : field.width;
    std::int64_t greatest = 1;
    for (int i = 0; i < digits && greatest < practice::kMostIdentifiers; ++i) greatest *= 10;
    const bool written_out = field.type == 'N' || field.type == 'F';
    return written_out ? std::min(greatest, practice::kMostIdentifiers) - 1
                       : practice::kMostIdentifiers - 1;
}

// The order whose keys are the identifiers of all records, unchanged; 0 if there is none.
std::size_t identifier_order(Table& table) {
    const std::optional<std::size_t> number = find_order(table, practice::kIdentifierField);
    if (!number || *number == 0) return 0;
    const OrderDescription order = table.order_description(*number);
    const bool sound = equal_ignoring_case(trim_both(order.key), practice::kIdentifierField) &&
                       order.condition.empty() && !order.custom;
    return sound ? *number : 0;
}

// Issues an identifier to the current record of `area`, from the counter of table number `table`.
bool identify(Session& session, std::string& identifier, int table, int area,
              RecordObject* object) {
    if (table == kSecondNotesArea) table = area = kNotesArea;
    bool issued = false;
    const bool writable = with_writable_record(session, area, [&] {
        reread_counter(session);
        NextIdentifier next(session, table, area);
        if (!next.issued()) return;
        next.pass_over_known();
        session.areas.set_field(area, practice::kIdentifierField, next.text());
        if (object) object->assign(practice::kIdentifierField, next.text());
        next.store();
        identifier = next.text();
        issued = true;
    });
    return writable && issued;
}

}  // namespace

NextIdentifier::NextIdentifier(Session& session, int table, int area)
    : session_(session), table_code_(practice::table_code_of(table)), area_(area) {
    WorkAreas& areas = session.areas;
    const std::string counter = practice::counter_field(table);
    const std::size_t position = areas.field_position(kSystemArea, counter);
    if (position == 0) return;
    counter_ = counter;
    Table& owner = areas.table(area, practice::kIdentifierField);
    order_ = identifier_order(owner);
    if (order_ == 0) trace("no order of identifiers: the counter alone decides");
    prefix_ = areas.field(kSystemArea, practice::kPrefixField).text();
    last_ = std::max<std::int64_t>(areas.field(kSystemArea, counter).whole(), 0);
    limit_ = greatest_in(areas.table(kSystemArea, counter).fields()[position - 1]);
    const std::size_t field = areas.field_position(area, practice::kIdentifierField);
    const auto width = field == 0 ? 0 : static_cast<std::size_t>(owner.fields()[field - 1].width);
    if (prefix_.size() + practice::kIdentifierDigits > width) limit_ = 0;
    set(last_ + 1);
}

void NextIdentifier::set(std::int64_t number) {
    if (number > limit_) {
        throw EngineFault(FaultCode::kLimit, "new identifier",
                          session_.areas.alias(area_) + ": MYUDN " + prefix_ + ", counter " +
                              counter_ + " at " + std::to_string(last_) +
                              " or field U_ID cannot hold another identifier");
    }
    number_ = number;
    text_ = practice::identifier_of(prefix_, number);
}

// The greatest identifier, up to `limit`, in the order or the journal.
std::optional<std::string> NextIdentifier::last_known(const std::string& limit) const {
    std::optional<std::string> last = last_journalled(session_, table_code_, limit);
    if (order_ == 0) return last;
    const std::optional<std::string> in_order =
        session_.areas.table(area_, practice::kIdentifierField).last_key(order_, limit);
    if (in_order) last = std::max(last.value_or(""), in_order->substr(0, limit.size()));
    return last;
}

// The number of the greatest known identifier with this prefix; 0 if there is none or if no counter
// can have issued it.
std::int64_t NextIdentifier::highest() const {
    const auto last = last_known(practice::identifier_of(prefix_, practice::kMostIdentifiers - 1));
    return practice::number_of(prefix_, last.value_or("")).value_or(0);
}

void NextIdentifier::pass_over_known() {
    if (issued() && order_ != 0 && is_known(text_)) pass_over();
}

void NextIdentifier::pass_over_journalled() {
    if (!issued() || order_ == 0) return;
    if (last_journalled(session_, table_code_, text_) == text_) pass_over();
}

void NextIdentifier::pass_over() {
    const std::string taken = text_;
    const std::int64_t top = std::max(highest(), number_);
    set(limit_ - top > limit_ / kHardlyAny ? top + 1 : number_ + 1);
    while (is_known(text_)) set(number_ + 1);
    trace(taken + " exists already: " + text_ + " is issued");
}

void NextIdentifier::write(std::int64_t number) {
    session_.areas.set_field(kSystemArea, counter_, number);
    session_.areas.table(kSystemArea, "COMMIT").commit();
}

void NextIdentifier::store() {
    if (issued()) write(number_);
}

void NextIdentifier::take_back() {
    if (issued()) write(last_);
}

void NextIdentifier::trace(const std::string& line) const {
    brenik::trace(session_, "NEXTUID",
                  [&] { return Array{session_.areas.alias(area_) + ": " + line}; });
}

bool lock_record_of(Session& session, int area) {
    const SelectedArea selected(session.areas, area);
    return REC_LOCK(session);
}

void reread_counter(Session& session) {
    session.areas.table(kSystemArea, "ADSREFRESHRECORD").refresh_record();
}

bool NEXTUID(Session& session, std::string& identifier, const NextUid& options) {
    WorkAreas& areas = session.areas;
    const int area = areas.current();
    const int table = options.object ? options.object->NDB() : options.table.value_or(area);
    if (areas.field_position(practice::kIdentifierField) == 0 || !areas.used(kSystemArea))
        return false;
    const SystemRecord counters(session);
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
