// Probes of connections, opens, handles and buffers.

#include <algorithm>
#include <array>
#include <cstring>

#include "engine/probes/bench.h"
#include "engine/record/table_path.h"

namespace brenik::probes {
namespace {

constexpr std::size_t kOrders = 5;  // of the scratch table
constexpr U16 kRoomForOrders = 50;
constexpr U16 kRoomForNames = 512;
constexpr U16 kNtxTable = 1;  // a table with indexes of another kind
constexpr unsigned char kFills[] = {0xA5, 0x5A};

// How many of the bytes at `place` a call writes; `call` is handed the place. Two fills, because a
// byte may be written with the value that it has.
template <std::size_t size, typename Call>
std::size_t bytes_written(Call call) {
    std::size_t written = 0;
    for (const unsigned char fill : kFills) {
        alignas(Handle) std::array<unsigned char, size> place;
        place.fill(fill);
        call(reinterpret_cast<Handle*>(place.data()));
        for (std::size_t i = 0; i < size; ++i) {
            if (place[i] != fill) written = std::max(written, i + 1);
        }
    }
    return written;
}

Answer handle_width(Bench& bench) {
    const ClientLibrary& client = bench.client();
    unsigned number = 0;
    const std::size_t width = bytes_written<2 * sizeof(Handle)>([&](Handle* place) {
        require(
            client.AdsOpenTable(bench.first(), bench.path().c_str(),
                                ("WIDTH" + std::to_string(++number)).c_str(), advantage::kCdxTable,
                                advantage::kAnsi, advantage::kCompatibleLocking,
                                advantage::kCheckRights, advantage::kShared, place),
            "AdsOpenTable");
        Handle table = 0;
        std::memcpy(&table, place, sizeof table);
        // With a narrower handle, the rest of the place still has the fill.
        if (client.AdsCloseTable(table) != 0) {
            std::uint32_t low = 0;
            std::memcpy(&low, place, sizeof low);
            client.AdsCloseTable(low);
        }
    });
    return told(width == sizeof(Handle), "an open writes " + std::to_string(width) + " of " +
                                             std::to_string(sizeof(Handle)) + " bytes");
}

Answer order_array(Bench& bench) {
    const auto table = bench.here();
    U16 count = 0;
    const std::size_t written =
        bytes_written<(kRoomForOrders + 1) * sizeof(Handle)>([&](Handle* place) {
            count = kRoomForOrders;
            // Its status is what "index-already-open" asks.
            static_cast<void>(bench.client().AdsOpenIndex(
                table->handle(), record::index_path(bench.path()).c_str(), place, &count));
        });
    return told(
        count == kOrders && written == count * sizeof(Handle),
        std::to_string(written) + " bytes are written for " + std::to_string(count) + " orders");
}

Answer short_buffer(Bench& bench) {
    const auto table = bench.here();
    const Handle order = table->order("SOME");
    std::array<char, kRoomForNames> text{};
    U16 whole = text.size();
    require(bench.client().AdsGetIndexCondition(order, text.data(), &whole),
            "AdsGetIndexCondition");
    const std::string condition(text.data(), whole);
    bool as_expected = true;
    std::string seen = "for " + std::to_string(whole) + " bytes of text:";
    for (const unsigned room : {0U, unsigned{whole}, unsigned{whole} + 1}) {
        text.fill('#');
        U16 size = static_cast<U16>(room);
        const Status status = bench.client().AdsGetIndexCondition(order, text.data(), &size);
        const bool enough = room > whole;
        const bool copied = condition.compare(0, std::min<std::size_t>(room, whole), text.data(),
                                              std::min<std::size_t>(room, whole)) == 0;
        const bool ended = text[whole] == '\0';
        as_expected = as_expected && copied && (status == 0) == enough && ended == enough &&
                      size == (enough ? whole : whole + 1) && text[whole + 1U] == '#';
        seen += " a buffer of " + std::to_string(room) + " gives " + said(status) + ", length " +
                std::to_string(size) + (ended ? " and a NUL;" : " and no NUL;");
    }
    seen.pop_back();
    return told(as_expected, seen);
}

// The types of servers that answer for the folder.
Answer server_types(Bench& bench) {
    std::string seen;
    bool one_answers = false;
    for (const U16 type : {advantage::kLocalServer, advantage::kRemoteServer}) {
        Handle connection = 0;
        const Status status = bench.client().AdsConnect60(bench.folder().c_str(), type, nullptr,
                                                          nullptr, 0, &connection);
        if (status == 0) bench.client().AdsDisconnect(connection);
        one_answers = one_answers || status == 0;
        seen += "type " + std::to_string(type) + ": " + said(status) + "; ";
    }
    Handle connection = 0;
    constexpr U16 kNoType = 0x40;
    const Status nothing = bench.client().AdsConnect60(bench.folder().c_str(), kNoType, nullptr,
                                                       nullptr, 0, &connection);
    if (nothing == 0) bench.client().AdsDisconnect(connection);
    seen += "type " + std::to_string(kNoType) + ": " + said(nothing);
    return nothing == 0 ? unknown(seen) : told(one_answers, seen);
}

// A connection of its own type, while the process is set to the other one.
Answer connection_type(Bench& bench) {
    const U16 other = bench.server_type() == advantage::kLocalServer ? advantage::kRemoteServer
                                                                     : advantage::kLocalServer;
    require(bench.client().AdsSetServerType(other), "AdsSetServerType");
    Handle connection = 0;
    const Status status = bench.client().AdsConnect60(bench.folder().c_str(), bench.server_type(),
                                                      nullptr, nullptr, 0, &connection);
    if (status == 0) bench.client().AdsDisconnect(connection);
    require(bench.client().AdsSetServerType(bench.server_type()), "AdsSetServerType");
    return told(status == 0, "a connection of type " + std::to_string(bench.server_type()) +
                                 " while the process is set to type " + std::to_string(other) +
                                 ": " + said(status));
}

// The connections of the bench stay out of it: what is tested might disconnect them.
Answer own_connection(Bench& bench) {
    const ClientLibrary& client = bench.client();
    Handle first = 0;
    Handle second = 0;
    bench.connect(first);
    const Status again = client.AdsConnect60(bench.folder().c_str(), bench.server_type(), nullptr,
                                             nullptr, 0, &second);
    Status survives = 0;
    if (again == 0) {
        const ClientTable table(client, second, bench.scratch());
        client.AdsDisconnect(first);
        U32 count = 0;
        survives = client.AdsGetRecordCount(table.handle(), advantage::kIgnoreFilters, &count);
    }
    client.AdsDisconnect(again == 0 ? second : first);
    return told(again == 0 && first != second && survives == 0,
                "a second connection: " + said(again) +
                    (first == second ? ", with the handle of the first" : "") +
                    "; its table after the first has ended: " + said(survives));
}

Answer server_loaded(Bench& bench) {
    if (!bench.client().AdsIsServerLoaded) return unknown("the library has no AdsIsServerLoaded");
    U16 loaded = 0;
    const Status status = bench.client().AdsIsServerLoaded(bench.folder().c_str(), &loaded);
    Handle connection = 0;
    const bool remote =
        bench.client().AdsConnect60(bench.folder().c_str(), advantage::kRemoteServer, nullptr,
                                    nullptr, 0, &connection) == 0;
    if (remote) bench.client().AdsDisconnect(connection);
    return told(status == 0 && loaded == (remote ? 1 : 0),
                said(status) + ", answer " + std::to_string(loaded) + " while " +
                    (remote ? "a remote server" : "only the local server") +
                    " answers for the folder");
}

Answer open_options(Bench& bench) {
    const auto shared = bench.here();
    const Status beside =
        bench.try_open(bench.second(), bench.path(), "BESIDE", advantage::kShared);
    const auto reading = bench.there({.options = kReadOnly});
    reading->go(1);
    Status write = bench.client().AdsLockRecord(reading->handle(), 1);
    if (write == 0) write = bench.client().AdsSetField(reading->handle(), "TEXT", "read-only", 9);
    if (write == 0) write = bench.client().AdsWriteRecord(reading->handle());
    bench.client().AdsCancelUpdate(reading->handle());
    return told(beside == 0 && write != 0,
                "a second shared open: " + said(beside) +
                    "; a write through a read-only open: " + said(write));
}

Answer exclusive_open(Bench& bench) {
    Status shared_beside = 0;
    {
        const auto alone = bench.here({.options = advantage::kExclusive});
        shared_beside = bench.try_open(bench.second(), bench.path(), "BESIDE", advantage::kShared);
    }
    const auto shared = bench.here();
    const Status alone_beside =
        bench.try_open(bench.second(), bench.path(), "ALONE", advantage::kExclusive);
    return told(shared_beside != 0 && alone_beside != 0,
                "a shared open beside an exclusive one: " + said(shared_beside) +
                    "; the other way round: " + said(alone_beside));
}

Answer lock_types(Bench& bench) {
    const auto table = bench.here({.locking = advantage::kProprietaryLocking});
    const Status status =
        bench.try_open(bench.second(), bench.path(), "BESIDE", advantage::kShared);
    const bool remote = bench.server_type() == advantage::kRemoteServer;
    return told((status != 0) == remote,
                "an open with compatible locks beside one with the server's: " + said(status));
}

Answer refused_open_status(Bench& bench) {
    const auto alone = bench.here({.options = advantage::kExclusive});
    const Status status =
        bench.try_open(bench.second(), bench.path(), "BESIDE", advantage::kShared);
    if (status == 0) return unknown("the open beside an exclusive one is not refused");
    return told(status == advantage::kNotOpened || status == advantage::kRefusedBySystem,
                said(status));
}

Answer missing_file_status(Bench& bench) {
    const Status status =
        bench.try_open(bench.first(), bench.path() + "_none.DBF", "NONE", advantage::kShared);
    return told(status == advantage::kFileNotFound || status == advantage::kNoSuchFile,
                said(status));
}

Answer character_types(Bench& bench) {
    const Status ansi =
        bench.try_open(bench.first(), bench.path(), "ANSI", advantage::kShared, advantage::kAnsi);
    const Status oem =
        bench.try_open(bench.first(), bench.path(), "OEM", advantage::kShared, advantage::kOem);
    return told(ansi == 0 && oem == 0, "ANSI: " + said(ansi) + "; OEM: " + said(oem));
}

Answer table_type(Bench& bench) {
    Handle table = 0;
    const Status status = bench.client().AdsOpenTable(
        bench.first(), bench.path().c_str(), "OTHERTYPE", kNtxTable, advantage::kAnsi,
        advantage::kCompatibleLocking, advantage::kCheckRights, advantage::kShared, &table);
    if (status == 0) bench.client().AdsCloseTable(table);
    return told(status != 0, "an open as type " + std::to_string(kNtxTable) + ": " + said(status));
}

// A failure, then a success, then the question.
Answer last_error(Bench& bench) {
    const auto table = bench.here();
    const Status failure =
        bench.try_open(bench.first(), bench.path() + "_none.DBF", "NONE", advantage::kShared);
    table->go(2);
    U32 code = 0;
    std::array<char, kRoomForNames> text{};
    U16 size = text.size();
    require(bench.client().AdsGetLastError(&code, text.data(), &size), "AdsGetLastError");
    return told(failure != 0 && code == failure,
                said(failure) + " was followed by a success; AdsGetLastError answers " +
                    std::to_string(code) + ", " + quoted({text.data(), size}));
}

Answer alias_duplicate(Bench& bench) {
    Handle table = 0;
    require(bench.client().AdsOpenTable(bench.first(), bench.path().c_str(), "TWICE",
                                        advantage::kCdxTable, advantage::kAnsi,
                                        advantage::kCompatibleLocking, advantage::kCheckRights,
                                        advantage::kShared, &table),
            "AdsOpenTable");
    const Status status = bench.try_open(bench.first(), bench.path(), "TWICE", advantage::kShared);
    bench.client().AdsCloseTable(table);
    return told(status != 0, "the second open with one alias: " + said(status));
}

Answer alias_length(Bench& bench) {
    const Status ten =
        bench.try_open(bench.first(), bench.path(), "ALIASOFTEN", advantage::kShared);
    const Status eleven =
        bench.try_open(bench.first(), bench.path(), "ALIASELEVEN", advantage::kShared);
    return told(ten == 0 && eleven != 0,
                "ten characters: " + said(ten) + "; eleven: " + said(eleven));
}

Answer position_after_open(Bench& bench) {
    const auto table = bench.here();
    const std::string place = table->place();
    return told(place == "record 1", place);
}

Answer structural_index(Bench& bench) {
    const auto table = bench.here();
    U16 count = 0;
    require(bench.client().AdsGetNumIndexes(table->handle(), &count), "AdsGetNumIndexes");
    return told(count == kOrders, std::to_string(count) + " of " + std::to_string(kOrders) +
                                      " orders are open after the open of the table");
}

Answer index_already_open(Bench& bench) {
    const auto table = bench.here();
    const Handle known = table->order("CODE");
    std::array<Handle, kRoomForOrders> orders{};
    U16 count = orders.size();
    const Status status = bench.client().AdsOpenIndex(
        table->handle(), record::index_path(bench.path()).c_str(), orders.data(), &count);
    const bool has_known = std::ranges::find(orders, known) != orders.end();
    return told(status != 0 && count == kOrders && has_known,
                said(status) + ", " + std::to_string(count) + " handles" +
                    (has_known ? ", those of the open orders" : ", not those of the open orders"));
}

Answer index_file_name(Bench& bench) {
    if (!bench.client().AdsGetIndexFilename) {
        return unknown("the library has no AdsGetIndexFilename");
    }
    const auto table = bench.here();
    std::array<char, kRoomForNames> name{};
    U16 size = name.size();
    require(bench.client().AdsGetIndexFilename(table->order("CODE"), advantage::kFullPath,
                                               name.data(), &size),
            "AdsGetIndexFilename");
    const std::string path(name.data(), size);
    return told(path.find_first_of("/\\") != std::string::npos, quoted(path));
}

constexpr Probe kProbes[] = {
    {"handle-width", "A handle is as wide as a pointer.", handle_width},
    {"order-array", "An array of orders has an element as wide as a pointer for each.",
     order_array},
    {"short-buffer",
     "A buffer that is too small is filled without a NUL, and the length with it is told.",
     short_buffer},
    {"server-types", "1 is the local server, 2 the remote one.", server_types},
    {"connection-type", "A connection has the type that it names, whatever the process is set to.",
     connection_type},
    {"own-connection", "Each connection to a folder is another one.", own_connection},
    {"server-loaded", "AdsIsServerLoaded answers 1 for a remote server, 0 for the local one.",
     server_loaded},
    {"open-options", "Option 4 opens for sharing, option 2 for reading alone.", open_options},
    {"exclusive-open", "Option 1 opens exclusively.", exclusive_open},
    {"lock-types", "Lock type 1 excludes type 0 on a remote server; the local one ignores it.",
     lock_types},
    {"refused-open-status", "An open that another one excludes answers 7008 or 7040.",
     refused_open_status},
    {"missing-file-status", "The open of a missing file answers 5004 or 7041.",
     missing_file_status},
    {"character-types", "Character types 1 and 2 exist.", character_types},
    {"table-type", "A table cannot be opened as one of another type.", table_type},
    {"last-error", "A success leaves the last error as it was.", last_error},
    {"alias-duplicate", "An alias that is in use is refused.", alias_duplicate},
    {"alias-length", "An alias has at most ten characters.", alias_length},
    {"position-after-open", "A table that was opened is on its first record.", position_after_open},
    {"structural-index", "The structural index opens with the table.", structural_index},
    {"index-already-open",
     "Opening an index that is open fails, but still gives the handles of its orders.",
     index_already_open},
    {"index-file-name", "Option 3 gives the full path of an index.", index_file_name},
};

}  // namespace

std::span<const Probe> opening_probes() { return kProbes; }

}  // namespace brenik::probes
