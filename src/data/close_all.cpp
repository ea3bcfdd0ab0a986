// The order of closing: writes first, so that nothing pending meets a closed table.

#include "data/close_all.h"

namespace brenik {

void CLOSEALL(Session& session) {
    WorkAreas& areas = session.areas;
    for (int area = 1; area <= kMaxWorkArea; ++area) areas.clear_relations(area);
    areas.engine().write_all_records();
    areas.close_all();
    areas.engine().close_all_tables();
}

}  // namespace brenik
