// Opening and closing tables, and what a table says of itself.

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
enum : U32 { kExclusive = 0x1, kReadOnlyOption = 0x2, kShared = 0x4, kOldMemos = 0x8 };

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
};

void check(const OpenRequest& request) {
    require(process().server_types.has_value(), "a table is opened before a server type was set");
    require(!text_argument(request.path, "the path does not end in NUL").empty(), "no path");
    require(request.type >= 1 && request.type <= 4, "an unknown table type");
    require(request.characters == kAnsi || request.characters == kOem, "an unknown character type");
    require(request.locking <= 1, "an unknown lock type");
    require(request.rights == 1 || request.rights == 2, "unknown rights");
    require(request.options <= 0xF, "unknown options");
    require((request.options & kExclusive) == 0 || (request.options & kShared) == 0,
            "exclusive and shared at once");
}

std::string alias_of(const OpenRequest& request) {
    std::string alias;
    if (request.alias != nullptr) {
        alias = text_argument(request.alias, "the alias does not end in NUL");
        require(!alias.empty() && alias.size() <= kLongestAlias, "an alias has 1 to 10 characters");
    } else {
        const std::string path = request.path;
        const std::size_t slash = path.find_last_of("/\\:");
        alias = path.substr(slash == std::string::npos ? 0 : slash + 1);
        alias = alias.substr(0, alias.find('.'));
    }
    alias = upper(alias);
    while (process().aliases.contains(alias)) {
        if (reads("alias_duplicate=refused")) fail(kDuplicateAlias, "the alias is in use");
        alias += '\'';
    }
    return alias;
}

Connection& connection_for(Handle handle) {
    if (handle != 0) return process().connection(handle);
    for (const auto& [known, connection] : process().connections) {
        if (!connection->lost && (connection->type & *process().server_types) != 0) {
            return *connection;
        }
    }
    return process().connect(*process().server_types);
}

void check_type(const Table& table, U16 type) {
    if (reads("table_type=ignored")) return;
    const bool later = table.layout().is_later_generation();
    if (type != kVfp && (type != kCdx || later)) fail(kCorrupt, "the table is of another type");
}

Handle open_table(const OpenRequest& request) {
    check(request);
    Connection& connection = connection_for(request.connection);
    ClientTable::Options options{alias_of(request), request.characters,
                                 (request.options & kExclusive) != 0,
                                 (request.options & kReadOnlyOption) != 0};
    local::LocalEngine& engine = *connection.engine;
    engine.set_proprietary_locking(connection.is_remote() && request.locking == 1);
    engine.set_read_only(options.read_only);
    OpenAnswer answer = engine.open(
        request.path, options.exclusive ? TableSharing::kExclusive : TableSharing::kShared, 0);
    if (const auto* refusal = std::get_if<Refusal>(&answer)) {
        fail(status_of(*refusal), refusal->text);
    }
    auto& table = std::get<std::unique_ptr<Table>>(answer);
    check_type(*table, request.type);
    return process().add_table(connection, std::move(table), std::move(options)).handle();
}

const FieldDescription& field_of(Handle handle, const char* field) {
    const ClientTable& table = process().table(handle);
    return table.fields()[field_argument(table, field) - 1];
}

// The type codes of the client for the letters of a table's header.
U16 type_code(const FieldDescription& field) {
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
    switch (refusal.reason) {
        case RefusalReason::kHeld:
            return status_read("held_status");
        case RefusalReason::kMissing:
            return status_read("missing_status");
        case RefusalReason::kDamaged:
            return kCorrupt;
        default:
            return kCannotOpen;
    }
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

ClientTable::~ClientTable() = default;

void ClientTable::require_writable() const {
    if (options_.read_only) fail(kReadOnly, "the table was opened for reading");
}

std::size_t field_argument(const ClientTable& table, const char* field) {
    constexpr std::uintptr_t kLowestPointer = 0x10000;
    const std::vector<record::Field>& fields = table.layout().fields;
    const auto position = reinterpret_cast<std::uintptr_t>(field);
    require(field != nullptr, "no field");
    if (position < kLowestPointer) {
        if (position > fields.size()) fail(kUnknownField, "no field has this position");
        return position;
    }
    const std::string name = upper(text_argument(field, "a field's name does not end in NUL"));
    const auto found = std::ranges::find(fields, name, &record::Field::name);
    if (found == fields.end()) fail(kUnknownField, "no field " + name);
    return static_cast<std::size_t>(found - fields.begin()) + 1;
}

STAND_IN_FUNCTION(Status)
AdsOpenTable(Handle connection, const char* path, const char* alias, U16 type, U16 characters,
             U16 locking, U16 rights, U32 options, void* table) {
    const auto open = [&] {
        require(table != nullptr, "a pointer for a handle is null");
        give_handle(
            open_table({connection, path, alias, type, characters, locking, rights, options}),
            table);
    };
    return call("AdsOpenTable", open, given(connection), path, alias, type, characters, locking,
                rights, options, HandleResult{table});
}

// The handle of a lost server's table can be closed, too.
STAND_IN_FUNCTION(Status) AdsCloseTable(Handle handle) {
    const auto close = [&] {
        for (const auto& [number, connection] : process().connections) {
            const auto found = connection->tables.find(handle);
            if (found != connection->tables.end()) return process().close_table(*found->second);
        }
        static_cast<void>(process().table(handle));
    };
    return call("AdsCloseTable", close, given(handle));
}

STAND_IN_FUNCTION(Status) AdsCacheRecords(Handle table, U16 records) {
    return call(
        "AdsCacheRecords", [&] { process().table(table).set_read_ahead(records); }, given(table),
        records);
}

STAND_IN_FUNCTION(Status) AdsGetNumFields(Handle table, U16* count) {
    const auto get = [&] {
        result_argument(count) = static_cast<U16>(process().table(table).fields().size());
    };
    return call("AdsGetNumFields", get, given(table), static_cast<const U16*>(count));
}

STAND_IN_FUNCTION(Status) AdsGetFieldName(Handle table, U16 field, char* name, U16* size) {
    const auto get = [&] {
        const auto* position = reinterpret_cast<const char*>(static_cast<std::uintptr_t>(field));
        give_text(field_of(table, position).name, name, size);
    };
    return call("AdsGetFieldName", get, given(table), field, static_cast<const U16*>(size));
}

STAND_IN_FUNCTION(Status) AdsGetFieldType(Handle table, const char* field, U16* type) {
    const auto get = [&] { result_argument(type) = type_code(field_of(table, field)); };
    return call("AdsGetFieldType", get, given(table), FieldArgument{field},
                static_cast<const U16*>(type));
}

STAND_IN_FUNCTION(Status) AdsGetFieldLength(Handle table, const char* field, U32* width) {
    const auto get = [&] {
        result_argument(width) = static_cast<U32>(field_of(table, field).width);
    };
    return call("AdsGetFieldLength", get, given(table), FieldArgument{field},
                static_cast<const U32*>(width));
}

STAND_IN_FUNCTION(Status) AdsGetFieldDecimals(Handle table, const char* field, U16* decimals) {
    const auto get = [&] {
        result_argument(decimals) = static_cast<U16>(field_of(table, field).decimals);
    };
    return call("AdsGetFieldDecimals", get, given(table), FieldArgument{field},
                static_cast<const U16*>(decimals));
}

}  // namespace brenik::stand_in
