// Relations between slots: a move of the parent moves its targets.
//
// A table calls its follower after every move, and only a table with relations has a follower.
// Targets move by the same public methods as for any caller, so that relations from a target follow
// in turn. Relations never form a cycle: add_relation() refuses one that would close it.

#include <algorithm>

#include "engine/orders.h"
#include "engine/work_areas.h"

namespace brenik {
namespace {

void limit_to(Table& target, const Value& value) {
    target.set_scope(ScopeEnd::kTop, value);
    target.set_scope(ScopeEnd::kBottom, value);
}

// The limited order may no longer be the controlling one.
void end_limit(Table& target, const Relation& relation) {
    const std::size_t controlling = target.order_number();
    if (relation.limited_order.empty() || !set_order(target, relation.limited_order)) return;
    limit_to(target, {});
    target.set_order(controlling);
}

}  // namespace

// No record equals NULL, so the limit is then the blank key, as past the parent's end.
void WorkAreas::limit(Slot& target, Relation& relation, Value value) {
    Table& table = *target.table;
    const std::size_t controlling = table.order_number();
    const std::string_view order = table.order_name(controlling);
    if (order != relation.limited_order) end_limit(table, relation);
    relation.limited_order = order;
    if (value.is_nil()) {
        table.go_to(0);
        value = target.expressions.key_value(controlling);
    }
    limit_to(table, value);
}

std::vector<Relation> WorkAreas::relations(int area) const {
    const auto found = slots_.find(area);
    return found == slots_.end() ? std::vector<Relation>() : found->second.relations;
}

void WorkAreas::add_relation(int area, Relation relation) {
    Slot& parent = slot(area, "SETRELATION");
    slot(relation.target, "SETRELATION");
    if (leads_to(relation.target, area)) {
        throw EngineFault(FaultCode::kUnsupported, "SETRELATION",
                          "relation " + relation.expression + ": work area " +
                              std::to_string(relation.target) + " leads back to work area " +
                              std::to_string(area));
    }
    follow(parent, relation);
    std::vector<Relation>& kept = parent.relations;
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
    parent.table->set_follower([this, area] { follow(area); });
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
    Slot& parent = slots_.at(area);
    for (Relation& relation : parent.relations) follow(parent, relation);
}

// Past the parent's end there is no value to seek, so the target moves to its end too.
void WorkAreas::follow(Slot& parent, Relation& relation) {
    Slot& target_slot = slot(relation.target, "SETRELATION");
    Table& target = *target_slot.table;
    const Value value = parent.expressions.evaluate(relation.expression);
    const bool ordered = target.order_number() != 0;
    if (ordered && relation.scoped) limit(target_slot, relation, value);
    if (parent.table->end_of_file() || value.is_nil()) {
        target.go_to(0);
    } else if (ordered) {
        target.seek(value, SeekMode::kHard, SeekEnd::kFirst);
    } else {
        target.go_to(to_record_number(value.whole()));
    }
}

// Also restores the limits that other parents set on the target.
void WorkAreas::release_target(const Relation& relation) {
    const auto found = slots_.find(relation.target);
    if (!relation.scoped || found == slots_.end()) return;
    end_limit(*found->second.table, relation);
    for (auto& [number, slot] : slots_) {
        for (Relation& other : slot.relations) {
            if (other.target == relation.target && other.scoped) follow(slot, other);
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
