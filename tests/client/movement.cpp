// Moving: top, bottom, go to, skip and seek; the cached image of the record and the read-ahead.

#include <utility>

#include "client/readings.h"
#include "client/stand_in.h"

namespace brenik::stand_in {

// -- Where the server has gone, seen from the client.

void ClientTable::show_image(U32 record, std::vector<Byte> bytes) {
    record_ = record;
    original_ = std::move(bytes);
    image_ = original_;
    at_end_ = at_beginning_ = false;
}

// Takes over the server's record, or its being at an end.
void ClientTable::arrive() {
    drop_ahead();
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
    if (!has_record()) fail(kNoCurrentRecord, "no current record");
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
    drop_ahead();
}

bool ClientTable::take_ahead(Handle object, I32 count) {
    const bool next = count == (ahead_forward_ ? 1 : -1);
    if (ahead_.empty() || object != ahead_of_ || !next) return false;
    Ahead record = std::move(ahead_.front());
    ahead_.pop_front();
    show_image(record.record, std::move(record.bytes));
    server_elsewhere_ = true;
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
        for (Ahead& known : ahead_) {
            if (known.record != record) continue;
            show_image(record, std::move(known.bytes));
            server_elsewhere_ = true;
            return drop_ahead();
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
    if (count == 0) {
        if (!reads("skip_zero=refresh") || !has_record()) return;
        table_->go_to(record_);
        return arrive();
    }
    if (take_ahead(object, count)) return;
    drop_ahead();
    const bool forward = count > 0;
    const bool parked = record_ == 0 && !at_end_;
    if ((at_end_ && forward) || (parked && !forward)) return;
    std::int64_t steps = count;
    if (parked) {
        table_->set_order(order == nullptr ? 0 : order->number);
        table_->go_top();
        --steps;
    } else {
        stand_on_record(order == nullptr ? 0 : order->number);
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

void ClientTable::seek(const Order& order, const Value& key, bool soft, bool last, U16& found) {
    flush();
    table_->set_order(order.number);
    const SeekEnd end = last ? SeekEnd::kLast : SeekEnd::kFirst;
    found = table_->seek(key, soft ? SeekMode::kSoft : SeekMode::kHard, end) ? 1 : 0;
    if (soft && table_->end_of_file() && reads("soft_past_end=last")) table_->go_bottom();
    arrive();
}

// -- Exports.

STAND_IN_FUNCTION(Status) AdsGotoTop(Handle handle) {
    const auto go = [&] {
        const Process::Object object = process().object(handle);
        object.table->go_top(object.number());
    };
    return call("AdsGotoTop", go, given(handle));
}

STAND_IN_FUNCTION(Status) AdsGotoBottom(Handle handle) {
    const auto go = [&] {
        const Process::Object object = process().object(handle);
        object.table->go_bottom(object.number());
    };
    return call("AdsGotoBottom", go, given(handle));
}

STAND_IN_FUNCTION(Status) AdsGotoRecord(Handle handle, U32 record) {
    return call(
        "AdsGotoRecord", [&] { process().object(handle).table->go_to(record); }, given(handle),
        record);
}

STAND_IN_FUNCTION(Status) AdsSkip(Handle handle, I32 count) {
    const auto skip = [&] {
        const Process::Object object = process().object(handle);
        object.table->skip(object.order, count);
    };
    return call("AdsSkip", skip, given(handle), count);
}

STAND_IN_FUNCTION(Status) AdsAtEOF(Handle table, U16* at) {
    const auto get = [&] { result_argument(at) = process().table(table).at_end() ? 1 : 0; };
    return call("AdsAtEOF", get, given(table), static_cast<const U16*>(at));
}

STAND_IN_FUNCTION(Status) AdsAtBOF(Handle table, U16* at) {
    const auto get = [&] { result_argument(at) = process().table(table).at_beginning() ? 1 : 0; };
    return call("AdsAtBOF", get, given(table), static_cast<const U16*>(at));
}

namespace {

void require_filter_option(U16 option) {
    const U16 choice = option & static_cast<U16>(~kRefreshCount);
    require(choice <= kRespectScopes && option <= (kRefreshCount | kRespectScopes),
            "an unknown filter option");
}

KeySet keys_of(U16 option) {
    return (option & kRespectScopes) == kRespectFilters ? KeySet::kVisible : KeySet::kWhole;
}

U32 record_number(ClientTable& table, U16 option) {
    require_filter_option(option);
    if (option != kRespectFilters || !table.has_record()) return table.record_number();
    table.stand_on_record(0);
    return static_cast<U32>(table.server().key_number(0, KeySet::kVisible));
}

U32 record_count(const Process::Object& object, U16 option) {
    require_filter_option(option);
    if (object.order == nullptr && keys_of(option) == KeySet::kWhole) {
        return object.table->record_count((option & kRefreshCount) != 0);
    }
    object.table->flush();
    return static_cast<U32>(object.table->server().key_count(object.number(), keys_of(option)));
}

U32 key_number(const Order& order, U16 option) {
    require_filter_option(option);
    ClientTable& table = *order.table;
    if (!table.has_record()) return 0;
    table.flush();
    table.stand_on_record(order.number);
    const std::size_t number = table.server().key_number(order.number, keys_of(option));
    if (number == 0 && reads("key_num_not_in_order=error")) {
        fail(kNotFound, "the record has no key in the order");
    }
    return static_cast<U32>(number);
}

}  // namespace

STAND_IN_FUNCTION(Status) AdsGetRecordNum(Handle handle, U16 option, U32* record) {
    const auto get = [&] {
        result_argument(record) = record_number(process().table(handle), option);
    };
    return call("AdsGetRecordNum", get, given(handle), option, static_cast<const U32*>(record));
}

STAND_IN_FUNCTION(Status) AdsGetRecordCount(Handle handle, U16 option, U32* count) {
    const auto get = [&] {
        result_argument(count) = record_count(process().object(handle), option);
    };
    return call("AdsGetRecordCount", get, given(handle), option, static_cast<const U32*>(count));
}

STAND_IN_FUNCTION(Status) AdsGetKeyCount(Handle handle, U16 option, U32* count) {
    const auto get = [&] {
        static_cast<void>(process().order(handle));
        result_argument(count) = record_count(process().object(handle), option);
    };
    return call("AdsGetKeyCount", get, given(handle), option, static_cast<const U32*>(count));
}

STAND_IN_FUNCTION(Status) AdsGetKeyNum(Handle handle, U16 option, U32* number) {
    const auto get = [&] { result_argument(number) = key_number(process().order(handle), option); };
    return call("AdsGetKeyNum", get, given(handle), option, static_cast<const U32*>(number));
}

}  // namespace brenik::stand_in
