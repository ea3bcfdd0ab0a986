// The open with retries, and start-up's check of the server.

#include "data/net_use.h"

#include "c_source/MiscFW.h"
#include "c_source/Strings.h"
#include "fwp/fault_file.h"
#include "fwp/profile_setting.h"
#include "platform/file.h"
#include "platform/folders.h"
#include "util/bytes.h"
#include "util/runtime.h"

namespace brenik {

namespace {

void log_missing_server(const Session& session, int loaded, int status) {
    const std::string lines = session.variables.MOPERATOR + "  Server not found " +
                              std::to_string(loaded) + "  nConnect: " + std::to_string(status) +
                              "\r\nDir = " + session.data_path() + "\r\n";
    const std::string path = session.data_path() + "lawtemp\\DataServer.log";
    platform::make_folder_of(path);
    try {
        platform::File log = platform::File::open(path, platform::OpenMode::kAppend);
        if (log.is_open()) log.write_at(log.size(), as_bytes(lines));
    } catch (const EngineFault&) {
        // The user sees a message anyway; a log that cannot be written must not stop start-up.
    }
}

void report_missing_remote_server(Session& session, int loaded, int status) {
    std::string message =
        "Note: The remote database server is not yet installed or cannot access this directory\r\n"
        "  " +
        session.data_path() +
        "\r\n\r\nPlease verify that it is installed and loaded on your server.\r\n"
        "For now, you will be using the Local Server.\r\n\r\n";
    log_missing_server(session, loaded, status);
    if (status != 0) message += "ADS Error: " + std::to_string(status);
    ERRBEEP(session.ui, message);
}

int check_local_server(Session& session) {
    Engine& engine = session.areas.engine();
    const int status = engine.set_server_type(kLocalServer);
    const int loaded = engine.server_loaded(session.data_path());
    if (loaded < kLocalServer) {
        ERRBEEP(session.ui, "Error: No Data Server is loaded!\r\n" + session.data_path() + "\r\n" +
                                CAST(status) + ",  " + CAST(loaded));
        return 0;
    }
    if (status != 0) ERRBEEP(session.ui, "ADS Error: " + std::to_string(status));
    return loaded;
}

}  // namespace

bool NET_USE(Session& session, const std::string& file, const NetUse& options) {
    // The area that was current before an open in a new area, which stays open after a fault.
    const bool beside = options.where == OpenIn::kNewArea && session.areas.used();
    const int kept = beside ? session.areas.current() : 0;
    try {
        if (open_with_retries(
                session, options,
                {std::string(trim_right(file)),
                 [](const Table& table, bool repeated) {
                     return repeated || !table.opened_orders_automatically();
                 },
                 [&session](platform::Cursor cursor) { session.ui.set_cursor(cursor); }})) {
            return true;
        }
        note_fault(session, "NET_USE", session.areas.refusal());
        return false;
    } catch (const EngineFault& fault) {
        // Every open fails alike without the engine's library, so start-up alone tells it.
        if (fault.code() != FaultCode::kNoEngine) note_fault(session, "NET_USE", fault.what());
    }
    if (session.areas.current() != kept) session.areas.close();
    session.ui.set_cursor(platform::Cursor::kArrow);
    return false;
}

Number GETSERVERTYPE(Session& session, const std::string& folder) {
    return numeric_value(profile_setting(session, "GETSERVERTYPE", practice::kMainSection,
                                         practice::kServerTypeSetting, "0",
                                         session.path_of(folder + practice::kSettingsFile)));
}

int CHECKSERVER(Session& session, int requested) {
    Engine& engine = session.areas.engine();
    const int status = engine.set_server_type(requested);
    if (requested == kRemoteServer) session.ui.set_cursor(platform::Cursor::kWait);
    int loaded = engine.server_loaded(session.data_path());
    if (requested == kRemoteServer && loaded < kRemoteServer) {
        report_missing_remote_server(session, loaded, status);
        loaded = kLocalServer;
        engine.set_server_type(kLocalServer);
    }
    const bool local = requested == kLocalServer || loaded == kLocalServer;
    return local ? check_local_server(session) : loaded;
}

}  // namespace brenik
