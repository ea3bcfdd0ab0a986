// Moving: top, bottom, go to, skip and seek; the cached image of the record and the read-ahead.

#include <algorithm>
#include <utility>

#include "client/readings.h"
#include "client/stand_in.h"

namespace brenik::stand_in {
namespace {

enum : U16 { kRespectFilters = 1, kRefreshCount = 4, kAllFilters = 7 };

KeySet keys_of(U16 filters) {
    require(filters <= kAllFilters, "an unknown filter option");
    const bool visible = (filters & ~kRefreshCount) == kRespectFilters;
    return visible ? KeySet::kVisible : KeySet::kWhole;
}

std::size_t record_count(const Object& object, U16 filters) {
    const KeySet keys = keys_of(filters);
    if (object.order == nullptr && keys == KeySet::kWhole) {
        return object.table->record_count((filters & kRefreshCount) != 0);
    }
    return object.table->server().key_count(object.number(), keys);
}

// A table, or one of its orders.
Object of(Handle handle) {
    const Object object = process().object(handle);
    require(object.table != nullptr, "a connection's handle instead of a table's");
    return object;
}

}  // namespace

// -- Where the server has gone, seen from the client.

// A record that was read before.
void ClientTable::show(Ahead record) {
    record_ = record.record;
    original_ = std::move(record.bytes);
    image_ = original_;
    at_end_ = at_beginning_ = false;
    server_elsewhere_ = true;
}

// Takes over the server's record, or its being at an end.
void ClientTable::arrive() {
    ahead_.clear();
    server_elsewhere_ = false;
    at_end_ = table_->end_of_file();
    at_beginning_ = at_end_ && reads("empty_top=both") && table_->beginning_of_file();
    record_ = table_->record_number();
    if (at_end_) {
        known_count_ = record_ - 1;
        return;
    }
    fetch();
}

void ClientTable::fetch() {
    const Bytes bytes = table_->record().bytes;
    original_.assign(bytes.begin(), bytes.end());
    image_ = original_;
}

void ClientTable::require_record() const {
    if (!has_record()) fail(5068, "no current record");
}

void ClientTable::stand_on_record(std::size_t order) {
    const bool there = at_end_ ? table_->end_of_file()
                               : !table_->end_of_file() && table_->record_number() == record_;
    if (server_elsewhere_ || !there) table_->go_to(at_end_ ? 0 : record_);
    server_elsewhere_ = false;
    table_->set_order(order);
}

U32 ClientTable::record_count(bool refresh) {
    if (refresh) known_count_ = table_->record_count();
    return known_count_;
}

// -- Read-ahead.

void ClientTable::set_read_ahead(U16 records) {
    read_ahead_ = records;
    ahead_.clear();
}

bool ClientTable::take_ahead(Handle object, I32 count) {
    const bool next = count == (ahead_forward_ ? 1 : -1);
    if (ahead_.empty() || object != ahead_of_ || !next) return false;
    show(std::move(ahead_.front()));
    ahead_.pop_front();
    return true;
}

// Keeps the records that follow, so that the next steps do not ask the server.
void ClientTable::read_ahead(Handle object, bool forward) {
    ahead_of_ = object;
    ahead_forward_ = forward;
    for (U16 i = 1; i < read_ahead_; ++i) {
        table_->skip(forward ? 1 : -1);
        server_elsewhere_ = true;
        if (table_->end_of_file() || table_->beginning_of_file()) return;
        const record::RecordView record = table_->record();
        ahead_.push_back({record.number, {record.bytes.begin(), record.bytes.end()}});
    }
}

// -- Moves. Each first writes the changes of the record that it leaves.

void ClientTable::go_top(std::size_t order) {
    flush();
    table_->set_order(order);
    table_->go_top();
    arrive();
    if (has_record() && reads("top_bof=set")) at_beginning_ = true;
}

void ClientTable::go_bottom(std::size_t order) {
    flush();
    table_->set_order(order);
    table_->go_bottom();
    arrive();
}

void ClientTable::go_to(U32 record) {
    flush();
    if (reads("goto_same=cached")) {
        if (has_record() && record == record_) return;
        const auto known = std::ranges::find(ahead_, record, &Ahead::record);
        if (known != ahead_.end()) {
            show(std::move(*known));
            return ahead_.clear();
        }
    }
    if (reads("goto_outside=error") && (record == 0 || record > table_->record_count())) {
        fail(kBadRecordNumber, "no record has this number");
    }
    table_->go_to(record);
    arrive();
}

void ClientTable::skip(const Order* order, I32 count) {
    flush();
    const Handle object = order == nullptr ? handle_ : order->handle;
    const std::size_t number = order == nullptr ? 0 : order->number;
    if (count == 0) {
        if (!reads("skip_zero=refresh") || !has_record()) return;
        table_->go_to(record_);
        return arrive();
    }
    if (take_ahead(object, count)) return;
    ahead_.clear();
    const bool forward = count > 0;
    const bool parked = record_ == 0 && !at_end_;
    if ((at_end_ && forward) || (parked && !forward)) return;
    std::int64_t steps = count;
    if (parked) {
        table_->set_order(number);
        table_->go_top();
        --steps;
    } else {
        stand_on_record(number);
    }
    if (steps != 0) table_->skip(steps);
    const bool before_first = !forward && table_->beginning_of_file();
    arrive();
    if (!before_first) {
        if (has_record() && (count == 1 || count == -1)) read_ahead(object, forward);
        return;
    }
    at_beginning_ = true;
    if (at_end_ || reads("bof=stays")) return;
    record_ = 0;
    server_elsewhere_ = true;
}

bool ClientTable::seek(const Order& order, const Value& key, bool soft, bool last) {
    flush();
    table_->set_order(order.number);
    const bool found = table_->seek(key, soft ? SeekMode::kSoft : SeekMode::kHard,
                                    last ? SeekEnd::kLast : SeekEnd::kFirst);
    if (soft && table_->end_of_file() && reads("soft_past_end=last")) table_->go_bottom();
    arrive();
    return found;
}

std::size_t ClientTable::key_number(std::size_t order, KeySet keys) {
    if (!has_record()) return 0;
    stand_on_record(order);
    const std::size_t number = table_->key_number(order, keys);
    if (number == 0 && reads("key_num_not_in_order=error")) {
        fail(kNotFound, "the record has no key in the order");
    }
    return number;
}

// -- Exports.

STAND_IN(AdsGotoTop, (Handle object), (object), of(object).table->go_top(of(object).number()))
STAND_IN(AdsGotoBottom, (Handle object), (object), of(object).table->go_bottom(of(object).number()))
STAND_IN(AdsGotoRecord, (Handle object, U32 record), (object, record),
         of(object).table->go_to(record))
STAND_IN(AdsSkip, (Handle object, I32 count), (object, count),
         of(object).table->skip(of(object).order, count))
STAND_IN(AdsAtEOF, (Handle table, U16* at), (table, at), give(at, table_of(table).at_end()))
STAND_IN(AdsAtBOF, (Handle table, U16* at), (table, at), give(at, table_of(table).at_beginning()))
STAND_IN(AdsGetRecordNum, (Handle table, U16 filters, U32* record), (table, filters, record),
         require(filters <= kAllFilters, "an unknown filter option");
         give(record, table_of(table).record_number()))
STAND_IN(AdsGetRecordCount, (Handle object, U16 filters, U32* count), (object, filters, count),
         give(count, record_count(of(object), filters)))
STAND_IN(AdsGetKeyCount, (Handle order, U16 filters, U32* count), (order, filters, count),
         const Order& o = order_of(order);
         give(count, o.table->server().key_count(o.number, keys_of(filters))))
STAND_IN(AdsGetKeyNum, (Handle order, U16 filters, U32* number), (order, filters, number),
         const Order& o = order_of(order);
         give(number, o.table->key_number(o.number, keys_of(filters))))

}  // namespace brenik::stand_in
