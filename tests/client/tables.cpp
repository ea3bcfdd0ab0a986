// Opening and closing tables, and what a table says of its fields.

#include <algorithm>
#include <utility>

#include "client/readings.h"
#include "client/stand_in.h"
#include "engine/record/table_path.h"
#include "util/runtime.h"

namespace brenik::stand_in {
namespace {

constexpr std::size_t kLongestAlias = 10;
enum : U16 { kCdx = 2, kVfp = 4 };
enum : U32 { kExclusive = 0x1, kReadOnlyOption = 0x2, kShared = 0x4, kAllOptions = 0xF };

// What AdsOpenTable is given.
struct OpenRequest {
    Handle connection;
    const char* path;
    const char* alias;
    U16 type;
    U16 characters;
    U16 locking;
    U16 rights;
    U32 options;

    bool asks_for(U32 option) const { return (options & option) != 0; }
};

void check(const OpenRequest& request) {
    require(process().server_types.has_value(), "a table is opened before a server type was set");
    require(request.type >= 1 && request.type <= kVfp, "an unknown table type");
    require(request.characters == kAnsi || request.characters == kOem, "an unknown character type");
    require(request.locking <= 1, "an unknown lock type");
    require(request.rights == 1 || request.rights == 2, "unknown rights");
    require(request.options <= kAllOptions, "unknown options");
    require(!request.asks_for(kExclusive) || !request.asks_for(kShared), "exclusive and shared");
}

std::string alias_argument(const char* text) {
    std::string alias = upper(text_argument(text, "the alias"));
    require(!alias.empty() && alias.size() <= kLongestAlias, "an alias has 1 to 10 characters");
    while (process().aliases.contains(alias)) {
        if (reads("alias_duplicate=refused")) fail(5051, "the alias is in use");
        alias += '\'';
    }
    return alias;
}

Handle open_table(const OpenRequest& request) {
    check(request);
    Connection& connection = process().connection(request.connection);
    ClientTable::Options own{alias_argument(request.alias), request.characters,
                             request.asks_for(kExclusive), request.asks_for(kReadOnlyOption)};
    local::LocalEngine& engine = *connection.engine;
    engine.set_proprietary_locking(connection.is_remote() && request.locking == 1);
    engine.set_read_only(own.read_only);
    const auto sharing = own.exclusive ? TableSharing::kExclusive : TableSharing::kShared;
    OpenAnswer answer = engine.open(text_argument(request.path, "the path"), sharing, 0);
    if (const auto* refusal = std::get_if<Refusal>(&answer)) {
        fail(status_of(*refusal), refusal->text);
    }
    auto& table = std::get<std::unique_ptr<Table>>(answer);
    const bool suits =
        request.type == kVfp || (request.type == kCdx && !table->layout().is_later_generation());
    if (!suits && reads("table_type=checked")) fail(kCorrupt, "the table is of another type");
    return process().add_table(connection, std::move(table), std::move(own)).handle();
}

const record::Field& field_of(Handle handle, const char* field) {
    const ClientTable& table = table_of(handle);
    return table.layout().fields[field_argument(table, field) - 1];
}

const record::Field& field_at(Handle handle, U16 position) {
    const std::vector<record::Field>& fields = table_of(handle).layout().fields;
    if (position == 0 || position > fields.size()) fail(5059, "no field has this position");
    return fields[position - 1U];
}

// The type codes of the client for the letters of a table's header.
U16 type_code(const record::Field& field) {
    constexpr std::pair<char, U16> kCodes[] = {
        {'L', 1}, {'N', 2}, {'F', 2},  {'D', 3},  {'C', 4},  {'M', 5},  {'G', 6},  {'W', 6},
        {'P', 7}, {'V', 8}, {'B', 10}, {'I', 11}, {'T', 14}, {'Q', 16}, {'Y', 18},
    };
    for (const auto& [letter, code] : kCodes) {
        if (letter == field.type) return code;
    }
    fail(kWrongType, "a field of an unknown type");
}

}  // namespace

Status status_of(const Refusal& refusal) {
    if (refusal.reason == RefusalReason::kHeld) return status_read("held_status");
    if (refusal.reason == RefusalReason::kMissing) return status_read("missing_status");
    if (refusal.reason == RefusalReason::kDamaged) return kCorrupt;
    return 7008;
}

ClientTable::ClientTable(Connection& connection, Handle handle, std::unique_ptr<Table> table,
                         Options options)
    : connection_(connection),
      handle_(handle),
      table_(std::move(table)),
      options_(std::move(options)) {
    known_count_ = table_->record_count();
    if (table_->opened_orders_automatically()) {
        list_orders(record::sibling_path(table_->path(), "CDX"));
    }
    if (reads("open_position=top")) arrive();
}

std::size_t field_argument(const ClientTable& table, const char* field) {
    const std::vector<record::Field>& fields = table.layout().fields;
    const auto position = reinterpret_cast<std::uintptr_t>(field);
    require(position != 0, "no field");
    if (position <= fields.size()) return position;
    if (is_position(field)) fail(5059, "no field has this position");
    const std::string name = upper(text_argument(field, "the field's name"));
    const auto found = std::ranges::find(fields, name, &record::Field::name);
    if (found == fields.end()) fail(5059, "no field " + name);
    return static_cast<std::size_t>(found - fields.begin()) + 1;
}

STAND_IN(AdsOpenTable,
         (Handle connection, const char* path, const char* alias, U16 type, U16 characters,
          U16 locking, U16 rights, U32 options, Handle* table),
         (connection, path, alias, type, characters, locking, rights, options, table),
         require(table != nullptr, "a pointer for a handle is null");
         give_handle(open_table({connection, path, alias, type, characters, locking, rights,
                                 options}),
                     table))
STAND_IN(AdsCloseTable, (Handle table), (table),
         process().close_table(process().table(table, Process::Lost::kAllowed)))
STAND_IN(AdsCacheRecords, (Handle table, U16 records), (table, records),
         table_of(table).set_read_ahead(records))
STAND_IN(AdsGetNumFields, (Handle table, U16* count), (table, count),
         give(count, table_of(table).layout().fields.size()))
STAND_IN(AdsGetFieldName, (Handle table, U16 field, char* name, U16* size), (table, field, size),
         give_text(field_at(table, field).name, name, size))
STAND_IN(AdsGetFieldType, (Handle table, const char* field, U16* type), (table, field, type),
         give(type, type_code(field_of(table, field))))
STAND_IN(AdsGetFieldLength, (Handle table, const char* field, U32* width), (table, field, width),
         give(width, field_of(table, field).width))
STAND_IN(AdsGetFieldDecimals, (Handle table, const char* field, U16* decimals),
         (table, field, decimals), give(decimals, field_of(table, field).decimals))

}  // namespace brenik::stand_in
