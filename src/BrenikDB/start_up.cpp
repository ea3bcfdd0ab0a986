// Start-up step by step: variables, settings, engine, files, tables.

#include "BrenikDB/start_up.h"

#include <utility>

#include "BrenikDB/codes.h"
#include "BrenikDB/settings.h"
#include "data/ads.h"
#include "data/close_all.h"
#include "data/net_use.h"
#include "fwp/fault_file.h"
#include "fwp/profile_setting.h"
#include "fwp/trace_log.h"
#include "platform/file.h"
#include "platform/folders.h"
#include "platform/share.h"
#include "util/runtime.h"

namespace brenik {

namespace {

void make_variables(Session& session, bool trace_wanted) {
    const Date today = session.today();
    session.variables = SessionVariables{default_settings(today), today, "___", trace_wanted};
    session.buffer.reset();
    session.link_type.clear();
}

// Sets the default folder for the session's relative file names; the host's current folder stays
// unchanged. Closes the tables of a session in another folder, which would pass for this session's.
void set_data_path(Session& session, const std::string& data_path) {
    if (!Value(data_path).empty()) {
        std::string folder(trim_both(data_path));
        if (folder.back() != '\\') folder += '\\';
        store_setting(session, Setting::DataPath, folder);
    }
    const std::string resolved = platform::absolute_path(session.setting(Setting::DataPath).text());
    const std::string identity = platform::folder_identity(resolved);
    const std::string earlier = std::exchange(session.module.data_folder, identity);
    if (!earlier.empty() && earlier != identity) CLOSEALL(session);
    session.trace_log.close();
    session.areas.set_default_folder(resolved);
}

void empty_trace_log(const Session& session) {
    platform::File::open(trace_log_path(session), platform::OpenMode::kRewrite);
}

// Anything but a number of megabytes from 1 to 1000 leaves the engine's own choice.
void choose_index_cache(Session& session, Engine& engine) {
    const double megabytes = numeric_value(main_setting(session, "StartUp", "IndexCache")).amount;
    const bool chosen = megabytes >= 1 && megabytes <= 1000;
    engine.set_index_cache(chosen ? static_cast<std::size_t>(megabytes) << 20 : 0);
}

// Uses the engine that the practice asks for, with the local server. The tables of another engine
// are closed: they belong to it.
EngineChoice choose_engine(Session& session) {
    const Number server_type = GETSERVERTYPE(session, session.data_path());
    store_setting(session, Setting::ServerType, server_type);
    EngineChoice choice = session.choose_engine(
        {main_setting(session, "StartUp", practice::kEngineSetting), server_type.amount});
    if (!choice.warning.empty()) note_fault(session, "StartUp", choice.warning);
    if (session.leaves_engine(choice)) CLOSEALL(session);
    session.take_engine(choice).set_server_type(kLocalServer);
    return choice;
}

void choose_server(Session& session) {
    if (session.setting(Setting::ServerType).number() != kRemoteServer) return;
    const int usable = CHECKSERVER(session, kRemoteServer);
    store_setting(session, Setting::ServerType, usable);
    session.areas.engine().set_server_type(usable);
}

void set_up_engine(Session& session) {
    Engine& engine = session.areas.engine();
    engine.set_proprietary_locking(
        numeric_value(main_setting(session, "StartUp", practice::kLockTypeSetting)).amount == 1);
    engine.set_full_durability(
        equal_ignoring_case(main_setting(session, "StartUp", "Durability"), "full"));
    choose_index_cache(session, engine);
}

// The workstation's setting overrides the host's argument.
void choose_tracing(Session& session) {
    const std::string workstation = session.setting(Setting::WinIniFile).text();
    const std::string wanted =
        profile_setting(session, "StartUp", "MAIN", "APITracing", "", workstation);
    if (wanted == "1") session.variables.LTRACE = true;
    if (wanted == "0") session.variables.LTRACE = false;
}

// Refuses a share on which locks stay local: they would not protect against other workstations.
void require_sound_share(Session& session) {
    const std::string folder = session.data_path();
    const platform::ShareFacts share = platform::share_facts(folder);
    if (!share.unsound.empty()) {
        throw EngineFault(FaultCode::kUnsupported, "StartUp", folder + ": " + share.unsound);
    }
    if (!share.doubtful.empty()) {
        trace(session, "StartUp", [&] { return Array{folder + ": " + share.doubtful}; });
    }
}

bool has_file(Session& session, const practice::TableEntry& table, const char* extension) {
    const std::string path = session.data_path() + table.file + extension;
    if (platform::file_exists(path)) return true;
    const platform::File file = platform::File::open(path, platform::OpenMode::kSettings);
    write_fault_line(session, "StartUp", file.path() + ": " + file.why_not_open());
    return false;
}

int check_files(Session& session) {
    if (!has_file(session, practice::kSystem, ".DBF") ||
        !has_file(session, practice::kNames, ".DBF")) {
        trace(session, "StartUp", "Data files are missing.");
        return kDataFilesMissing;
    }
    if (!has_file(session, practice::kEvents, ".CDX") ||
        !has_file(session, practice::kNames, ".CDX")) {
        trace(session, "StartUp", "Index files are missing.");
        return kIndexFilesMissing;
    }
    return kSuccess;
}

// Only the field's type counts, not its content.
bool marks_newer_notes(Session& session) {
    WorkAreas& areas = session.areas;
    const std::size_t position = areas.field_position(practice::kNewerNotesField);
    return position != 0 && areas.table("StartUp").fields()[position - 1].type == 'L';
}

bool open_practice_table(Session& session, const practice::TableEntry& table) {
    session.areas.select(table.area);
    if (!NET_USE(session, session.data_path() + table.file,
                 {.alias = table.alias, .attach_index = true})) {
        return false;
    }
    if (table.area == kCodesArea) session.areas.table("StartUp").set_order(1);
    return true;
}

int open_tables(Session& session, const EngineChoice& choice) {
    session.areas.select(kSystemArea);
    if (!NET_USE(session, session.data_path() + practice::kSystem.file)) {
        trace(session, "StartUp", "Cannot open lawsys.");
        if (!choice.problem.empty()) note_fault(session, "StartUp", choice.problem);
        return kSystemTableNotOpened;
    }
    session.module.system_record = session.areas.end_of_file() ? 0 : session.areas.record_number();
    if (marks_newer_notes(session)) {
        session.module.notes_variant = true;
        trace(session, "StartUp", "Accessing v14 law1notes.");
    }
    const practice::TableEntry& notes =
        session.module.notes_variant ? practice::kNewerNotes : practice::kNotes;
    for (const practice::TableEntry& table :
         {practice::kNames, practice::kEvents, practice::kMatters, notes, practice::kCodes,
          practice::kJournal}) {
        if (!open_practice_table(session, table)) return kTableNotOpened;
    }
    return kSuccess;
}

}  // namespace

int StartUp(Session& session, const std::string& data_path, bool trace_wanted) {
    session.module.shut_down = false;
    make_variables(session, trace_wanted);
    RDDINIT(session);
    set_data_path(session, data_path);
    empty_trace_log(session);
    choose_tracing(session);  // first, so that unreadable settings are traced
    const EngineChoice choice = choose_engine(session);
    choose_server(session);
    set_up_engine(session);
    trace(session, "StartUp", session.setting(Setting::DataPath).text());
    require_sound_share(session);
    const int code = check_files(session);
    return code == kSuccess ? open_tables(session, choice) : code;
}

int ShutDown(Session& session) {
    if (session.module.shut_down) return kAlreadyShutDown;
    CLOSEALL(session);
    trace(session, "ShutDown", "Databases were closed.");
    session.module.shut_down = true;
    return kSuccess;
}

}  // namespace brenik
