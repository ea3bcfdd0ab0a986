// The connection, the settings of the process, opening, and what a status means.

#include "engine/advantage/advantage_engine.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>
#include <new>
#include <utility>
#include <vector>

#include "engine/advantage/advantage_table.h"
#include "engine/advantage/assumptions.h"
#include "platform/dynamic_library.h"
#include "platform/file.h"
#include "platform/folders.h"

namespace brenik::advantage {
namespace {

constexpr Status kSuccess = 0;
constexpr U16 kShown = 1;
constexpr U16 kHidden = 0;
constexpr int kAliasTries = 100;

std::string clients_path(const std::string& path) {
    return platform::path_for_libraries(platform::system_path(platform::absolute_path(path)));
}

// A folder without its last separator, unless it is a root.
std::string folder_path(const std::string& folder) {
    const std::string path = clients_path(folder);
    const std::size_t end = path.find_last_not_of("/\\");
    const bool root = end == std::string::npos || path[end] == ':';
    return root ? path : path.substr(0, end + 1);
}

std::string folder_of(const std::string& file) {
    return folder_path(file.substr(0, file.find_last_of("/\\") + 1));
}

// The single types in a mask, in the client's order of trial.
std::vector<U16> types_in(U16 mask) {
    std::vector<U16> types;
    for (const U16 type : {kRemoteServer, kInternetServer, kLocalServer}) {
        if ((mask & type) != 0) types.push_back(type);
    }
    if (types.empty()) types.push_back(mask);
    return types;
}

// Never the same twice in a process, and hardly ever one that another library in it has chosen.
std::string next_alias() {
    constexpr std::string_view kDigits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    static auto number = static_cast<std::uint64_t>(
        std::chrono::system_clock::now().time_since_epoch() / std::chrono::milliseconds(1));
    std::string alias(kAliasLength, 'B');
    std::uint64_t rest = number++;
    for (std::size_t at = alias.size() - 1; at > 0; --at, rest /= kDigits.size()) {
        alias[at] = kDigits[static_cast<std::size_t>(rest % kDigits.size())];
    }
    return alias;
}

// The client's text in one line.
std::string in_one_line(std::string_view text) {
    std::string line(text);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    return line.substr(0, line.find_last_not_of(' ') + 1);
}

}  // namespace

AdvantageEngine::AdvantageEngine(std::shared_ptr<const ClientLibrary> library)
    : library_(std::move(library)), types_(kLocalServer) {}

AdvantageEngine::~AdvantageEngine() {
    disconnect();
    put_settings_back();
}

// -- The settings of the process.

const ClientLibrary& AdvantageEngine::client() {
    if (!library_->usable()) {
        throw EngineFault(FaultCode::kNoEngine, "client library", library_->problem());
    }
    if (!settings_taken_) take_settings();
    return *library_;
}

// Each of the host's values is noted before ours replaces it: a call that fails may have done its
// work.
void AdvantageEngine::take_settings() {
    const ClientLibrary& api = *library_;
    try {
        show_deleted();

        U16 exact = 0;
        const bool known = api.AdsGetExact != nullptr && api.AdsGetExact(&exact) == kSuccess;
        note_setting(&HostSettings::exact, known ? std::optional(exact) : std::nullopt, U16{0});
        require_setting(api.AdsSetExact(0), "AdsSetExact");

        std::array<char, 64> format{};
        auto size = static_cast<U16>(format.size() - 1);
        const bool told = api.AdsGetDateFormat != nullptr &&
                          api.AdsGetDateFormat(format.data(), &size) == kSuccess;
        note_setting(&HostSettings::date_format,
                     told ? std::optional<std::string>(format.data()) : std::nullopt,
                     std::string(kDateFormat));
        require_setting(api.AdsSetDateFormat(kDateFormat), "AdsSetDateFormat");
        settings_taken_ = true;
    } catch (...) {
        put_settings_back();
        throw;
    }
}

// A setting that could not be put back last time still has the value of ours, and the host's is
// known. One that cannot be read is as it was read last, or else the client's usual one.
template <class Setting>
void AdvantageEngine::note_setting(std::optional<Setting> HostSettings::*setting,
                                   const std::optional<Setting>& read, Setting usual) {
    if (host_.*setting) return;
    if (read) last_read_.*setting = read;
    host_.*setting = (last_read_.*setting).value_or(usual);
}

void AdvantageEngine::show_deleted() {
    const std::optional<bool> before = deleted_setting();
    const Status status = library_->AdsShowDeleted(kShown);
    const std::optional<bool> now = deleted_setting();
    const bool changed = before && now && before != now;
    if (status == kSuccess || changed) {
        if (now) answer_if_shown_ = now;
        std::optional<bool> shown;
        if (before && answer_if_shown_) shown = before == answer_if_shown_;
        note_setting(&HostSettings::shows_deleted, shown, true);
    }
    require_setting(status, "AdsShowDeleted");
}

// Whether deleted records are hidden, or whether they are shown: libraries may differ. Nothing if
// the client cannot tell.
std::optional<bool> AdvantageEngine::deleted_setting() const {
    U16 is = 0;
    if (library_->AdsGetDeleted == nullptr || library_->AdsGetDeleted(&is) != kSuccess) return {};
    return is != 0;
}

void AdvantageEngine::require_setting(Status status, const char* setting) const {
    if (status == kSuccess) return;
    throw EngineFault(FaultCode::kInputOutput, setting, told(status, library_->path()),
                      static_cast<int>(status));
}

void AdvantageEngine::put_settings_back() noexcept {
    const ClientLibrary& api = *library_;
    // There may be no later call that would try again.
    constexpr int kTries = 2;
    const auto put_back = [](auto& setting, const auto& set) {
        for (int tries = 0; setting && tries < kTries; ++tries) {
            if (set(*setting) == kSuccess) setting.reset();
        }
    };
    put_back(host_.shows_deleted,
             [&](bool shown) { return api.AdsShowDeleted(shown ? kShown : kHidden); });
    put_back(host_.exact, [&](U16 exact) { return api.AdsSetExact(exact); });
    put_back(host_.date_format,
             [&](const std::string& format) { return api.AdsSetDateFormat(format.c_str()); });
    put_back(host_.server_types, [&](U16 types) { return api.AdsSetServerType(types); });
    settings_taken_ = false;
}

Status AdvantageEngine::set_types(U16 types) {
    const ClientLibrary& api = client();
    host_.server_types = kUsualServers;
    return api.AdsSetServerType(types);
}

int AdvantageEngine::set_server_type(int type) {
    try {
        if (type < 0 || type > std::numeric_limits<U16>::max()) {
            throw EngineFault(FaultCode::kUnsuitableValue, "set server type",
                              std::to_string(type) + " is not a server type");
        }
        const auto types = static_cast<U16>(type);
        const Status status = noted(set_types(types), library_->path());
        if (status == kSuccess) types_ = types;
        return static_cast<int>(status);
    } catch (const std::exception& fault) {
        return note(fault);
    }
}

bool AdvantageEngine::set_proprietary_locking(bool on) {
    return std::exchange(proprietary_locking_, on);
}

bool AdvantageEngine::set_deleted_hidden(bool on) { return std::exchange(deleted_hidden_, on); }

// -- The connection.

// A failed connect may have made a connection all the same.
Status AdvantageEngine::connect(const std::string& folder, U16 type, Handle& connection) const {
    const ClientLibrary& api = *library_;
    const auto without_rest = [&](Status status) {
        const Handle rest = status != kSuccess ? std::exchange(connection, Handle{0}) : 0;
        if (rest != 0) api.AdsDisconnect(rest);
        return status;
    };
    const Status status = without_rest(
        api.AdsConnect60(folder.c_str(), type, nullptr, nullptr, kNoOptions, &connection));
    if (status == kSuccess || status == kNoServer || api.AdsConnect26 == nullptr) return status;
    return without_rest(api.AdsConnect26(folder.c_str(), type, &connection));
}

bool AdvantageEngine::can_connect(const std::string& folder, U16 type) {
    Handle connection = 0;
    if (connect(folder, type, connection) != kSuccess) return false;
    if (connection != connection_) client().AdsDisconnect(connection);
    return true;
}

// The client's own answer counts where it is certain. A yes may mean either server, and the local
// one is no server that a query could find: then connecting decides. Without an answer, the remote
// server, which can take seconds to be missed, is tried first only if it may be used.
int AdvantageEngine::server_loaded(const std::string& folder) {
    constexpr int kNone = 0;
    try {
        const ClientLibrary& api = client();
        const std::string path = folder_path(folder);
        U16 loaded = 0;
        const bool asked = api.AdsIsServerLoaded != nullptr &&
                           api.AdsIsServerLoaded(path.c_str(), &loaded) == kSuccess;
        if (asked && loaded == kRemoteServer) return kRemoteServer;
        const bool remote_first = asked ? loaded != 0 : (types_ & kRemoteServer) != 0;
        if (remote_first && can_connect(path, kRemoteServer)) return kRemoteServer;
        if (can_connect(path, kLocalServer)) return kLocalServer;
        const bool remote_last = !asked && !remote_first;
        return remote_last && can_connect(path, kRemoteServer) ? kRemoteServer : kNone;
    } catch (const std::exception& fault) {
        note(fault);
        return kNone;
    }
}

// Returns true for a new connection.
bool AdvantageEngine::connect_for(const std::string& folder) {
    if (connection_ != 0 && connected_among_ != types_) {
        // A table that fails is gone with the connection all the same; last_error() has the reason.
        for_each_table([](ClientTable& table) { return table.shut(); });
        disconnect();
    }
    if (tables_.empty() && connected_folder_ != folder) disconnect();
    if (connection_ != 0) return false;
    require(set_types(types_), "connect", folder);
    Status status = kSuccess;
    for (const U16 type : types_in(types_)) {
        Handle connection = 0;
        status = connect(folder, type, connection);
        if (status != kSuccess) continue;
        connection_ = connection;
        connected_type_ = type;
        connected_among_ = types_;
        connected_folder_ = folder;
        return true;
    }
    throw EngineFault(FaultCode::kInputOutput, "connect",
                      told(status, folder) + "; start the database server for this folder",
                      static_cast<int>(status));
}

bool AdvantageEngine::is_remote() const {
    return connection_ != 0 && (connected_type_ & kLocalServer) == 0;
}

Status AdvantageEngine::disconnect() noexcept {
    const Handle connection = std::exchange(connection_, Handle{0});
    return connection != 0 ? library_->AdsDisconnect(connection) : kSuccess;
}

void AdvantageEngine::lose_connection() noexcept {
    for (ClientTable* table : std::exchange(tables_, {})) table->lose();
    disconnect();
}

bool AdvantageEngine::still_answers(Handle table) const noexcept {
    U32 count = 0;
    return library_->AdsGetRecordCount(table, kIgnoreFilters | kRefreshCount, &count) == kSuccess;
}

// A table whose handle fails while another one answers is lost alone. A handle that no table has
// any more was lost before.
bool AdvantageEngine::answers(Handle table) noexcept {
    const auto has_handle = [&](const ClientTable* one) { return one->handle() == table; };
    const auto own = std::find_if(tables_.begin(), tables_.end(), has_handle);
    if (own == tables_.end()) return false;
    if (still_answers(table)) return true;
    const auto other = std::find_if_not(tables_.begin(), tables_.end(), has_handle);
    if (other == tables_.end() || !still_answers((*other)->handle())) {
        lose_connection();
    } else {
        ClientTable& lost = **own;
        tables_.erase(own);
        lost.lose();
        library_->AdsCloseTable(table);
    }
    return false;
}

// True if the connection was dropped, because nothing uses it or nothing answers through it.
bool AdvantageEngine::drop_doubtful_connection() {
    if (!tables_.empty() && answers((*tables_.begin())->handle())) return false;
    disconnect();
    return connection_ == 0;
}

// -- Tables.

Status AdvantageEngine::open_once(const std::string& path, TableSharing sharing, U16 characters,
                                  U16 table_type, Handle& table) {
    const ClientLibrary& api = client();
    const U16 locking = proprietary_locking_ ? kProprietaryLocking : kCompatibleLocking;
    const U32 options = sharing == TableSharing::kExclusive ? kExclusive : kShared;
    Status status = kDuplicateAlias;
    for (int attempt = 0; attempt < kAliasTries && status == kDuplicateAlias; ++attempt) {
        status = api.AdsOpenTable(connection_, path.c_str(), next_alias().c_str(), table_type,
                                  characters, locking, kCheckRights, options, &table);
        if (status != kSuccess && table != 0) api.AdsCloseTable(std::exchange(table, Handle{0}));
    }
    return status;
}

std::variant<Handle, Refusal> AdvantageEngine::open_handle(const std::string& path,
                                                           TableSharing sharing, U16 characters,
                                                           U16 table_type) {
    const ClientLibrary& api = client();
    const std::string file = clients_path(path);
    const std::string folder = folder_of(file);
    const bool is_new = connect_for(folder);
    Handle table = 0;
    Status status = open_once(file, sharing, characters, table_type, table);
    if (status != kSuccess) {
        Refusal answer = refusal(status, path);
        // An older connection may have died since, perhaps by the host's doing.
        if (answer.reason != RefusalReason::kNotPermitted || is_new ||
            !drop_doubtful_connection()) {
            return answer;
        }
        connect_for(folder);
        status = open_once(file, sharing, characters, table_type, table);
        if (status != kSuccess) return refusal(status, path);
    }
    constexpr U16 kNoReadAhead = 1;
    status = api.AdsCacheRecords(table, kNoReadAhead);
    if (status != kSuccess) {
        const std::string text = told(status, path);
        close_handle(table);
        throw EngineFault(FaultCode::kInputOutput, "open", text, static_cast<int>(status));
    }
    return table;
}

OpenAnswer AdvantageEngine::open(const std::string& path, TableSharing sharing, int controlling) {
    client();
    try {
        return AdvantageTable::open(*this, path, sharing, controlling);
    } catch (const EngineFault& fault) {
        last_error_ = fault.what();
        if (!is_damage(fault)) throw;
        return damaged(fault);
    }
}

// A handle that stays open would keep its locks, so a failure is looked into. Another table is
// asked first, because this handle may be closed all the same. Without an answer the connection
// goes, and the handle with it.
Status AdvantageEngine::close_handle(Handle table) noexcept {
    const Status status = library_->AdsCloseTable(table);
    if (status == kSuccess) return status;
    if (tables_.empty() || !still_answers((*tables_.begin())->handle())) {
        lose_connection();
    } else if (still_answers(table)) {
        library_->AdsCloseTable(table);
    }
    return status;
}

void AdvantageEngine::keep_durable(Handle table, const std::string& path) {
    if (!full_durability_ || is_remote()) return;
    const ClientLibrary& api = client();
    if (api.AdsFlushFileBuffers == nullptr) return;
    require(api.AdsFlushFileBuffers(table), "write to the disk", path, table);
}

template <class Step>
int AdvantageEngine::for_each_table(Step step) noexcept {
    int first = 0;
    std::string about_first;
    // A step may dismiss this table and others.
    for (auto at = tables_.begin(); at != tables_.end();) {
        ClientTable* const table = *at;
        int status = 0;
        try {
            status = static_cast<int>(step(*table));
        } catch (const std::exception& fault) {
            status = note(fault);
        }
        at = tables_.upper_bound(table);
        if (first != 0 || status == 0) continue;
        first = status;
        about_first.swap(last_error_);
    }
    if (first != 0) last_error_.swap(about_first);
    return first;
}

int AdvantageEngine::write_all_records() {
    return for_each_table([](ClientTable& table) { return table.flush_status(); });
}

int AdvantageEngine::close_all_tables() {
    const int closed = for_each_table([](ClientTable& table) { return table.shut(); });
    const Status disconnected = disconnect();
    if (closed == 0) noted(disconnected, connected_folder_);
    put_settings_back();
    return closed != 0 ? closed : static_cast<int>(disconnected);
}

// -- What a status means.

std::string AdvantageEngine::told(Status status, const std::string& path) const {
    U32 code = 0;
    std::array<char, 512> buffer{};
    auto size = static_cast<U16>(buffer.size() - 1);
    library_->AdsGetLastError(&code, buffer.data(), &size);
    std::string text = code == status ? in_one_line(buffer.data()) : std::string();
    if (text.empty()) text = "the database client gives no reason";
    // The client may have named the file itself.
    if (text.find(path) == std::string::npos) text.insert(0, path + ": ");
    return text + " (status " + std::to_string(status) + ")";
}

Status AdvantageEngine::noted(Status status, const std::string& path) {
    if (status != kSuccess) last_error_ = told(status, path);
    return status;
}

int AdvantageEngine::note(const std::exception& fault) noexcept {
    const auto* known = dynamic_cast<const EngineFault*>(&fault);
    try {
        last_error_ = fault.what();
    } catch (const std::bad_alloc&) {
        last_error_.clear();
    }
    if (known == nullptr) return static_cast<int>(FaultCode::kInputOutput);
    return known->status() != 0 ? known->status() : static_cast<int>(known->code());
}

void AdvantageEngine::require(Status status, const char* operation, const std::string& path,
                              Handle table) {
    if (status == kSuccess) return;
    std::string text = told(status, path);
    if (table != 0 && !answers(table)) {
        text += "; the connection to the database is lost: start the session again";
    }
    throw EngineFault(tells_damage(status) ? FaultCode::kDamagedFile : FaultCode::kInputOutput,
                      operation, text, static_cast<int>(status));
}

Refusal AdvantageEngine::refusal(Status status, const std::string& path) {
    noted(status, path);
    const auto refused = [&](RefusalReason reason, FaultCode code) {
        return Refusal{reason, code, last_error_, static_cast<int>(status)};
    };
    if (tells_damage(status)) return refused(RefusalReason::kDamaged, FaultCode::kDamagedFile);
    if (status == kFileNotFound || status == kNoSuchFile) {
        return refused(RefusalReason::kMissing, FaultCode::kInputOutput);
    }
    // The client's status for a file that another user holds may also mean one that this user may
    // not open, or that there is none.
    switch (platform::File::open(path, platform::OpenMode::kReadWrite).failure()) {
        case platform::OpenFailure::kMissing:
            return refused(RefusalReason::kMissing, FaultCode::kInputOutput);
        case platform::OpenFailure::kDenied:
            return refused(RefusalReason::kNotPermitted, FaultCode::kInputOutput);
        default:
            break;
    }
    return status == kNotOpened || status == kRefusedBySystem
               ? refused(RefusalReason::kHeld, FaultCode::kBusy)
               : refused(RefusalReason::kNotPermitted, FaultCode::kInputOutput);
}

}  // namespace brenik::advantage
