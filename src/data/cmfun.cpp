// Filters, visible keys, and a browser's skip.

#include "data/cmfun.h"

#include "data/cmxfun.h"
#include "data/key_helpers.h"

namespace brenik {

namespace {

std::int64_t skip_forward(Table& table, std::int64_t count) {
    std::int64_t moved = 0;
    while (moved < count && !table.end_of_file()) {
        table.skip(1);
        if (table.end_of_file()) {
            table.skip(-1);
            break;
        }
        ++moved;
    }
    return moved;
}

std::int64_t skip_backward(Table& table, std::int64_t count) {
    std::int64_t moved = 0;
    while (moved > count) {
        table.skip(-1);
        if (table.beginning_of_file()) break;
        --moved;
    }
    return moved;
}

void filter(Session& session, const char* routine, const std::string& expression) {
    session.areas.expressions(routine).set_filter(Value(expression).empty() ? std::string()
                                                                            : expression);
}

}  // namespace

void SETFILTER(Session& session, const std::string& expression) {
    filter(session, "SETFILTER", expression);
}

void CMFILTER(Session& session, const std::string& expression) {
    filter(session, "CMFILTER", expression);
}

void CMCLRFILTER(Session& session) {
    WorkAreas& areas = session.areas;
    if (!areas.expressions("CMCLRFILTER").filter().empty()) CLEARFILTER(session);
    if (areas.table("CMCLRFILTER").order_number() != 0) CLEARFILTER(session);
}

std::size_t CMKEYCOUNT(Session& session, const Value& order, const std::string& index_file) {
    return count_keys(session, "CMKEYCOUNT", order, index_file, KeySet::kVisible);
}

std::size_t CMKEYNO(Session& session, const Value& order, const std::string& index_file) {
    return key_position(session, "CMKEYNO", order, index_file, KeySet::kVisible);
}

int RLOPTLEVEL(Session& session) {
    switch (session.areas.table("RLOPTLEVEL").filter_optimisation()) {
        case FilterOptimisation::kNone:
            return 0;
        case FilterOptimisation::kPartial:
            return 1;
        case FilterOptimisation::kFull:
            return 2;
    }
    return 0;
}

std::int64_t DBSKIPPER(Session& session, std::int64_t count) {
    Table& table = session.areas.table("DBSKIPPER");
    if (table.record_count() == 0) return 0;
    if (count == 0) table.skip(0);
    return count > 0 ? skip_forward(table, count) : skip_backward(table, count);
}

namespace second_variant {

void CLEARFILTER(Session& session) { session.areas.expressions("CLEARFILTER").set_filter({}); }

}  // namespace second_variant

}  // namespace brenik
