// Acquires the system table for maintenance, step by step.

#include "data/exclusive.h"

#include "c_source/MiscFW.h"
#include "data/close_all.h"
#include "data/companion.h"
#include "data/net_use.h"
#include "engine/selected_area.h"
#include "fwp/fault_file.h"
#include "util/runtime.h"

namespace brenik {

namespace {

constexpr std::size_t kComparedField = 10;

void close_companion(const Session& session) {
    if (BATISRUNNING(session)) RUNTHEBAT(session, kCloseCompanionTables);
}

void tell(Session& session, const char* text) {
    session.ui.message_box(text, {}, platform::Icon::kInformation);
}

bool open_system_table(Session& session, bool exclusive) {
    session.areas.select(kSystemArea);
    return NET_USE(session, practice::kSystem.file, {.exclusive = exclusive});
}

// Empty if the table has fewer fields.
std::string compared_name(Session& session, int area) {
    const auto& fields = session.areas.table(area, "SAMELAXSYS").fields();
    return fields.size() < kComparedField ? std::string() : fields[kComparedField - 1].name;
}

}  // namespace

bool GET_EXCLUSIVE(Session& session) {
    close_companion(session);
    WorkAreas& areas = session.areas;
    areas.select(kSystemArea);
    const bool was_open = areas.alias() == practice::kSystem.alias;
    const std::string table = session.data_path() + practice::kSystem.file;
    areas.open(table, {}, TableSharing::kExclusive);
    if (!areas.network_error()) return true;
    note_fault(session, "GET_EXCLUSIVE", areas.refusal());
    ERRBEEP(session.ui,
            "Warning\r\nThis operation must have exclusive control of files and someone else is "
            "using Brenik.\r\nPlease have them exit Brenik and Retry",
            "Sharing Violation");
    // The result is false whether or not the shared open succeeds.
    if (was_open) static_cast<void>(NET_USE(session, table + ".DBF"));
    return false;
}

bool CLOSEMOST(Session& session, bool exclusive, bool quiet) {
    if (!quiet) close_companion(session);
    if (exclusive && !open_system_table(session, true)) {
        tell(session,
             "Unable to open LAWSYS.DBF exclusively.\r\nSomeone else on the network is in LAW.");
        const bool shared_use = session.setting(Setting::SharedUse).logical();
        static_cast<void>(open_system_table(session, !shared_use));
        return false;
    }
    CLOSEALL(session);
    if (open_system_table(session, exclusive)) return true;
    tell(session, "Unable to re-open LAWSYS.DBF");
    return false;
}

bool SAMELAXSYS(Session& session) {
    WorkAreas& areas = session.areas;
    const SelectedArea restored(areas, areas.current());
    const bool opened = areas.area_of(practice::kSystem.alias) == 0;
    if (opened && !NET_USE(session, practice::kSystem.file,
                           {.alias = practice::kSystem.alias, .where = OpenIn::kNewArea})) {
        return ERRBEEP(session.ui, "Unable to open Lawsys.dbf.");
    }
    const int system_area = areas.area_of(practice::kSystem.alias);
    const bool same = begins_with(compared_name(session, areas.area_of("NEWSYS")),
                                  compared_name(session, system_area));
    if (opened) {
        areas.select(system_area);
        areas.close();
    }
    return same;
}

}  // namespace brenik
