// Writes pending changes before it closes any table.

#include "data/close_all.h"

#include "fwp/fault_file.h"

namespace brenik {

namespace {

void note_status(Session& session, int status) {
    if (status != 0) note_fault(session, "CLOSEALL", session.areas.engine().last_error());
}

// Ending a scoped relation can move its target once more, and that move can fail.
void clear_relations(Session& session, int area) {
    try {
        session.areas.clear_relations(area);
    } catch (const EngineFault& fault) {
        note_fault(session, "CLOSEALL", fault.what());
    }
}

}  // namespace

void CLOSEALL(Session& session) {
    WorkAreas& areas = session.areas;
    for (int area = 1; area <= kMaxWorkArea; ++area) clear_relations(session, area);
    note_status(session, areas.write_all_records());
    session.recover();  // drops what could not be written: closing would try, and wait, again
    areas.close_all();
    note_status(session, areas.close_all_tables());
    session.related_queries.clear();
}

}  // namespace brenik
