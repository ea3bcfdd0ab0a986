// Selects the record of settings and restores the host's.

#include "RSData/system_record.h"

namespace brenik {

SystemRecord::SystemRecord(Session& session) {
    const RecordNumber wanted = session.module.system_record;
    if (wanted == 0 || !session.areas.used(kSystemArea)) return;
    Table& table = session.areas.table(kSystemArea, "GOTO");
    const RecordNumber now = table.end_of_file() ? 0 : table.record_number();
    if (now == wanted) return;
    before_ = now;
    table.go_to(wanted);
    moved_ = &table;
}

SystemRecord::~SystemRecord() {
    if (!moved_) return;
    try {
        moved_->go_to(before_);
    } catch (const EngineFault&) {
        // The fault that ended the scope, or a similar one, already propagates to the caller.
    }
}

}  // namespace brenik
