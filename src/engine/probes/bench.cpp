// Calls of the client library with what every probe does about their answers.

#include "engine/probes/bench.h"

#include <array>
#include <cstdio>

namespace brenik::probes {
namespace {

constexpr std::size_t kMostOrders = 50;
constexpr std::size_t kLongestName = 64;
constexpr U32 kLongestField = 256;

// Aliases are never used twice, so that no open is refused for its alias.
std::string new_alias() {
    static unsigned number = 0;
    return "PROBE" + std::to_string(++number % 100000);
}

}  // namespace

std::string said(Status status) {
    return status == 0 ? "success" : "status " + std::to_string(status);
}

void require(Status status, const char* function) {
    if (status != 0) throw Stopped(std::string(function) + " answered " + said(status));
}

std::string in_hex(std::string_view bytes) {
    std::string text;
    for (const char each : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned char>(each));
        text += (text.empty() ? "" : " ") + std::string(digits);
    }
    return text;
}

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

ClientTable::ClientTable(const ClientLibrary& client, Handle connection, const ScratchTable& table,
                         const OpenHow& how)
    : client_(client), layout_(table.layout()) {
    require(client_.AdsOpenTable(connection, table.path().c_str(), new_alias().c_str(),
                                 advantage::kCdxTable, how.characters, how.locking,
                                 advantage::kCheckRights, how.options, &handle_),
            "AdsOpenTable");
    client_.AdsCacheRecords(handle_, how.records_ahead);
}

Handle ClientTable::order(std::string_view tag) const {
    U16 count = 0;
    require(client_.AdsGetNumIndexes(handle_, &count), "AdsGetNumIndexes");
    for (U16 number = 1; number <= count && number <= kMostOrders; ++number) {
        Handle order = 0;
        require(client_.AdsGetIndexHandleByOrder(handle_, number, &order),
                "AdsGetIndexHandleByOrder");
        std::array<char, kLongestName> name{};
        U16 size = name.size();
        require(client_.AdsGetIndexName(order, name.data(), &size), "AdsGetIndexName");
        if (std::string_view(name.data(), size) == tag) return order;
    }
    throw Stopped("the order " + std::string(tag) + " of the structural index is not open");
}

void ClientTable::go(U32 record) const {
    require(client_.AdsGotoRecord(handle_, record), "AdsGotoRecord");
}

void ClientTable::go_top(Handle object) const { require(client_.AdsGotoTop(object), "AdsGotoTop"); }

void ClientTable::leave() const {
    require(client_.AdsGotoBottom(handle_), "AdsGotoBottom");
    require(skip(handle_, 1), "AdsSkip");
}

void ClientTable::lock(U32 record) const {
    require(client_.AdsLockRecord(handle_, record), "AdsLockRecord");
}

void ClientTable::unlock(U32 record) const {
    require(client_.AdsUnlockRecord(handle_, record), "AdsUnlockRecord");
}

void ClientTable::set(const char* field, std::string_view text) const {
    require(client_.AdsSetField(handle_, field, text.data(), static_cast<U32>(text.size())),
            "AdsSetField");
}

void ClientTable::write() const { require(client_.AdsWriteRecord(handle_), "AdsWriteRecord"); }

void ClientTable::change(U32 record, std::string_view text) const {
    go(record);
    lock(record);
    set("TEXT", text);
    write();
    unlock(record);
}

bool ClientTable::holds(U32 record) const {
    U16 locked = 0;
    require(client_.AdsIsRecordLocked(handle_, record, &locked), "AdsIsRecordLocked");
    return locked != 0;
}

U32 ClientTable::record() const {
    U32 record = 0;
    require(client_.AdsGetRecordNum(handle_, advantage::kIgnoreFilters, &record),
            "AdsGetRecordNum");
    return record;
}

U32 ClientTable::count(U16 filters) const {
    U32 count = 0;
    require(client_.AdsGetRecordCount(handle_, filters, &count), "AdsGetRecordCount");
    return count;
}

bool ClientTable::at_end() const {
    U16 at = 0;
    require(client_.AdsAtEOF(handle_, &at), "AdsAtEOF");
    return at != 0;
}

bool ClientTable::at_begin() const {
    U16 at = 0;
    require(client_.AdsAtBOF(handle_, &at), "AdsAtBOF");
    return at != 0;
}

std::string ClientTable::place() const {
    U32 number = 0;
    const Status status = client_.AdsGetRecordNum(handle_, advantage::kIgnoreFilters, &number);
    std::string text = status == 0 ? "record " + std::to_string(number)
                                   : "no record number (" + said(status) + ")";
    if (at_begin()) text += ", at the beginning";
    if (at_end()) text += ", at the end";
    return text;
}

std::string ClientTable::image() const {
    std::string image(layout_.record_length + 1, '\0');
    U32 size = static_cast<U32>(image.size());
    require(client_.AdsGetRecord(handle_, image.data(), &size), "AdsGetRecord");
    if (size < layout_.record_length) {
        throw Stopped("AdsGetRecord gave " + std::to_string(size) + " bytes of " +
                      std::to_string(layout_.record_length));
    }
    image.resize(layout_.record_length);
    return image;
}

std::string ClientTable::bytes(std::string_view field) const {
    const record::Field* const place = layout_.find(field);
    return image().substr(place->offset, place->width);
}

std::string ClientTable::text(std::string_view field) const {
    const std::string all = bytes(field);
    return all.substr(0, all.find_last_not_of(' ') + 1);
}

std::string ClientTable::get(const char* field, U16 trim) const {
    std::string text(kLongestField + 1, '\0');
    U32 size = static_cast<U32>(text.size());
    require(client_.AdsGetField(handle_, field, text.data(), &size, trim), "AdsGetField");
    text.resize(std::min(size, kLongestField));
    return text;
}

FurtherFunctions::FurtherFunctions(const platform::DynamicLibrary& file)
    : set_scope(reinterpret_cast<decltype(set_scope)>(file.find("AdsSetScope"))),
      get_scope(reinterpret_cast<decltype(get_scope)>(file.find("AdsGetScope"))),
      set_filter(reinterpret_cast<decltype(set_filter)>(file.find("AdsSetFilter"))) {}

Bench::Bench(const ClientLibrary& library, const std::string& folder, U16 server_type)
    : client_(library),
      further_(library.file()),
      folder_(folder),
      server_type_(server_type),
      scratch_(folder) {
    require(client_.AdsSetServerType(server_type), "AdsSetServerType");
    connect(connections_[0]);
    try {
        connect(connections_[1]);
    } catch (...) {
        client_.AdsDisconnect(connections_[0]);
        throw;
    }
}

Bench::~Bench() {
    // The library may have answered the second request with the first connection.
    if (second() != first()) client_.AdsDisconnect(second());
    client_.AdsDisconnect(first());
}

void Bench::connect(Handle& connection) const {
    require(client_.AdsConnect60(folder_.c_str(), server_type_, nullptr, nullptr, 0, &connection),
            "AdsConnect60");
}

std::unique_ptr<ClientTable> Bench::here(const OpenHow& how) const {
    return std::make_unique<ClientTable>(client_, first(), scratch_, how);
}

std::unique_ptr<ClientTable> Bench::there(const OpenHow& how) const {
    return std::make_unique<ClientTable>(client_, second(), scratch_, how);
}

Status Bench::try_open(Handle connection, const std::string& path, const char* alias, U32 options,
                       U16 characters) const {
    Handle table = 0;
    const Status status = client_.AdsOpenTable(
        connection, path.c_str(), alias, advantage::kCdxTable, characters,
        advantage::kCompatibleLocking, advantage::kCheckRights, options, &table);
    if (status == 0) client_.AdsCloseTable(table);
    return status;
}

void Bench::begin(unsigned records, TextOf text) {
    client_.AdsShowDeleted(1);
    client_.AdsSetExact(0);
    client_.AdsSetDateFormat(advantage::kDateFormat);
    scratch_.make(records, text);
}

}  // namespace brenik::probes
