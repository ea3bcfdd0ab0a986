// The slots: which table each holds, and the neutral values of an empty one.

#include "engine/work_areas.h"

#include <charconv>

#include "util/runtime.h"

namespace brenik {

namespace {

std::string base_name_upper(std::string_view path) {
    const std::size_t separator = path.find_last_of("\\/:");
    if (separator != std::string_view::npos) path.remove_prefix(separator + 1);
    return upper(path.substr(0, path.find_last_of('.')));
}

// 1-based position of a field in a list, 0 if it is absent.
std::size_t position_of(const std::vector<FieldDescription>& fields, std::string_view name) {
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (equal_ignoring_case(fields[i].name, name)) return i + 1;
    }
    return 0;
}

}  // namespace

int WorkAreas::area_of(std::string_view alias) const {
    for (const auto& [area, slot] : slots_) {
        if (equal_ignoring_case(slot.alias, alias)) return area;
    }
    return 0;
}

std::string WorkAreas::alias(int area) const {
    const auto found = slots_.find(area);
    return found == slots_.end() ? std::string() : found->second.alias;
}

int WorkAreas::area_named(std::string_view name) const {
    if (const int area = area_of(name); area != 0) return area;
    const std::string_view text = trim_both(name);
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && number >= 1 && number <= kMaxWorkArea ? number : 0;
}

int WorkAreas::lowest_free() const {
    for (int area = 1; area <= kMaxWorkArea; ++area) {
        if (!used(area)) return area;
    }
    return 0;
}

void WorkAreas::open(const std::string& path, const std::optional<std::string>& alias,
                     TableSharing sharing, OpenIn where) {
    if (where == OpenIn::kNewArea) {
        const int area = lowest_free();
        if (area == 0) throw EngineFault(FaultCode::kLimit, "open", path + ": no free work area");
        select(area);
    }
    close();
    network_error_ = true;
    refusal_.reset();
    OpenAnswer answer = engine().open(path_of(path), sharing, automatic_order);
    if (const auto* refusal = std::get_if<Refusal>(&answer)) {
        note(*refusal);
        return;
    }
    auto& table = std::get<std::unique_ptr<Table>>(answer);
    const std::string name = alias.value_or(base_name_upper(path));
    TableExpressions expressions(*table, name);
    slots_.emplace(current_, Slot{name, std::move(table), std::move(expressions),
                                  sharing == TableSharing::kShared});
    network_error_ = false;
}

bool WorkAreas::add_orders(const std::string& file) {
    refusal_.reset();
    const auto refusal = table("ADDORDERS").add_orders(path_of(file), automatic_order);
    if (refusal) note(*refusal);
    return !refusal;
}

// Damage is no conflict: a retry would meet it again.
void WorkAreas::note(const Refusal& refusal) {
    if (refusal.reason == RefusalReason::kDamaged) {
        throw EngineFault(refusal.code, "open", refusal.text, refusal.status);
    }
    refusal_ = refusal;
}

void WorkAreas::refuse() {
    close();
    network_error_ = true;
}

void WorkAreas::close() {
    if (!used()) return;
    end_relations_to(current_);
    clear_relations(current_);
    slots_.erase(current_);
}

void WorkAreas::close_all() { slots_.clear(); }

void WorkAreas::set_engine(Engine& engine) {
    if (calls_ > 0) {
        if (engine_) engine_->end_call();
        engine.begin_call();
    }
    engine_ = &engine;
}

void WorkAreas::require_driver(const std::string& name) const {
    if (equal_ignoring_case(name, driver_)) return;
    throw EngineFault(FaultCode::kUnknownName, "open table",
                      name + ": no such table driver" +
                          (driver_.empty() ? "; none is registered" : "; use " + driver_));
}

Engine& WorkAreas::engine() const {
    if (engine_) return *engine_;
    throw EngineFault(FaultCode::kEmptyWorkArea, "engine", "no session has been started");
}

std::string WorkAreas::path_of(const std::string& file) const {
    const bool absolute = file.find_first_of("\\/") == 0 || file.find(':') == 1;
    return absolute || file.empty() ? file : default_folder_ + file;
}

Table& WorkAreas::table(int area, std::string_view operation) {
    return *slot(area, operation).table;
}

WorkAreas::Slot& WorkAreas::slot(int area, std::string_view operation) {
    const auto found = slots_.find(area);
    if (found == slots_.end()) {
        throw EngineFault(FaultCode::kEmptyWorkArea, std::string(operation),
                          "work area " + std::to_string(area) + " holds no table");
    }
    return found->second;
}

RecordNumber WorkAreas::record_number() {
    return used() ? table("RECNO").record_number() : RecordNumber{0};
}

RecordNumber WorkAreas::record_count() {
    return used() ? table("RECCOUNT").record_count() : RecordNumber{0};
}

bool WorkAreas::end_of_file() { return !used() || table("EOF").end_of_file(); }

std::string WorkAreas::order_name() {
    if (!used()) return {};
    const Table& current = table("ORDNAME");
    return std::string(current.order_name(current.order_number()));
}

std::size_t WorkAreas::field_position(int area, std::string_view name) {
    return used(area) ? position_of(table(area, "FIELDPOS").fields(), name) : 0;
}

// Like position_of, but an absent field is a fault.
std::size_t WorkAreas::known_position(const Slot& slot, std::string_view name) {
    const std::size_t position = position_of(slot.table->fields(), name);
    if (position != 0) return position;
    throw EngineFault(FaultCode::kUnknownName, std::string(name),
                      slot.alias + " has no field " + std::string(name));
}

Value WorkAreas::field(int area, std::string_view name) {
    const Slot& owner = slot(area, name);
    return owner.table->field_get(known_position(owner, name));
}

void WorkAreas::set_field(int area, std::string_view name, const Value& value) {
    const Slot& owner = slot(area, name);
    owner.table->field_put(known_position(owner, name), value);
}

void WorkAreas::append_blank(bool release_other_locks, LockTry attempt) {
    network_error_ = !table("APPEND").append_blank(release_other_locks, attempt);
}

Table::Added WorkAreas::add_record(LockTry attempt, std::size_t distinct) {
    const Table::Added added = table("APPEND").add_record(attempt, distinct);
    network_error_ = added == Table::Added::kRefused;
    return added;
}

void WorkAreas::release_all_locks() noexcept {
    for (auto& [area, slot] : slots_) {
        // Unlocking would write out a half-changed record, so its changes are dropped first.
        slot.table->abandon_changes();
        try {
            slot.table->unlock_all();
        } catch (...) {
            // Even unlocking fails for this table; the others can still be unlocked.
        }
    }
}

}  // namespace brenik
