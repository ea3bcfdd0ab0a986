// Index files, orders and their keys, seeks, and filters.

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "client/readings.h"
#include "client/stand_in.h"
#include "engine/record/field_codec.h"
#include "util/runtime.h"

namespace brenik::stand_in {
namespace {

using expression::ResultType;
using index::KeyForm;

enum : U16 { kSoftSeek = 1, kHardSeek = 2, kAfterKey = 4 };
enum : U16 { kKeySetFilter = 4, kFixedFilter = 8, kAllFilterOptions = 15 };
constexpr std::size_t kDoubleLength = 8;

// -- Keys.

double double_of(std::uint64_t bits) {
    constexpr std::uint64_t kSign = std::uint64_t{1} << 63;
    return std::bit_cast<double>((bits & kSign) != 0 ? bits ^ kSign : ~bits);
}

// The value whose key has these bytes.
Value value_of_raw(const Order& order, std::string_view key) {
    if (order.format.null_prefix) {
        if (key.starts_with('\0')) return {};
        key.remove_prefix(std::min<std::size_t>(1, key.size()));
    }
    const index::KeyFormat& format = order.format;
    require(key.size() <= format.text_length(), "the key is longer than those of the order");
    if (format.form == KeyForm::kText) return key;
    require(key.size() == format.text_length(), "a part of a key that is not text");
    const Byte* bytes = reinterpret_cast<const Byte*>(key.data());
    if (format.form == KeyForm::kLogical) return key == "T";
    if (format.form == KeyForm::kInteger) {
        return std::int64_t{static_cast<I32>(load_be32(bytes) ^ 0x80000000U)};
    }
    const std::uint64_t bits = std::uint64_t{load_be32(bytes)} << 32 | load_be32(bytes + 4);
    if (format.form == KeyForm::kCurrency) {
        const auto units = static_cast<std::int64_t>(bits ^ std::uint64_t{1} << 63);
        return Number{static_cast<double>(units) / 10000};
    }
    const double number = double_of(bits);
    if (format.type == ResultType::kDate) return Date(static_cast<I32>(number));
    if (format.type == ResultType::kDateTime) return date_time_at(number);
    return Number{number};
}

Value value_of_text(const Order& order, std::string_view key) {
    switch (order.format.type) {
        case ResultType::kCharacter:
            return order.table->is_oem() ? Value(to_oem(key)) : Value(key);
        case ResultType::kDate:
            return parse_date(key);
        case ResultType::kLogical:
            return key == "T";
        case ResultType::kNumber:
            return numeric_value(key);
        default:
            fail(kWrongType, "not a key of this order's type");
    }
}

Value value_of_double(const Order& order, const void* key, U16 length) {
    require(length == kDoubleLength, "a double has 8 bytes");
    double number = 0;
    std::memcpy(&number, key, sizeof number);
    switch (order.format.type) {
        case ResultType::kNumber:
            return Number{number};
        case ResultType::kDate:
            return Date(static_cast<I32>(number));
        case ResultType::kDateTime:
            return date_time_at(number);
        default:
            fail(kWrongType, "not a key of this order's type");
    }
}

Value key_argument(const Order& order, const void* key, U16 length, U16 type) {
    require(key != nullptr || length == 0, "the key is null");
    const std::string_view bytes(static_cast<const char*>(key), length);
    if (type == kDoubleKey) return value_of_double(order, key, length);
    if (type == kStringKey) return value_of_text(order, bytes);
    require(type == kRawKey, "an unknown kind of key");
    const bool converts = order.table->is_oem() && order.format.form == KeyForm::kText &&
                          reads("oem_raw_key=converted");
    return converts ? value_of_raw(order, to_oem(bytes)) : value_of_raw(order, bytes);
}

// An empty key leads to the next record, or where the readings say.
void seek_empty(ClientTable& table, const Order& order, bool last, U16& found) {
    if (last) {
        table.go_bottom(order.number);
        if (reads("seek_last_empty=none") && table.has_record()) table.skip(&order, 1);
    } else if (reads("empty_seek=next")) {
        table.skip(&order, 1);
    } else {
        reads("empty_seek=top") ? table.go_top(order.number) : table.go_bottom(order.number);
        if (reads("empty_seek=none") && table.has_record()) table.skip(&order, 1);
    }
    found = table.has_record() ? 1 : 0;
}

struct SeekRequest {
    const void* key;
    U16 length;
    U16 type;
    U16 mode;
    bool last;
};

void seek(Handle handle, const SeekRequest& request, U16& found) {
    const Order& order = process().order(handle);
    ClientTable& table = *order.table;
    require(request.mode == kSoftSeek || request.mode == kHardSeek || request.mode == kAfterKey,
            "an unknown kind of seek");
    found = 0;
    if (request.length == 0) return seek_empty(table, order, request.last, found);
    const Value key = key_argument(order, request.key, request.length, request.type);
    const bool after = request.mode == kAfterKey;
    table.seek(order, key, request.mode != kHardSeek, request.last || after, found);
    if (after && std::exchange(found, U16{0}) != 0) table.skip(&order, 1);
}

U16 key_type(const Order& order) {
    switch (order.format.type) {
        case ResultType::kLogical:
            return 1;
        case ResultType::kNumber:
            return 2;
        case ResultType::kDate:
            return 3;
        case ResultType::kCharacter:
            return 4;
        default:
            return 14;
    }
}

std::string key_of_record(const Order& order) {
    ClientTable& table = *order.table;
    table.require_record();
    const record::RecordView record{table.image(), table.record_number()};
    const std::string& condition = order.description.condition;
    if (!condition.empty() &&
        !expression::Expression::compile(condition, table.layout()).is_true(record)) {
        fail(kNotFound, "the record has no key in the order");
    }
    std::vector<Byte> key(order.format.length);
    index::build_key(*order.key, order.format, record, key);
    return std::string(as_text(key));
}

// -- Index files.

void give_orders(const std::vector<Order*>& orders, void* handles, U16* count) {
    const std::size_t room = *count;
    *count = static_cast<U16>(orders.size());
    for (std::size_t i = 0; i < std::min(room, orders.size()); ++i) {
        give_handle(orders[i]->handle, handles, i);
    }
    if (room < orders.size()) fail(kShortBuffer, "the array is too small");
}

void open_index(Handle handle, const char* path, void* handles, U16* count) {
    ClientTable& table = process().table(handle);
    const std::string file(text_argument(path, "the path does not end in NUL"));
    require(!file.empty(), "no path");
    require(handles != nullptr || result_argument(count) == 0, "the array is null");
    if (!table.orders_of(file).empty()) {
        const bool fills = reads("already_open=fills");
        give_orders(fills ? table.orders_of(file) : std::vector<Order*>(), handles, count);
        fail(kIndexAlreadyOpen, "the index file is open");
    }
    if (const auto refusal = table.server().add_orders(file, 0)) {
        fail(stand_in::status_of(*refusal), refusal->text);
    }
    table.list_orders(file);
    give_orders(table.orders_of(file), handles, count);
}

std::string file_name(const Order& order, U16 option) {
    require(option >= 1 && option <= 3, "an unknown form of a file name");
    std::string name = order.file;
    if (option == 3 && reads("index_filename=full")) return name;
    name = name.substr(name.find_last_of("/\\:") + 1);
    return option == 1 ? name.substr(0, name.find('.')) : name;
}

// With exact comparisons, "=" compares as "==" does.
std::string with_exact_comparisons(const std::string& text) {
    std::string exact;
    char quote = '\0';
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        exact += c;
        if (quote != '\0' ? c == quote : c == '"' || c == '\'') quote = quote == '\0' ? c : '\0';
        const bool alone = c == '=' && quote == '\0' &&
                           (i == 0 || !std::strchr("<>!=", text[i - 1])) &&
                           text.compare(i + 1, 1, "=") != 0;
        if (alone) exact += '=';
    }
    return exact;
}

}  // namespace

// -- The orders of a table.

std::vector<Order*> ClientTable::orders_of(const std::string& file) {
    std::vector<Order*> found;
    for (const std::size_t number : table_->orders_of(file)) {
        found.push_back(orders_[number - 1].get());
    }
    return found;
}

// Makes the orders that the server has attached from this file known to the client.
void ClientTable::list_orders(const std::string& file) {
    for (const std::size_t number : table_->orders_of(file)) {
        auto order = std::make_unique<Order>();
        order->table = this;
        order->number = number;
        order->file = file;
        order->description = table_->order_description(number);
        const OrderDescription& tag = order->description;
        order->key = expression::Expression::compile(tag.key, layout());
        const bool nullable = index::natural_key_format(*order->key, tag.candidate).null_prefix;
        order->format = index::existing_key_format(*order->key, tag.key_length, nullable);
        process().add_order(*order);
        orders_.push_back(std::move(order));
    }
}

// Closes one file or, without a name, all but the structural one. The other orders move down.
void ClientTable::close_index_files(const std::optional<std::string>& file) {
    flush();
    drop_ahead();
    const std::string structural = table_->opened_orders_automatically() && !orders_.empty()
                                       ? orders_.front()->file
                                       : std::string();
    if (file && *file == structural) fail(kBadArgument, "the structural index cannot be closed");
    table_->clear_orders();
    std::vector<std::unique_ptr<Order>> kept;
    std::string attached;
    for (std::unique_ptr<Order>& order : orders_) {
        if (order->file != structural && (!file || order->file == *file)) {
            process().forget(order->handle, "its index file was closed");
            continue;
        }
        if (std::exchange(attached, order->file) != order->file) {
            if (const auto refusal = table_->add_orders(order->file, 0)) {
                fail(stand_in::status_of(*refusal), refusal->text);
            }
        }
        kept.push_back(std::move(order));
        kept.back()->number = kept.size();
    }
    orders_ = std::move(kept);
}

// -- Filters.

std::set<U32> ClientTable::matching_records(const expression::Expression& condition) {
    std::set<U32> found;
    server_elsewhere_ = true;
    table_->set_filter({}, {});
    table_->set_order(0);
    for (U32 record = 1; record <= table_->record_count(); ++record) {
        table_->go_to(record);
        if (condition.is_true(table_->record())) found.insert(record);
    }
    return found;
}

void ClientTable::apply_filters() {
    drop_ahead();
    if (!filter && !optimised_filter) return table_->set_filter({}, {});
    const auto passes = [](const std::optional<RecordFilter>& one,
                           const record::RecordView& record) {
        if (!one) return true;
        return one->records ? one->records->contains(record.number)
                            : one->expression.is_true(record);
    };
    table_->set_filter(
        [this, passes](const record::RecordView& record) {
            return passes(filter, record) && passes(optimised_filter, record);
        },
        {});
}

void ClientTable::set_filter(std::optional<RecordFilter> ClientTable::*filter_kind,
                             const std::string& text, bool fixed) {
    flush();
    const std::string own = is_oem() ? to_oem(text) : text;
    try {
        expression::Expression condition = expression::Expression::compile(
            process().exact ? with_exact_comparisons(own) : own, layout(), options_.alias);
        if (condition.type() != ResultType::kLogical) fail(kBadArgument, "not a condition");
        this->*filter_kind = RecordFilter{std::move(condition), {}};
    } catch (const expression::ExpressionError& error) {
        fail(kBadArgument, error.what());
    }
    if (fixed) (this->*filter_kind)->records = matching_records((this->*filter_kind)->expression);
    apply_filters();
}

void ClientTable::refresh_filter(std::optional<RecordFilter> ClientTable::*filter_kind) {
    std::optional<RecordFilter>& one = this->*filter_kind;
    if (!one) fail(kNoFilter, "no filter is set");
    if (one->records) one->records = matching_records(one->expression);
    apply_filters();
}

void ClientTable::clear_filter(std::optional<RecordFilter> ClientTable::*filter_kind) {
    if (!(this->*filter_kind)) fail(kNoFilter, "no filter is set");
    flush();
    (this->*filter_kind).reset();
    apply_filters();
}

// -- Exports.

STAND_IN_FUNCTION(Status) AdsOpenIndex(Handle table, const char* path, void* orders, U16* count) {
    return call(
        "AdsOpenIndex", [&] { open_index(table, path, orders, count); }, given(table), path,
        HandleResult{orders, count});
}

STAND_IN_FUNCTION(Status) AdsCloseIndex(Handle handle) {
    const auto close = [&] {
        const Order& order = process().order(handle);
        order.table->close_index_files(order.file);
    };
    return call("AdsCloseIndex", close, given(handle));
}

STAND_IN_FUNCTION(Status) AdsCloseAllIndexes(Handle table) {
    return call(
        "AdsCloseAllIndexes", [&] { process().table(table).close_index_files({}); }, given(table));
}

STAND_IN_FUNCTION(Status) AdsGetNumIndexes(Handle table, U16* count) {
    const auto get = [&] {
        result_argument(count) = static_cast<U16>(process().table(table).orders().size());
    };
    return call("AdsGetNumIndexes", get, given(table), static_cast<const U16*>(count));
}

STAND_IN_FUNCTION(Status) AdsGetIndexHandleByOrder(Handle table, U16 number, void* order) {
    const auto get = [&] {
        const auto& orders = process().table(table).orders();
        if (number == 0 || number > orders.size()) fail(kNotFound, "no order has this number");
        give_handle(orders[number - 1U]->handle, order);
    };
    return call("AdsGetIndexHandleByOrder", get, given(table), number, HandleResult{order});
}

STAND_IN_FUNCTION(Status) AdsGetIndexName(Handle order, char* name, U16* size) {
    return call(
        "AdsGetIndexName", [&] { give_text(process().order(order).description.name, name, size); },
        given(order), static_cast<const U16*>(size));
}

STAND_IN_FUNCTION(Status) AdsGetIndexFilename(Handle order, U16 option, char* name, U16* size) {
    return call(
        "AdsGetIndexFilename",
        [&] { give_text(file_name(process().order(order), option), name, size); }, given(order),
        option, static_cast<const U16*>(size));
}

STAND_IN_FUNCTION(Status) AdsGetIndexExpr(Handle order, char* expression, U16* size) {
    return call(
        "AdsGetIndexExpr",
        [&] { give_text(process().order(order).description.key, expression, size); }, given(order),
        static_cast<const U16*>(size));
}

STAND_IN_FUNCTION(Status) AdsGetIndexCondition(Handle order, char* expression, U16* size) {
    return call(
        "AdsGetIndexCondition",
        [&] { give_text(process().order(order).description.condition, expression, size); },
        given(order), static_cast<const U16*>(size));
}

STAND_IN_FUNCTION(Status) AdsIsIndexUnique(Handle order, U16* is) {
    const auto get = [&] {
        const OrderDescription& tag = process().order(order).description;
        const bool unique = tag.unique || (tag.candidate && reads("candidate=unique"));
        result_argument(is) = unique ? 1 : 0;
    };
    return call("AdsIsIndexUnique", get, given(order), static_cast<const U16*>(is));
}

STAND_IN_FUNCTION(Status) AdsIsIndexDescending(Handle order, U16* is) {
    const auto get = [&] {
        result_argument(is) = process().order(order).description.descending ? 1 : 0;
    };
    return call("AdsIsIndexDescending", get, given(order), static_cast<const U16*>(is));
}

STAND_IN_FUNCTION(Status) AdsIsIndexCustom(Handle order, U16* is) {
    const auto get = [&] {
        result_argument(is) = process().order(order).description.custom ? 1 : 0;
    };
    return call("AdsIsIndexCustom", get, given(order), static_cast<const U16*>(is));
}

STAND_IN_FUNCTION(Status) AdsGetKeyType(Handle order, U16* type) {
    return call(
        "AdsGetKeyType", [&] { result_argument(type) = key_type(process().order(order)); },
        given(order), static_cast<const U16*>(type));
}

STAND_IN_FUNCTION(Status) AdsGetKeyLength(Handle order, U16* length) {
    const auto get = [&] {
        result_argument(length) = static_cast<U16>(process().order(order).format.length);
    };
    return call("AdsGetKeyLength", get, given(order), static_cast<const U16*>(length));
}

STAND_IN_FUNCTION(Status) AdsExtractKey(Handle order, void* key, U16* size) {
    return call(
        "AdsExtractKey", [&] { give_data(key_of_record(process().order(order)), key, size); },
        given(order), static_cast<const U16*>(size));
}

STAND_IN_FUNCTION(Status)
AdsSeek(Handle order, const void* key, U16 length, U16 type, U16 mode, U16* found) {
    return call(
        "AdsSeek",
        [&] {
            seek(order, {key, length, type, mode, false}, result_argument(found));
        },
        given(order), length, type, mode, static_cast<const U16*>(found));
}

STAND_IN_FUNCTION(Status)
AdsSeekLast(Handle order, const void* key, U16 length, U16 type, U16* found) {
    return call(
        "AdsSeekLast",
        [&] {
            seek(order, {key, length, type, kHardSeek, true}, result_argument(found));
        },
        given(order), length, type, static_cast<const U16*>(found));
}

// Only a remote server keeps a filter up to date while others change records.
STAND_IN_FUNCTION(Status) AdsSetAOF(Handle handle, const char* text, U16 options) {
    const auto set = [&] {
        ClientTable& table = process().table(handle);
        const std::string filter(text_argument(text, "the filter does not end in NUL"));
        require(options <= kAllFilterOptions, "unknown options of a filter");
        if (reads("aof=refused")) fail(kBadArgument, "the filter is refused");
        const bool fixed =
            !table.connection().is_remote() || (options & (kKeySetFilter | kFixedFilter)) != 0;
        table.set_filter(&ClientTable::optimised_filter, filter, fixed);
    };
    return call("AdsSetAOF", set, given(handle), text, options);
}

STAND_IN_FUNCTION(Status) AdsRefreshAOF(Handle table) {
    const auto refresh = [&] {
        process().table(table).refresh_filter(&ClientTable::optimised_filter);
    };
    return call("AdsRefreshAOF", refresh, given(table));
}

STAND_IN_FUNCTION(Status) AdsClearAOF(Handle table) {
    const auto clear = [&] { process().table(table).clear_filter(&ClientTable::optimised_filter); };
    return call("AdsClearAOF", clear, given(table));
}

STAND_IN_FUNCTION(Status) AdsGetAOFOptLevel(Handle handle, U16* level, char* rest, U16* size) {
    const auto get = [&] {
        constexpr U16 kFull = 1;
        constexpr U16 kPart = 2;
        constexpr U16 kNone = 3;
        const bool set = process().table(handle).optimised_filter.has_value();
        const bool none = !set || reads("aof_level=none");
        result_argument(level) = none ? kNone : reads("aof_level=full") ? kFull : kPart;
        if (rest != nullptr) give_text("", rest, size);
    };
    return call("AdsGetAOFOptLevel", get, given(handle), static_cast<const U16*>(level));
}

STAND_IN_FUNCTION(Status) AdsSetFilter(Handle table, const char* text) {
    const auto set = [&] {
        process().table(table).set_filter(
            &ClientTable::filter,
            std::string(text_argument(text, "the filter does not end in NUL")),
            reads("filter_refresh=stale"));
    };
    return call("AdsSetFilter", set, given(table), text);
}

STAND_IN_FUNCTION(Status) AdsClearFilter(Handle table) {
    const auto clear = [&] { process().table(table).clear_filter(&ClientTable::filter); };
    return call("AdsClearFilter", clear, given(table));
}

}  // namespace brenik::stand_in
