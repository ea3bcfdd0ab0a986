// Relations between slots: a parent's moves take its targets along.
//
// A table tells its follower of every move, and only tables with relations out of them have one.
// Targets are moved by the same public moves as by anybody else, so that relations out of a target
// follow in turn. They never lead in a circle: add_relation() refuses what would close one.

#include <algorithm>
#include <limits>

#include "engine/work_areas.h"

namespace brenik {
namespace {

RecordNumber record_number_of(const Value& value) {
    const std::int64_t number = value.whole();
    const bool possible = number > 0 && number <= std::numeric_limits<RecordNumber>::max();
    return possible ? static_cast<RecordNumber>(number) : 0;
}

void limit_to(Table& target, const Value& value) {
    target.set_scope(ScopeEnd::kTop, value);
    target.set_scope(ScopeEnd::kBottom, value);
}

// The order that was limited need not be the controlling one any more.
void end_limit(Table& target, const Relation& relation) {
    const std::size_t controlling = target.order_number();
    if (relation.limited_order.empty() || !target.set_order(relation.limited_order)) return;
    limit_to(target, {});
    target.set_order(controlling);
}

// No record equals NULL: the limit is then the blank key, as at the parent's end.
void limit(Table& target, Relation& relation, Value value) {
    const std::size_t controlling = target.order_number();
    const std::string order = target.order_name(controlling);
    if (order != relation.limited_order) end_limit(target, relation);
    relation.limited_order = order;
    if (value.is_nil()) {
        target.go_to(0);
        value = target.key_value(controlling);
    }
    limit_to(target, value);
}

}  // namespace

std::vector<Relation> WorkAreas::relations(int area) const {
    const auto found = slots_.find(area);
    return found == slots_.end() ? std::vector<Relation>() : found->second.relations;
}

void WorkAreas::add_relation(int area, Relation relation) {
    Table& parent = table(area, "SETRELATION");
    table(relation.target, "SETRELATION");
    if (leads_to(relation.target, area)) {
        throw EngineFault(FaultCode::kUnsupported, "SETRELATION",
                          "relation " + relation.expression + ": work area " +
                              std::to_string(relation.target) + " leads back to work area " +
                              std::to_string(area));
    }
    follow(parent, relation);
    std::vector<Relation>& kept = slots_[area].relations;
    const auto old = std::find_if(kept.begin(), kept.end(), [&](const Relation& one) {
        return one.target == relation.target;
    });
    if (old == kept.end()) {
        kept.push_back(std::move(relation));
    } else {
        std::swap(*old, relation);
        release_target(relation);
        follow(parent, *old);
    }
    parent.set_follower([this, area] { follow(area); });
}

void WorkAreas::clear_relations(int area) {
    const auto found = slots_.find(area);
    if (found == slots_.end() || found->second.relations.empty()) return;
    found->second.table->set_follower({});
    for (const Relation& relation : std::exchange(found->second.relations, {})) {
        release_target(relation);
    }
}

bool WorkAreas::leads_to(int from, int area) const {
    if (from == area) return true;
    const std::vector<Relation> further = relations(from);
    return std::any_of(further.begin(), further.end(),
                       [&](const Relation& relation) { return leads_to(relation.target, area); });
}

void WorkAreas::follow(int area) {
    Slot& slot = slots_.at(area);
    for (Relation& relation : slot.relations) follow(*slot.table, relation);
}

// Past the parent's end there is no value to look for: the target goes to its end too.
void WorkAreas::follow(Table& parent, Relation& relation) {
    Table& target = table(relation.target, "SETRELATION");
    const Value value = parent.evaluate(relation.expression);
    const bool ordered = target.order_number() != 0;
    if (ordered && relation.scoped) limit(target, relation, value);
    if (parent.end_of_file() || value.is_nil()) {
        target.go_to(0);
    } else if (ordered) {
        target.seek(value, SeekMode::kHard, SeekEnd::kFirst);
    } else {
        target.go_to(record_number_of(value));
    }
}

// What other parents limit the target to holds again.
void WorkAreas::release_target(const Relation& relation) {
    const auto found = slots_.find(relation.target);
    if (!relation.scoped || found == slots_.end()) return;
    end_limit(*found->second.table, relation);
    for (auto& [number, slot] : slots_) {
        for (Relation& other : slot.relations) {
            if (other.target == relation.target && other.scoped) follow(*slot.table, other);
        }
    }
}

void WorkAreas::end_relations_to(int area) {
    for (auto& [number, slot] : slots_) {
        std::erase_if(slot.relations,
                      [&](const Relation& relation) { return relation.target == area; });
        if (slot.relations.empty()) slot.table->set_follower({});
    }
}

}  // namespace brenik
