// Saves and restores the parts of a navigation state.

#include "data/savedbf.h"

#include <algorithm>
#include <array>

#include "data/cmfun.h"
#include "data/cmxfun.h"

namespace brenik {

namespace {

enum Entry : std::size_t {
    kRelations = 1,
    kTopScope = 2,
    kBottomScope = 3,
    kRecord = 4,
    kOrder = 5,
    kAlias = 6,
    kFilter = 7,
    kTargetRecords = 9,
    kEntries = 9,
};

// persistent: only these pairs of work areas are related by scope.
constexpr std::array kScopedParents{kNamesArea, kMattersArea};
constexpr std::array kScopedTargets{kNotesArea, kSecondNotesArea, kCrossReferenceArea, 18};

// An element of a saved list, counted from 1; nil if the list is shorter.
Value element(const Value& list, std::size_t number) {
    const ArrayReference& elements = list.array();
    return elements && number <= elements->size() ? (*elements)[number - 1] : Value();
}

std::size_t length(const Value& list) { return list.array() ? list.array()->size() : 0; }

int area_in(const Value& value) {
    const std::int64_t area = value.whole();
    return area > 0 && area <= kMaxWorkArea ? static_cast<int>(area) : 0;
}

template <class List>
bool contains(const List& list, int area) {
    return std::find(list.begin(), list.end(), area) != list.end();
}

void restore_relation(Session& session, int target, const std::string& text) {
    WorkAreas& areas = session.areas;
    const int area = areas.current();
    if (contains(kScopedParents, area) && contains(kScopedTargets, target)) {
        CMXSETRELATION(session, target, text);
    } else {
        areas.add_relation(area, {target, text});
    }
}

void restore_relations(Session& session, const Value& relations) {
    session.areas.clear_relations(session.areas.current());
    for (std::size_t i = 1; i <= length(relations); ++i) {
        const Value pair = element(relations, i);
        const int target = area_in(element(pair, 1));
        if (session.areas.used(target)) restore_relation(session, target, element(pair, 2).text());
    }
}

void restore_order(Session& session, const Value& state) {
    Table& table = session.areas.table("RESTDBF");
    const std::int64_t order = element(state, kOrder).whole();
    if (order < 0 || !table.set_order(static_cast<std::size_t>(order))) {
        table.set_order(0);
        return;
    }
    CMXSETSCOPE(session, ScopeEnd::kTop, element(state, kTopScope));
    CMXSETSCOPE(session, ScopeEnd::kBottom, element(state, kBottomScope));
}

void restore_filter(Session& session, const Value& filter) {
    if (filter.empty()) {
        CLEARFILTER(session);
    } else {
        SETFILTER(session, filter.text());
    }
}

void restore_targets(Session& session, const Value& state) {
    const Value relations = element(state, kRelations);
    for (std::size_t i = 1; i <= length(relations); ++i) {
        const int target = area_in(element(element(relations, i), 1));
        const RecordNumber record =
            to_record_number(element(element(state, kTargetRecords), i).whole());
        if (session.areas.used(target)) session.areas.table(target, "RESTDBF").go_to(record);
    }
}

}  // namespace

Value SAVEDBF(Session& session) {
    WorkAreas& areas = session.areas;
    if (!areas.used() || CMXCOUNT(session) == 0) return {};
    Table& table = areas.table("SAVEDBF");
    Array relations;
    Array target_records;
    for (const Relation& relation : areas.relations(areas.current())) {
        relations.push_back(Value::array({relation.target, relation.expression}));
        target_records.push_back(areas.table(relation.target, "SAVEDBF").record_number());
    }
    Array state(kEntries);
    state[kRelations - 1] = Value::array(std::move(relations));
    state[kTopScope - 1] = table.scope(ScopeEnd::kTop);
    state[kBottomScope - 1] = table.scope(ScopeEnd::kBottom);
    state[kRecord - 1] = table.end_of_file() ? RecordNumber{0} : table.record_number();
    state[kOrder - 1] = static_cast<std::int64_t>(table.order_number());
    state[kAlias - 1] = areas.alias();
    state[kFilter - 1] = areas.expressions("SAVEDBF").filter();
    state[kTargetRecords - 1] = Value::array(std::move(target_records));
    return Value::array(std::move(state));
}

bool RESTDBF(Session& session, const Value& state, bool) {
    WorkAreas& areas = session.areas;
    const int area = areas.area_of(element(state, kAlias).text());
    if (area == 0) return false;
    areas.select(area);
    restore_relations(session, element(state, kRelations));
    restore_order(session, state);
    restore_filter(session, element(state, kFilter));
    areas.table("RESTDBF").go_to(to_record_number(element(state, kRecord).whole()));
    restore_targets(session, state);
    return true;
}

}  // namespace brenik
