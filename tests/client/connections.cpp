// Handles, connections, and the settings of the process.

#include <unistd.h>

#include <exception>
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

void give_connection(const char* path, U16 types, Handle* handle) {
    require(!text_argument(path, "the server's path").empty(), "no path");
    require(handle != nullptr, "a pointer for a handle is null");
    require_types(types);
    give_handle(process().connect(types).handle, handle);
}

void disconnect(Handle handle) {
    if (handle == Handle::kNone) violate(kNoConnection, "closes all connections of the process");
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
Handle Process::add(const Object& object) {
    constexpr U32 kStride = 0x9E3779B1;
    if (last_handle_ == 0) last_handle_ = static_cast<U32>(getpid()) * kStride;
    do {
        last_handle_ += kStride;
    } while (last_handle_ == 0);
    const Handle handle{last_handle_};
    objects_.emplace(handle, object);
    return handle;
}

Object Process::object(Handle handle, Lost lost) {
    const Handle own = reads("handle_width=four") ? Handle{static_cast<U32>(handle)} : handle;
    const auto found = objects_.find(own);
    if (found == objects_.end()) violate(5018, "a stale or foreign handle");
    const Connection& connection = *found->second.connection;
    if (connection.lost && lost == Lost::kRefused) fail(kServerLost, "the server was lost");
    connection.engine->begin_call();
    connection.engine->set_deleted_hidden(!shows_deleted);
    return found->second;
}

Connection& Process::connection(Handle handle, Lost lost) {
    const Object known = object(handle, lost);
    if (known.table != nullptr) violate(kNoConnection, "not a connection's handle");
    return *known.connection;
}

ClientTable& Process::table(Handle handle, Lost lost) {
    const Object known = object(handle, lost);
    if (known.table == nullptr || known.order != nullptr) violate(5023, "not a table's handle");
    return *known.table;
}

Order& Process::order(Handle handle) {
    Order* order = object(handle).order;
    if (order == nullptr) violate(5014, "not an order's handle");
    return *order;
}

Connection& Process::connect(U16 types) {
    const U16 type = answering(types);
    if (type == 0) fail(5033, "no server answers for this path");
    auto made = std::make_unique<Connection>();
    made->type = type;
    made->handle = add({made.get()});
    return *(connections[made->handle] = std::move(made));
}

void Process::disconnect(Connection& connection) {
    std::exception_ptr fault;
    while (!connection.tables.empty()) {
        try {
            close_table(*connection.tables.begin()->second);
        } catch (...) {
            fault = std::current_exception();
        }
    }
    const bool lost = connection.lost;
    forget(connection.handle);
    connections.erase(connection.handle);
    if (lost) fail(kServerLost, "the server was lost");
    if (fault) std::rethrow_exception(fault);
}

ClientTable& Process::add_table(Connection& connection, std::unique_ptr<Table> table,
                                ClientTable::Options options) {
    const Handle handle = add({&connection});
    auto made =
        std::make_unique<ClientTable>(connection, handle, std::move(table), std::move(options));
    objects_.at(handle).table = made.get();
    aliases.insert(made->alias());
    return *(connection.tables[handle] = std::move(made));
}

// The handle is gone, whatever becomes of the last write.
void Process::close_table(ClientTable& table) {
    struct Closing {
        Process& process;
        ClientTable& table;
        ~Closing() {
            for (const auto& order : table.orders()) process.forget(order->handle);
            process.forget(table.handle());
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

// -- Exports.

STAND_IN(AdsSetServerType, (U16 types), (types), require_types(types);
         process().server_types = types)
STAND_IN(AdsIsServerLoaded, (const char* path, U16* answer), (path, answer),
         give(answer, loaded(path)))
STAND_IN(AdsConnect26, (const char* path, U16 types, Handle* handle), (path, types, handle),
         give_connection(path, types, handle))
STAND_IN(AdsConnect60,
         (const char* path, U16 types, const char* user, const char* password, U32 options,
          Handle* handle),
         (path, types, options, handle), require(options == 0, "unknown options");
         require(user == nullptr && password == nullptr, "a user needs a data dictionary");
         give_connection(path, types, handle))
STAND_IN(AdsDisconnect, (Handle handle), (handle), disconnect(handle))
STAND_IN(AdsGetLastError, (U32 * code, char* text, U16* size), (code),
         const Failure error = record_of_calls().last_error;
         give(code, error.status); give_text(error.text, text, size))
STAND_IN(AdsShowDeleted, (U16 show), (show), process().shows_deleted = flag(show))
STAND_IN(AdsGetDeleted, (U16 * answer), (answer),
         give(answer, process().shows_deleted == reads("deleted_polarity=shown")))
STAND_IN(AdsSetExact, (U16 exact), (exact), process().exact = flag(exact))
STAND_IN(AdsGetExact, (U16 * answer), (answer), give(answer, process().exact))
STAND_IN(AdsSetDateFormat, (const char* format), (format), set_date_format(format))
STAND_IN(AdsGetDateFormat, (char* format, U16* size), (size),
         give_text(process().date_format, format, size))

}  // namespace brenik::stand_in
