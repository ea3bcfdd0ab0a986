// Navigation and keys by number.
//
// An order is walked by the client, which shows every record then. Each record that it reaches is
// judged here: by the order's scopes, the filter and its deletion mark. Physical order needs no
// walk, only numbers.

#include <algorithm>
#include <limits>

#include "engine/advantage/advantage_table.h"
#include "engine/advantage/assumptions.h"
#include "engine/advantage/server_filter.h"

namespace brenik::advantage {
namespace {

constexpr RecordNumber kNoRecord = std::numeric_limits<RecordNumber>::max();
// The client steps by 32 bits.
constexpr std::int64_t kFarthest = std::numeric_limits<I32>::max();

}  // namespace

bool AdvantageTable::shows(const record::RecordView& record) const {
    if (engine_.deleted_hidden() && record.deleted()) return false;
    return !filter_ || filter_(record);
}

// -- The filter. A remote server passes over what it leaves out, so that fewer records travel. The
// local one would miss changes of others. The function decides in either case.

void AdvantageTable::set_filter(Filter filter, const std::string& text) {
    filter_ = std::move(filter);
    if (!is_open()) return;
    const bool shared = filter_ && engine_.is_remote() && means_the_same_at_server(text, layout_);
    filter_at_server(shared ? text : std::string());
}

// Changes nothing for a text that the server does not take.
void AdvantageTable::filter_at_server(const std::string& text) {
    if (!servers_filter_.empty()) {
        cursor_->lose_place();
        require(client().AdsClearAOF(handle_), "filter");
        servers_filter_.clear();
    }
    if (text.empty() || client().AdsSetAOF == nullptr || client().AdsClearAOF == nullptr) return;
    cursor_->lose_place();
    if (client().AdsSetAOF(handle_, text.c_str(), kDynamicFilter) == 0) servers_filter_ = text;
}

AdvantageTable::Unfiltered::~Unfiltered() {
    try {
        if (table_.handle_ != 0) table_.filter_at_server(filter_);
    } catch (const std::exception&) {
        // Without the server, the function filters alone.
    }
}

FilterOptimisation AdvantageTable::filter_optimisation() const {
    const auto ask = servers_filter_.empty() ? nullptr : engine_.client().AdsGetAOFOptLevel;
    U16 level = kNotOptimised, size = 0;
    if (ask == nullptr || ask(handle_, &level, nullptr, &size) != 0) {
        return FilterOptimisation::kNone;
    }
    if (level == kFullyOptimised) return FilterOptimisation::kFull;
    return level == kPartlyOptimised ? FilterOptimisation::kPartial : FilterOptimisation::kNone;
}

void AdvantageTable::move_to(RecordNumber record) {
    flush();
    place_by_number(is_open() && record <= record_count() ? record : 0);
}

// The client may have read the record on which it stands some time ago.
void AdvantageTable::place_by_number(RecordNumber record) {
    if (record != 0 && cursor_->at() == record) cursor_->doubt_record(owns(record));
    place(record);
}

void AdvantageTable::go_to(RecordNumber record) {
    move_to(record);
    moved();
}

// False for a record that the order leaves out, from which the client cannot step.
bool AdvantageTable::is_in(const ClientOrder& order) {
    if (!order.key.takes(view())) return false;
    if (!servers_filter_.empty() && filter_ && !filter_(view())) return false;
    if (!order.description.unique && !order.description.custom) return true;
    require_at(record_, "skip");
    U32 number = 0;
    const Status status = client().AdsGetKeyNum(order.handle, kIgnoreFilters, &number);
    if (status != 0 && !engine_.answers(handle_)) require(status, "skip");
    return status == 0 && number != 0;
}

// Moves from the entry that the client has reached, itself included, to the first visible one.
bool AdvantageTable::place_near(bool any, bool forward) {
    const ClientOrder& order = controlling();
    for (ClientWalk entries = walk(order); any; any = entries.step(forward)) {
        if (order.has_scope()) {
            const KeyValue key = entries.key();
            if (forward ? order.behind_bottom(key) : order.before_top(key)) return false;
            if (forward ? order.before_top(key) : order.behind_bottom(key)) continue;
        }
        if (hides_records() && !shows(cursor_->record())) continue;
        place(cursor_->at());
        return true;
    }
    return false;
}

// The first entry inside the scopes that does not lie before `wanted`, if there is such an entry.
bool AdvantageTable::first_in(const ClientOrder& order, const KeyValue* wanted) {
    const KeyValue* from = order.top_limit ? &*order.top_limit : nullptr;
    if (wanted != nullptr && (from == nullptr || order.place(*from, *wanted) <= 0)) from = wanted;
    ClientWalk entries = walk(order);
    bool any = from != nullptr ? entries.at_or_after(*from) : entries.first();
    // In a descending order, a shorter limit begins before the longer keys with its text.
    while (any && wanted != nullptr && entries.place(*wanted) < 0) any = entries.step(true);
    return any;
}

bool AdvantageTable::last_in(const ClientOrder& order) {
    return order.bottom_limit ? walk(order).at_or_before(*order.bottom_limit) : walk(order).last();
}

// A record outside the scopes lies before the first or behind the last one inside them.
bool AdvantageTable::to_neighbour(bool forward) {
    const ClientOrder& order = controlling();
    const KeyValue here = order.key.of(view());
    if (order.before_top(here)) return forward && first_in(order);
    if (order.behind_bottom(here)) return !forward && last_in(order);
    ClientWalk entries = walk(order);
    if (!is_in(order)) return entries.beside(here, record_, forward);
    require_at(record_, "skip");
    return entries.step(forward);
}

bool AdvantageTable::step_by_number(bool forward) {
    const RecordNumber count = forward ? record_count() : record_ - 1;
    for (RecordNumber record = record_; forward ? record < count : record > 1;) {
        record = forward ? record + 1 : record - 1;
        place_by_number(record);
        if (!hides_records() || shows(view())) return true;
    }
    return false;
}

bool AdvantageTable::step(bool forward) {
    return controlling_ != 0 ? place_near(to_neighbour(forward), forward) : step_by_number(forward);
}

// One move over many records; false when it would pass the first or the last one.
bool AdvantageTable::leap(std::int64_t count) {
    if (controlling_ != 0) {
        require_at(record_, "skip");
        if (!cursor_->skip(controlling().handle, static_cast<I32>(count))) return false;
        place(cursor_->at());
        return true;
    }
    const std::int64_t reached = record_ + count;
    if (reached < 1 || reached > record_count()) return false;
    place_by_number(static_cast<RecordNumber>(reached));
    return true;
}

bool AdvantageTable::end_by_number(bool top) {
    const RecordNumber count = record_count();
    if (count == 0) return false;
    place_by_number(top ? 1 : count);
    return !hides_records() || shows(view()) || step_by_number(top);
}

void AdvantageTable::go_end(bool top) {
    flush();
    bool any = false;
    if (is_open() && controlling_ == 0) {
        any = end_by_number(top);
    } else if (is_open()) {
        any = place_near(top ? first_in(controlling()) : last_in(controlling()), top);
    }
    if (!any) place(0);
    at_beginning_ = !any;
}

void AdvantageTable::go_top() {
    go_end(true);
    moved();
}

void AdvantageTable::go_bottom() {
    go_end(false);
    moved();
}

void AdvantageTable::skip(std::int64_t count) {
    if (count == 0) {
        flush();
        return forget_reading();
    }
    move_by(count);
    moved();
}

void AdvantageTable::move_by(std::int64_t count) {
    flush();
    at_beginning_ = false;
    if (count < 0 && record_ == 0) {
        go_end(false);
        ++count;
    }
    if (record_ == 0 || count == 0) return;
    const bool forward = count > 0;
    const bool by_client = controlling_ == 0 || (!controlling().has_scope() && count != 1 &&
                                                 count != -1 && is_in(controlling()));
    bool any = true;
    if (!hides_records() && by_client && count <= kFarthest && -count <= kFarthest) {
        any = leap(count);
    } else {
        for (; any && count != 0; count += forward ? -1 : 1) any = step(forward);
    }
    if (any) return;
    if (forward) return place(0);
    go_end(true);
    at_beginning_ = true;
}

bool AdvantageTable::seek(const Value& key, SeekMode mode, SeekEnd end) {
    const bool found = find(key, mode, end);
    moved();
    return found;
}

// To a visible entry that has the key, from the entry that the client has reached.
bool AdvantageTable::place_with_key(bool any, bool forward, const KeyValue& wanted) {
    const ClientOrder& order = controlling();
    for (ClientWalk entries = walk(order); any; any = entries.step(forward)) {
        const KeyValue key = entries.key();
        if (order.place(key, wanted) != 0) return false;
        if (order.before_top(key) || order.behind_bottom(key)) continue;
        if (hides_records() && !shows(cursor_->record())) continue;
        place(cursor_->at());
        return true;
    }
    return false;
}

bool AdvantageTable::find(const Value& key, SeekMode mode, SeekEnd end) {
    require_open("seek");
    flush();
    if (controlling_ == 0) {
        throw EngineFault(FaultCode::kUnknownName, "seek", path_ + ": no controlling order");
    }
    const ClientOrder& order = controlling();
    const KeyValue wanted = order.key.sought(key);
    if (!order.key.is_longer(key)) {
        const bool first = end == SeekEnd::kFirst;
        const bool any = first ? first_in(order, &wanted) : walk(order).at_or_before(wanted);
        if (place_with_key(any, first, wanted)) return true;
    }
    if (mode == SeekMode::kHard || !place_near(first_in(order, &wanted), true)) place(0);
    return false;
}

std::optional<std::string> AdvantageTable::last_key(std::size_t order, const std::string& limit,
                                                    Wait) {
    if (order == 0 || order > order_count()) refuse_order(order, "last key");
    if (!is_open()) return std::nullopt;
    if (unwritten_) flush();
    const ClientOrder& wanted = orders_->attached(order);
    const KeyValue key = wanted.key.sought(limit);
    const Unfiltered all_records(*this);
    ClientWalk entries = walk(wanted);
    const bool any =
        wanted.description.descending ? entries.at_or_after(key) : entries.at_or_before(key);
    return any ? std::optional(entries.key().text) : std::nullopt;
}

// Counts visible keys, up to and including that of `last`.
std::size_t AdvantageTable::count_visible(std::size_t order, RecordNumber last) {
    std::size_t shown = 0;
    if (order == 0) {
        const RecordNumber end = std::min(record_count(), last);
        for (RecordNumber record = 1; record <= end; ++record) {
            shown += cursor_->go_to(record) && shows(cursor_->record());
        }
        return shown;
    }
    const ClientOrder& counted = orders_->attached(order);
    ClientWalk entries = walk(counted);
    for (bool any = first_in(counted); any; any = entries.step(true)) {
        const KeyValue key = entries.key();
        if (counted.behind_bottom(key)) break;
        shown += !counted.before_top(key) && shows(cursor_->record());
        if (cursor_->at() == last) break;
    }
    return shown;
}

std::size_t AdvantageTable::key_count(std::size_t order, KeySet keys) {
    if (order > order_count()) refuse_order(order, "key count");
    if (!is_open()) return 0;
    flush();
    const bool judged = hides_records() || (order != 0 && orders_->attached(order).has_scope());
    if (keys == KeySet::kVisible && judged) return count_visible(order, kNoRecord);
    if (order == 0) return record_count();
    U32 count = 0;
    require(client().AdsGetKeyCount(orders_->attached(order).handle, kIgnoreFilters, &count),
            "key count");
    return count;
}

std::size_t AdvantageTable::key_number(std::size_t order, KeySet keys) {
    if (order > order_count()) refuse_order(order, "key number");
    if (record_ == 0 || !is_open()) return 0;
    flush();
    const bool judged = keys == KeySet::kVisible;
    if (judged && !shows(view())) return 0;
    if (order == 0) return judged && hides_records() ? count_visible(0, record_) : record_;
    const ClientOrder& counted = orders_->attached(order);
    if (!counted.key.takes(view())) return 0;
    const KeyValue key = counted.key.of(view());
    if (judged && (counted.before_top(key) || counted.behind_bottom(key))) return 0;
    require_at(record_, "key number");
    U32 number = 0;
    const Status status = client().AdsGetKeyNum(counted.handle, kIgnoreFilters, &number);
    if (status != 0 && !engine_.answers(handle_)) require(status, "key number");
    if (status != 0 || number == 0) return 0;
    const bool some = judged && (hides_records() || counted.has_scope());
    return some ? count_visible(order, record_) : number;
}

}  // namespace brenik::advantage
