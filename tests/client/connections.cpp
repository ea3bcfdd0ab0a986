// Handles, connections, and the settings of the process.

#include <unistd.h>

#include <utility>

#include "client/readings.h"
#include "client/stand_in.h"

namespace brenik::stand_in {
namespace {

constexpr U16 kAllTypes = kLocalServer | kRemoteServer | kInternetServer;

// The first of the servers that answers, in the order in which they are tried; 0 for none.
U16 answering(U16 types) {
    for (const U16 type : {kRemoteServer, kInternetServer, kLocalServer}) {
        if (!process().server_is_lost && (types & type & process().servers) != 0) return type;
    }
    return 0;
}

void require_types(U16 types) {
    require((types & ~kAllTypes) == 0, "an unknown server type");
    if (types == 0) fail(kBadArgument, "no server type");
}

bool flag(U16 value) {
    require(value <= 1, "a logical argument is neither 0 nor 1");
    return value != 0;
}

void give_connection(const char* path, U16 types, void* handle) {
    require(!text_argument(path, "the server's path").empty(), "no path");
    require(handle != nullptr, "a pointer for a handle is null");
    require_types(types);
    give_handle(process().connect(types).handle, handle);
}

void connect_as(const char* user, const char* password, U32 options) {
    require(options == 0, "unknown options");
    if (user != nullptr) fail(7077, "a user needs a data dictionary");
    require(password == nullptr, "a password without a user");
}

void disconnect(Handle handle) {
    if (handle == 0) violate(kNoConnection, "closes the connections of the whole process");
    process().disconnect(process().connection(handle, Process::Lost::kAllowed));
}

U16 loaded(const char* path) {
    text_argument(path, "the server's path");
    if (reads("server_loaded=fails")) fail(5033, "no server was asked");
    const U16 remote = answering(kRemoteServer);
    if (reads("server_loaded=types")) return remote != 0 ? remote : answering(kLocalServer);
    return remote != 0 ? 1 : 0;
}

void set_date_format(const char* format) {
    const std::string text = text_argument(format, "the date format");
    const auto has = [&](const char* part) { return text.find(part) != std::string::npos; };
    const bool separated = text.find_first_of("/-.") != std::string::npos;
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

// Numbers that nobody guesses, each given once, and no wider than 32 bits.
Handle Process::add(const Entry& entry) {
    constexpr U32 kStride = 0x9E3779B1;
    if (last_handle_ == 0) last_handle_ = static_cast<U32>(getpid()) * kStride;
    do {
        last_handle_ += kStride;
    } while (last_handle_ == 0);
    objects_[last_handle_] = entry;
    return last_handle_;
}

Process::Entry& Process::entry(Handle handle, Status status, const char* wanted) {
    const Handle own = reads("handle_width=four") ? static_cast<U32>(handle) : handle;
    const auto found = objects_.find(own);
    if (found != objects_.end()) return found->second;
    const auto gone = dead_.find(own);
    violate(status, std::string("a stale or foreign handle instead of ") + wanted +
                        (gone == dead_.end() ? "" : std::string(" (") + gone->second + ")"));
}

void Process::forget(Handle handle, const char* what) {
    objects_.erase(handle);
    dead_[handle] = what;
}

Connection& Process::connection(Handle handle, Lost lost) {
    Connection* found = entry(handle, kNoConnection, "a connection's").connection;
    if (found == nullptr) violate(kNoConnection, "not a connection's handle");
    if (found->lost && lost == Lost::kRefused) fail(kServerLost, "the server was lost");
    return *found;
}

Process::Object Process::object(Handle handle, Lost lost) {
    const Entry& known = entry(handle, 5018, "a table's or an order's");
    ClientTable* owner = known.order != nullptr ? known.order->table : known.table;
    if (owner == nullptr) violate(5018, "not a table's or an order's handle");
    if (owner->connection().lost && lost == Lost::kRefused) {
        fail(kServerLost, "the server was lost");
    }
    owner->connection().engine->begin_call();
    return {owner, known.order};
}

ClientTable& Process::table(Handle handle, Lost lost) {
    const Object known = object(handle, lost);
    if (known.order != nullptr) violate(5023, "an order's handle instead of a table's");
    return *known.table;
}

Order& Process::order(Handle handle) {
    static_cast<void>(object(handle));
    Order* known = entry(handle, 5014, "an order's").order;
    if (known == nullptr) violate(5014, "a table's handle instead of an order's");
    return *known;
}

Connection& Process::connect(U16 types) {
    const U16 type = answering(types);
    if (type == 0) fail(5033, "no server answers for this path");
    auto made = std::make_unique<Connection>();
    made->type = type;
    made->handle = add({.connection = made.get()});
    made->engine->set_deleted_hidden(!shows_deleted);
    return *(connections[made->handle] = std::move(made));
}

void Process::disconnect(Connection& connection) {
    Failure failure;
    while (!connection.tables.empty()) {
        try {
            close_table(*connection.tables.begin()->second);
        } catch (...) {
            status_of_exception();
            failure = record_of_calls().last_error;
        }
    }
    if (connection.lost) failure = {kServerLost, "the server was lost"};
    forget(connection.handle, "its connection was closed");
    connections.erase(connection.handle);
    if (failure.status != kSuccess) throw Failure(failure);
}

ClientTable& Process::add_table(Connection& connection, std::unique_ptr<Table> table,
                                ClientTable::Options options) {
    const Handle handle = add({});
    auto made =
        std::make_unique<ClientTable>(connection, handle, std::move(table), std::move(options));
    objects_[handle].table = made.get();
    aliases.insert(made->alias());
    return *(connection.tables[handle] = std::move(made));
}

// The handle is gone, whatever becomes of the last write.
void Process::close_table(ClientTable& table) {
    struct Closing {
        Process& process;
        ClientTable& table;
        ~Closing() {
            for (const auto& order : table.orders()) {
                process.forget(order->handle, "its table was closed");
            }
            process.forget(table.handle(), "the table was closed");
            process.aliases.erase(table.alias());
            table.connection().tables.erase(table.handle());
        }
    };
    const Closing closing{*this, table};
    if (table.connection().lost) fail(kServerLost, "the server was lost");
    table.flush();
}

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

STAND_IN(AdsSetServerType, (U16 types), (types), require_types(types);
         process().server_types = types)
STAND_IN(AdsIsServerLoaded, (const char* path, U16* answer), (path, answer),
         give(answer, loaded(path)))
STAND_IN(AdsConnect26, (const char* path, U16 types, void* handle), (path, types, Answered{handle}),
         give_connection(path, types, handle))
STAND_IN(AdsConnect60,
         (const char* path, U16 types, const char* user, const char* password, U32 options,
          void* handle),
         (path, types, options, Answered{handle}), connect_as(user, password, options);
         give_connection(path, types, handle))
STAND_IN(AdsDisconnect, (Handle handle), (Given{handle}), disconnect(handle))
STAND_IN(AdsGetLastError, (U32 * code, char* text, U16* size), (code),
         const Failure error = record_of_calls().last_error;
         give(code, error.status); give_text(error.text, text, size))
STAND_IN(AdsShowDeleted, (U16 show), (show), process().show_deleted(flag(show)))
STAND_IN(AdsGetDeleted, (U16 * answer), (answer),
         give(answer, process().shows_deleted == reads("deleted_polarity=shown")))
STAND_IN(AdsSetExact, (U16 exact), (exact), process().exact = flag(exact))
STAND_IN(AdsGetExact, (U16 * answer), (answer), give(answer, process().exact))
STAND_IN(AdsSetDateFormat, (const char* format), (format), set_date_format(format))
STAND_IN(AdsGetDateFormat, (char* format, U16* size), (size),
         give_text(process().date_format, format, size))

// Functions that a library within another program must not call: they end what the program itself
// has open, show a window, or move other tables.
STAND_IN(AdsApplicationExit, (), (), violate(kBadArgument, "closes the whole process"))
STAND_IN(AdsCloseAllTables, (), (), violate(kBadArgument, "closes the whole process"))
STAND_IN(AdsShowError, (const char* title), (title), violate(kBadArgument, "shows a window"))
STAND_IN(AdsSetRelation, (Handle parent, Handle child, const char* text),
         (Given{parent}, Given{child}, text), violate(kBadArgument, "moves another table"))
STAND_IN(AdsSetScopedRelation, (Handle parent, Handle child, const char* text),
         (Given{parent}, Given{child}, text), violate(kBadArgument, "moves another table"))

}  // namespace brenik::stand_in
