// Index files, orders and their keys, seeks, and filters.

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "client/readings.h"
#include "client/stand_in.h"
#include "engine/record/field_codec.h"

namespace brenik::stand_in {
namespace {

using expression::ResultType;
using index::KeyForm;

enum : U16 { kRawKey = 1, kStringKey = 2, kDoubleKey = 4 };
enum : U16 { kSoftSeek = 1, kHardSeek = 2 };
enum : U16 { kFullLevel = 1, kPartLevel = 2, kNoLevel = 3 };
enum : U16 { kKeySetFilter = 4, kFixedFilter = 8, kAllFilterOptions = 15 };

// -- Keys.

// The key of the order's type that a number stands for.
Value value_of_number(const Order& order, double number) {
    const double day = std::floor(number);
    switch (order.format.type) {
        case ResultType::kNumber:
            return Number{number};
        case ResultType::kDate:
            return Date(static_cast<I32>(day));
        case ResultType::kDateTime:
            return record::date_time_text(
                static_cast<I32>(day),
                static_cast<U32>(std::llround((number - day) * record::kMillisecondsPerDay)));
        default:
            fail(kWrongType, "not a key of this order's type");
    }
}

// The value whose key has these bytes. Those of numbers and dates are sought as doubles.
Value value_of_raw(const Order& order, std::string_view key) {
    if (order.format.null_prefix) {
        if (key.starts_with('\0')) return {};
        key.remove_prefix(std::min<std::size_t>(1, key.size()));
    }
    const index::KeyFormat& format = order.format;
    require(key.size() <= format.text_length(), "the key is longer than those of the order");
    if (format.form == KeyForm::kText) return key;
    if (format.form == KeyForm::kLogical) return key == "T";
    fail(kWrongType, "not a key of this order's type");
}

Value key_argument(const Order& order, std::string_view key, U16 type) {
    if (type == kDoubleKey) {
        double number = 0;
        require(key.size() == sizeof number, "a double has 8 bytes");
        std::memcpy(&number, key.data(), sizeof number);
        return value_of_number(order, number);
    }
    require(type == kRawKey || type == kStringKey, "an unknown kind of key");
    const bool converts = type == kStringKey || reads("oem_raw_key=converted");
    return value_of_raw(order, order.table->is_oem() && converts ? to_oem(key) : std::string(key));
}

// Leads to the next record, or where the readings say.
bool seek_empty(const Order& order, bool last) {
    ClientTable& table = *order.table;
    const bool to_top = !last && reads("empty_seek=top");
    const bool to_next = !last && reads("empty_seek=next");
    const bool none = last ? reads("seek_last_empty=none") : reads("empty_seek=none");
    if (to_next) {
        table.skip(&order, 1);
    } else {
        to_top ? table.go_top(order.number) : table.go_bottom(order.number);
        if (none && table.has_record()) table.skip(&order, 1);
    }
    return table.has_record();
}

bool seek(const Order& order, std::string_view key, U16 type, U16 mode, bool last) {
    require(mode == kSoftSeek || mode == kHardSeek, "an unknown kind of seek");
    if (key.empty()) return seek_empty(order, last);
    return order.table->seek(order, key_argument(order, key, type), mode == kSoftSeek, last);
}

U16 key_type(const Order& order) {
    constexpr std::pair<ResultType, U16> kCodes[] = {
        {ResultType::kLogical, 1},   {ResultType::kNumber, 2},    {ResultType::kDate, 3},
        {ResultType::kCharacter, 4}, {ResultType::kDateTime, 14},
    };
    return std::ranges::find(kCodes, order.format.type, &std::pair<ResultType, U16>::first)->second;
}

void give_key(const Order& order, void* buffer, U16* size) {
    order.table->require_record();
    const record::RecordView record{order.table->image(), order.table->record_number()};
    if (order.condition && !order.condition->is_true(record)) {
        fail(kNotFound, "the record has no key in the order");
    }
    std::vector<Byte> key(order.format.length);
    index::build_key(*order.key, order.format, record, key);
    give_text(as_text(key), buffer, size, Ending::kNone);
}

// -- Index files.

void give_orders(const std::vector<const Order*>& orders, Handle* handles, U16* count) {
    const std::size_t room = *count;
    *count = static_cast<U16>(std::min(room, orders.size()));
    for (std::size_t i = 0; i < *count; ++i) give_handle(orders[i]->handle, handles, i);
    if (room < orders.size()) fail(kShortBuffer, "the array is too small");
}

void open_index(ClientTable& table, const char* path, Handle* handles, U16* count) {
    const std::string file = text_argument(path, "the path");
    require(!file.empty(), "no path");
    require(handles != nullptr && count != nullptr, "the array is null");
    if (!table.orders_of(file).empty()) {
        const bool fills = reads("already_open=fills");
        give_orders(fills ? table.orders_of(file) : std::vector<const Order*>(), handles, count);
        fail(5065, "the index file is open");
    }
    table.attach(file);
    table.list_orders(file);
    give_orders(table.orders_of(file), handles, count);
}

const Order& order_at(const ClientTable& table, U16 number) {
    if (number == 0 || number > table.orders().size()) fail(kNotFound, "no order has this number");
    return *table.orders()[number - 1U];
}

std::string file_name(const Order& order, U16 option) {
    require(option >= 1 && option <= 3, "an unknown form of a file name");
    std::string name = order.file;
    if (option == 3 && reads("index_filename=full")) return name;
    name = name.substr(name.find_last_of("/\\:") + 1);
    return option == 1 ? name.substr(0, name.find('.')) : name;
}

// Only a remote server keeps a filter up to date while others change records.
void set_filter(ClientTable& table, const char* text, U16 options) {
    const std::string filter = text_argument(text, "the filter");
    require(options <= kAllFilterOptions, "unknown options of a filter");
    if (reads("aof=refused")) fail(kBadArgument, "the filter is refused");
    const bool fixed =
        !table.connection().is_remote() || (options & (kKeySetFilter | kFixedFilter)) != 0;
    table.set_filter(table.is_oem() ? to_oem(filter) : filter, fixed);
}

U16 filter_level(const ClientTable& table) {
    if (!table.has_filter() || reads("aof_level=none")) return kNoLevel;
    return reads("aof_level=full") ? kFullLevel : kPartLevel;
}

}  // namespace

// -- The orders of a table.

std::vector<const Order*> ClientTable::orders_of(const std::string& file) const {
    std::vector<const Order*> found;
    for (const std::size_t number : table_->orders_of(file)) {
        found.push_back(orders_[number - 1].get());
    }
    return found;
}

void ClientTable::attach(const std::string& file) {
    if (const auto refusal = table_->add_orders(file, 0)) {
        fail(stand_in::status_of(*refusal), refusal->text);
    }
}

void ClientTable::list_orders(const std::string& file) {
    for (const std::size_t number : table_->orders_of(file)) {
        auto order = std::make_unique<Order>();
        order->table = this;
        order->number = number;
        order->file = file;
        order->description = table_->order_description(number);
        const OrderDescription& tag = order->description;
        order->key = expression::Expression::compile(tag.key, layout());
        if (!tag.condition.empty()) {
            order->condition = expression::Expression::compile(tag.condition, layout());
        }
        const bool nullable = index::natural_key_format(*order->key, tag.candidate).null_prefix;
        order->format = index::existing_key_format(*order->key, tag.key_length, nullable);
        process().add_order(*order);
        orders_.push_back(std::move(order));
    }
}

void ClientTable::close_index_files() {
    flush();
    ahead_.clear();
    table_->clear_orders();
    if (table_->opened_orders_automatically() && !orders_.empty()) attach(orders_.front()->file);
    while (orders_.size() > table_->order_count()) {
        process().forget(orders_.back()->handle);
        orders_.pop_back();
    }
}

// -- The filter.

std::set<U32> ClientTable::matching_records() {
    std::set<U32> found;
    server_elsewhere_ = true;
    for (U32 record = 1; record <= table_->record_count(); ++record) {
        table_->go_to(record);
        if (filter_->is_true(table_->record())) found.insert(record);
    }
    return found;
}

void ClientTable::set_filter(const std::string& text, bool fixed) {
    flush();
    ahead_.clear();
    try {
        expression::Expression condition =
            expression::Expression::compile(text, layout(), options_.alias);
        if (condition.type() != ResultType::kLogical) fail(kBadArgument, "not a condition");
        filter_ = std::move(condition);
    } catch (const expression::ExpressionError& error) {
        fail(kBadArgument, error.what());
    }
    if (fixed) filtered_ = matching_records();
    const auto passes = [this, fixed](const record::RecordView& record) {
        return fixed ? filtered_.contains(record.number) : filter_->is_true(record);
    };
    table_->set_filter(passes, {});
}

void ClientTable::clear_filter() {
    if (!filter_) fail(5037, "no filter is set");
    flush();
    ahead_.clear();
    table_->set_filter({}, {});
    filter_.reset();
}

// -- Exports.

STAND_IN(AdsOpenIndex, (Handle table, const char* path, Handle* orders, U16* count),
         (table, path, orders), open_index(table_of(table), path, orders, count))
STAND_IN(AdsCloseAllIndexes, (Handle table), (table), table_of(table).close_index_files())
STAND_IN(AdsGetNumIndexes, (Handle table, U16* count), (table, count),
         give(count, table_of(table).orders().size()))
STAND_IN(AdsGetIndexHandleByOrder, (Handle table, U16 number, Handle* order),
         (table, number, order), give_handle(order_at(table_of(table), number).handle, order))
STAND_IN(AdsGetIndexName, (Handle order, char* name, U16* size), (order, size),
         give_text(order_of(order).description.name, name, size))
STAND_IN(AdsGetIndexFilename, (Handle order, U16 option, char* name, U16* size),
         (order, option, size), give_text(file_name(order_of(order), option), name, size))
STAND_IN(AdsGetIndexExpr, (Handle order, char* text, U16* size), (order, size),
         give_text(order_of(order).description.key, text, size))
STAND_IN(AdsGetIndexCondition, (Handle order, char* text, U16* size), (order, size),
         give_text(order_of(order).description.condition, text, size))
STAND_IN(AdsIsIndexUnique, (Handle order, U16* is), (order, is),
         const OrderDescription& tag = order_of(order).description;
         give(is, tag.unique || (tag.candidate && reads("candidate=unique"))))
STAND_IN(AdsIsIndexDescending, (Handle order, U16* is), (order, is),
         give(is, order_of(order).description.descending))
STAND_IN(AdsIsIndexCustom, (Handle order, U16* is), (order, is),
         give(is, order_of(order).description.custom))
STAND_IN(AdsGetKeyType, (Handle order, U16* type), (order, type),
         give(type, key_type(order_of(order))))
STAND_IN(AdsGetKeyLength, (Handle order, U16* length), (order, length),
         give(length, order_of(order).format.length))
STAND_IN(AdsExtractKey, (Handle order, void* key, U16* size), (order, size),
         give_key(order_of(order), key, size))
STAND_IN(AdsSeek, (Handle order, const void* key, U16 length, U16 type, U16 mode, U16* found),
         (order, length, type, mode, found),
         give(found, seek(order_of(order), data_argument(key, length), type, mode, false)))
STAND_IN(AdsSeekLast, (Handle order, const void* key, U16 length, U16 type, U16* found),
         (order, length, type, found),
         give(found, seek(order_of(order), data_argument(key, length), type, kHardSeek, true)))
STAND_IN(AdsSetAOF, (Handle table, const char* text, U16 options), (table, text, options),
         set_filter(table_of(table), text, options))
STAND_IN(AdsClearAOF, (Handle table), (table), table_of(table).clear_filter())
STAND_IN(AdsGetAOFOptLevel, (Handle table, U16* level, char* rest, U16* size), (table, level),
         give(level, filter_level(table_of(table)));
         if (rest != nullptr) give_text("", rest, size))

}  // namespace brenik::stand_in
