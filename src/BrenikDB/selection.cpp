// The shared prologue and the seek that several operations use.

#include "BrenikDB/selection.h"

#include "BrenikDB/codes.h"
#include "engine/orders.h"
#include "fwp/trace_log.h"

namespace brenik {

namespace {

constexpr int kLastTableNumber = 255;

}  // namespace

int select_table(Session& session, const std::string& operation, int table) {
    WorkAreas& areas = session.areas;
    if (table < 1 || table > kLastTableNumber) {
        trace(session, operation, [&] { return Array{operation + " nTable is out of range."}; });
        return kBadTable;
    }
    areas.select(table);
    // No blank separates alias and label: integrators' tools expect this form.
    trace(session, operation, [&] {
        return Array{operation + " in alias " + areas.alias() +
                     "reccount: " + std::to_string(areas.record_count())};
    });
    if (!areas.used()) {
        trace(session, operation, [&] { return Array{operation + " nTable is not used."}; });
        return kBadTable;
    }
    return kSuccess;
}

bool seek_in_order(Session& session, std::string_view order, const Value& key) {
    Table& table = session.areas.table("SEEK");
    if (set_order(table, order)) return table.seek(key, SeekMode::kHard, SeekEnd::kFirst);
    table.go_to(0);  // like any seek that finds nothing
    return false;
}

}  // namespace brenik
