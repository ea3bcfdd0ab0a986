// Handles, connections and the settings of the process.

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "client/readings.h"
#include "client/stand_in.h"

namespace brenik::stand_in {
namespace {

constexpr U16 kAllTypes = kLocalServer | kRemoteServer | kInternetServer;

void require_flag(U16 flag) { require(flag <= 1, "a logical argument is neither 0 nor 1"); }

// The first of the servers that answers, in the order in which they are tried.
U16 answering(U16 types) {
    require(types != 0 && (types & ~kAllTypes) == 0, "an unknown server type");
    if (process().server_is_lost) return 0;
    for (const U16 type : {kRemoteServer, kInternetServer, kLocalServer}) {
        if ((types & type & process().servers) != 0) return type;
    }
    return 0;
}

void give_connection(const char* path, U16 types, void* handle) {
    require(!text_argument(path, "the server's path does not end in NUL").empty(), "no path");
    result_argument(static_cast<char*>(handle));
    give_handle(process().connect(types).handle, handle);
}

void set_server_type(U16 types) {
    require(types != 0 && (types & ~kAllTypes) == 0, "an unknown server type");
    process().server_types = types;
}

U16 loaded(const char* path) {
    text_argument(path, "the server's path does not end in NUL");
    if (reads("server_loaded=fails")) fail(kNoDriveConnection, "no server was asked");
    const U16 remote = answering(kRemoteServer);
    if (reads("server_loaded=types")) return remote != 0 ? remote : answering(kLocalServer);
    return remote != 0 ? 1 : 0;
}

void set_date_format(const char* format) {
    const std::string_view text = text_argument(format, "the date format does not end in NUL");
    const auto has = [&](const char* part) { return text.find(part) != std::string_view::npos; };
    const bool separated = text.find_first_of("/-.") != std::string_view::npos;
    if (!has("YY") || !has("MM") || !has("DD") || (!separated && reads("date_format=separated"))) {
        fail(kBadArgument, "not a date format");
    }
    process().date_format = text;
}

}  // namespace

// -- Objects and their handles.

Process& process() {
    static Process& the_process = *new Process;
    return the_process;
}

// Numbers that nobody guesses, each given once, and no more than 32 bits wide.
Handle Process::new_handle(const Entry& entry) {
    constexpr U32 kStride = 0x9E3779B1;
    if (last_handle_ == 0) last_handle_ = static_cast<U32>(getpid()) * kStride;
    do {
        last_handle_ += kStride;
    } while (last_handle_ == 0);
    objects_[last_handle_] = entry;
    return last_handle_;
}

const Process::Entry& Process::entry(Handle handle, Status status, const char* wanted) {
    const auto found = objects_.find(static_cast<U32>(handle));
    const bool whole =
        found != objects_.end() && (handle == found->first || reads("handle_width=four"));
    if (whole) return found->second;
    const auto gone = dead_.find(handle);
    violate(status, std::string("a stale or foreign handle instead of ") + wanted +
                        (gone == dead_.end() ? "" : std::string(" (") + gone->second + ")"));
}

void Process::forget(Handle handle, const char* what) {
    objects_.erase(handle);
    dead_[handle] = what;
}

Connection& Process::connection(Handle handle) {
    Connection* found = entry(handle, kNoConnection, "a connection's").connection;
    if (found == nullptr) violate(kNoConnection, "not a connection's handle");
    if (found->lost) fail(kServerLost, "the server was lost");
    return *found;
}

Process::Object Process::object(Handle handle) {
    const Entry& known = entry(handle, kBadHandle, "a table's or an order's");
    ClientTable* owner = known.order != nullptr ? known.order->table : known.table;
    if (owner == nullptr) violate(kBadHandle, "not a table's or an order's handle");
    if (owner->connection().lost) fail(kServerLost, "the server was lost");
    owner->connection().engine->begin_call();
    return {owner, known.order};
}

ClientTable& Process::table(Handle handle) {
    const Object known = object(handle);
    if (known.order != nullptr) violate(kBadTableHandle, "an order's handle instead of a table's");
    return *known.table;
}

Order& Process::order(Handle handle) {
    static_cast<void>(object(handle));
    Order* known = entry(handle, kBadOrderHandle, "an order's").order;
    if (known == nullptr) violate(kBadOrderHandle, "a table's handle instead of an order's");
    return *known;
}

Connection& Process::connect(U16 types) {
    const U16 type = answering(types);
    if (type == 0) fail(kNoDriveConnection, "no server answers for this path");
    auto made = std::make_unique<Connection>();
    Connection& connection = *made;
    connection.type = type;
    connection.handle = new_handle({.connection = &connection});
    connection.engine->set_deleted_hidden(!shows_deleted);
    connections[connection.handle] = std::move(made);
    return connection;
}

void Process::disconnect(Connection& connection) {
    const bool lost = connection.lost;
    std::optional<Failure> failure;
    while (!connection.tables.empty()) {
        try {
            close_table(*connection.tables.begin()->second);
        } catch (const Failure& reason) {
            failure = reason;
        }
    }
    forget(connection.handle, "its connection was closed");
    connections.erase(connection.handle);
    if (lost) fail(kServerLost, "the server was lost");
    if (failure) throw Failure(*failure);
}

ClientTable& Process::add_table(Connection& connection, std::unique_ptr<Table> table,
                                ClientTable::Options options) {
    const Handle handle = new_handle({});
    auto made =
        std::make_unique<ClientTable>(connection, handle, std::move(table), std::move(options));
    ClientTable& added = *made;
    objects_[handle].table = &added;
    aliases.insert(added.alias());
    connection.tables[handle] = std::move(made);
    return added;
}

// The handle is gone, whatever becomes of the last write.
void Process::close_table(ClientTable& table) {
    struct Closing {
        Process& process;
        ClientTable& table;
        ~Closing() {
            for (const auto& order : table.orders())
                process.forget(order->handle, "its table was closed");
            process.forget(table.handle(), "the table was closed");
            process.aliases.erase(table.alias());
            table.connection().tables.erase(table.handle());
        }
    };
    const Closing closing{*this, table};
    if (table.connection().lost) fail(kServerLost, "the server was lost");
    table.flush();
}

void Process::add_order(Order& order) { order.handle = new_handle({.order = &order}); }

// The server's side is gone, files and locks included. The handles stay until they are closed.
void Process::lose_server() {
    for (const auto& [handle, connection] : connections) {
        connection->lost = true;
        connection->engine->close_all_tables();
    }
}

void Process::show_deleted(bool show) {
    shows_deleted = show;
    for (const auto& [handle, connection] : connections) {
        connection->engine->set_deleted_hidden(!show);
    }
}

// -- Exports.

STAND_IN_FUNCTION(Status) AdsSetServerType(U16 types) {
    return call(
        "AdsSetServerType", [&] { set_server_type(types); }, types);
}

STAND_IN_FUNCTION(Status) AdsIsServerLoaded(const char* path, U16* answer) {
    return call(
        "AdsIsServerLoaded", [&] { result_argument(answer) = loaded(path); }, path, answer);
}

STAND_IN_FUNCTION(Status) AdsConnect(const char* path, void* handle) {
    const auto connect = [&] {
        require(process().server_types.has_value(), "no server type was set");
        give_connection(path, *process().server_types, handle);
    };
    return call("AdsConnect", connect, path, HandleResult{handle});
}

STAND_IN_FUNCTION(Status) AdsConnect26(const char* path, U16 types, void* handle) {
    return call(
        "AdsConnect26", [&] { give_connection(path, types, handle); }, path, types,
        HandleResult{handle});
}

STAND_IN_FUNCTION(Status)
AdsConnect60(const char* path, U16 types, const char* user, const char* password, U32 options,
             void* handle) {
    const auto connect = [&] {
        require(options == 0, "unknown options");
        if (user != nullptr) fail(kDictionary, "a user needs a data dictionary");
        require(password == nullptr, "a password without a user");
        give_connection(path, types, handle);
    };
    return call("AdsConnect60", connect, path, types, HandleResult{handle});
}

STAND_IN_FUNCTION(Status) AdsDisconnect(Handle handle) {
    const auto disconnect = [&] {
        if (handle == 0) violate(kNoConnection, "closes the connections of the whole process");
        const auto known = process().connections.find(handle);  // a lost one, too
        if (known != process().connections.end()) return process().disconnect(*known->second);
        static_cast<void>(process().connection(handle));
    };
    return call("AdsDisconnect", disconnect, given(handle));
}

STAND_IN_FUNCTION(Status) AdsGetLastError(U32* code, char* text, U16* size) {
    const Failure error = record_of_calls().last_error;
    const auto give = [&] {
        result_argument(code) = error.status;
        give_text(error.text, text, size);
    };
    return call("AdsGetLastError", give, static_cast<const U32*>(code));
}

STAND_IN_FUNCTION(Status) AdsShowDeleted(U16 show) {
    const auto set = [&] {
        require_flag(show);
        process().show_deleted(show != 0);
    };
    return call("AdsShowDeleted", set, show);
}

STAND_IN_FUNCTION(Status) AdsGetDeleted(U16* answer) {
    const auto get = [&] {
        const bool shown = process().shows_deleted;
        result_argument(answer) = shown == reads("deleted_polarity=shown") ? 1 : 0;
    };
    return call("AdsGetDeleted", get, static_cast<const U16*>(answer));
}

STAND_IN_FUNCTION(Status) AdsSetExact(U16 exact) {
    const auto set = [&] {
        require_flag(exact);
        process().exact = exact != 0;
    };
    return call("AdsSetExact", set, exact);
}

STAND_IN_FUNCTION(Status) AdsGetExact(U16* answer) {
    const auto get = [&] { result_argument(answer) = process().exact ? 1 : 0; };
    return call("AdsGetExact", get, static_cast<const U16*>(answer));
}

STAND_IN_FUNCTION(Status) AdsSetDateFormat(const char* format) {
    return call(
        "AdsSetDateFormat", [&] { set_date_format(format); }, format);
}

STAND_IN_FUNCTION(Status) AdsGetDateFormat(char* format, U16* size) {
    return call(
        "AdsGetDateFormat", [&] { give_text(process().date_format, format, size); },
        static_cast<const U16*>(size));
}

STAND_IN_FUNCTION(Status) AdsSetEpoch(U16 epoch) {
    return call(
        "AdsSetEpoch", [&] { process().epoch = epoch; }, epoch);
}

// -- Functions that a library within another program must not call: they end what the program
// itself has open, show a window, or move other tables.

STAND_IN_FUNCTION(Status) AdsApplicationExit() {
    return call("AdsApplicationExit", [] { violate(kBadArgument, "closes the whole process"); });
}

STAND_IN_FUNCTION(Status) AdsCloseAllTables() {
    return call("AdsCloseAllTables", [] { violate(kBadArgument, "closes the whole process"); });
}

STAND_IN_FUNCTION(Status) AdsShowError(const char* title) {
    return call(
        "AdsShowError", [] { violate(kBadArgument, "shows a window"); }, title);
}

STAND_IN_FUNCTION(Status) AdsSetRelation(Handle parent, Handle child, const char* text) {
    return call(
        "AdsSetRelation", [] { violate(kBadArgument, "moves another table"); }, given(parent),
        given(child), text);
}

STAND_IN_FUNCTION(Status) AdsSetScopedRelation(Handle parent, Handle child, const char* text) {
    return call(
        "AdsSetScopedRelation", [] { violate(kBadArgument, "moves another table"); }, given(parent),
        given(child), text);
}

}  // namespace brenik::stand_in
