// Most helpers here make one or two calls to the engine.

#include "data/cmxfun.h"

#include <algorithm>
#include <utility>

#include "data/key_helpers.h"

namespace brenik {

int CMXAUTOORDER(Session& session, std::optional<int> order) {
    int& setting = session.areas.automatic_order;
    return std::exchange(setting, order.value_or(setting));
}

int CMXAUTOSHARE(Session& session, std::optional<int> share) {
    int& setting = session.areas.automatic_share;
    return std::exchange(setting, share.value_or(setting));
}

void CMXCLRSCOPE(Session& session, ScopeEnd end) {
    session.areas.table("CMXCLRSCOPE").set_scope(end, Value());
}

std::size_t CMXCOUNT(Session& session, const std::optional<std::string>& index_file) {
    const Table& table = session.areas.table("CMXCOUNT");
    if (!index_file) return table.order_count();
    return table.orders_of(session.path_of(*index_file)).size();
}

ArrayReference CMXINDEXINFO(Session& session) {
    const Table& table = session.areas.table("CMXINDEXINFO");
    auto rows = std::make_shared<Array>();
    for (std::size_t number = 1; number <= table.order_count(); ++number) {
        const OrderDescription order = table.order_description(number);
        rows->push_back(
            Value::array({order.name, order.key, order.condition, order.unique || order.candidate,
                          order.descending, order.custom}));
    }
    return rows;
}

std::size_t CMXKEYCOUNT(Session& session, const Value& order, const std::string& index_file) {
    return count_keys(session, "CMXKEYCOUNT", order, index_file, KeySet::kWhole);
}

std::size_t CMXKEYNO(Session& session, const Value& order, const std::string& index_file) {
    return key_position(session, "CMXKEYNO", order, index_file, KeySet::kWhole);
}

void CMXKEYGOTO(Session& session, std::int64_t position) {
    Table& table = session.areas.table("CMXKEYGOTO");
    table.go_top();
    table.skip(std::max(position, std::int64_t{0}) - 1);
}

bool CMXSEEKLAST(Session& session, const Value& key, SeekMode mode) {
    return session.areas.table("CMXSEEKLAST").seek(key, mode, SeekEnd::kLast);
}

void CMXSETRELATION(Session& session, int target, const std::string& text) {
    WorkAreas& areas = session.areas;
    areas.table("CMXSETRELATION");
    areas.add_relation(areas.current(), {target, text, true});
}

Value CMXSETSCOPE(Session& session, ScopeEnd end, const std::optional<Value>& value) {
    Table& table = session.areas.table("CMXSETSCOPE");
    Value previous = table.scope(end);
    if (value) table.set_scope(end, *value);
    return previous;
}

bool CMXSHARED(Session& session, std::optional<bool> shared) {
    bool& flag = session.areas.shared_flag("CMXSHARED");
    return std::exchange(flag, shared.value_or(flag));
}

void CLEARFILTER(Session& session) {
    session.areas.expressions("CLEARFILTER").set_filter({});
    session.related_queries.erase(session.areas.current());
}

}  // namespace brenik
