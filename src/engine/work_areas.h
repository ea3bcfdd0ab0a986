// Numbered slots that hold the session's open tables, one of them current.
//
// Hosts and operations name tables by slot number; the library's routines also by alias. This is
// plain code over the Engine and Table interfaces, shared by every engine. Questions about an empty
// slot have neutral answers (no alias, record 0 of 0, end of file); anything that needs a table
// there is EngineFault kEmptyWorkArea with the operation's name.

#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/engine.h"
#include "engine/table_expressions.h"

namespace brenik {

inline constexpr int kMaxWorkArea = 150;

// Which slot a table is opened in: the current one, closing what was there, or the lowest free one,
// which becomes current.
enum class OpenIn { kCurrentArea, kNewArea };

// The target follows its parent: after every move of the parent it is positioned by the value of
// the expression, which is sought in its controlling order or, in physical order, taken as a record
// number. A scoped relation also limits that order to the keys that equal the value.
struct Relation {
    int target = 0;  // work area
    std::string expression;
    bool scoped = false;
    std::string limited_order = {};  // the one that it limits, named by WorkAreas
};

class WorkAreas {
  public:
    WorkAreas() = default;
    WorkAreas(const WorkAreas&) = delete;
    WorkAreas& operator=(const WorkAreas&) = delete;

    // -- The engine that opens the tables from now on. REQUIRES: every slot is empty.
    void set_engine(Engine& engine) { engine_ = &engine; }
    bool has_engine() const { return engine_ != nullptr; }
    // EngineFault kEmptyWorkArea when there is none yet.
    Engine& engine() const;
    // The engine's status calls; 0 when there is no engine yet.
    int write_all_records() { return engine_ ? engine_->write_all_records() : 0; }
    int close_all_tables() { return engine_ ? engine_->close_all_tables() : 0; }
    // Where relative names of tables and index files lie, with its trailing separator. While it is
    // empty they lie in the process's current folder, and bare names of index files beside their
    // table.
    const std::string& default_folder() const { return default_folder_; }
    void set_default_folder(const std::string& folder) { default_folder_ = folder; }
    std::string path_of(const std::string& file) const;

    // -- Slots.
    int current() const { return current_; }
    void select(int area) { current_ = area; }
    // Number of the slot that holds the alias (case-insensitive), 0 when none does.
    int area_of(std::string_view alias) const;
    // As area_of, where a number in text ("5") names the slot itself, used or not (1 to 150).
    int area_named(std::string_view name) const;
    int lowest_free() const;  // 0 when all are in use
    bool used() const { return used(current_); }
    bool used(int area) const { return slots_.contains(area); }
    std::string alias() const { return alias(current_); }  // as opened; empty on an empty slot
    std::string alias(int area) const;

    // Without an alias the file's base name in upper case is used. Sets the network error flag; on
    // failure the slot stays empty (and current). No free slot is EngineFault kLimit.
    void open(const std::string& path, const std::optional<std::string>& alias,
              TableSharing sharing, OpenIn where = OpenIn::kCurrentArea);
    // Why the last open, or add_orders, was refused; empty when it was not.
    const std::string& refusal() const { return refusal_; }
    // For an open that turns out to be of no use after all: the slot is empty and the flag set.
    void refuse();
    // Closing a table also ends the relations that lead to it.
    void close();
    void close_all();

    // The network error flag: true after an open or append that failed for sharing reasons.
    bool network_error() const { return network_error_; }

    // -- The table of a slot; `operation` names the caller should the slot be empty.
    Table& table(std::string_view operation) { return table(current_, operation); }
    Table& table(int area, std::string_view operation);

    // -- What callers set for the tables, kept here for every engine alike.
    // Which order of an index file becomes controlling when its orders are attached: 0 none, a
    // number that the file does not have none either.
    int automatic_order = 1;
    // Kept for callers that ask for it again: tables are opened the way the caller says.
    int automatic_share = 0;
    // The current table's shared flag: how it was opened, until it is set. It is a mark that
    // callers read; setting it changes nothing about the open files and their locks.
    bool& shared_flag(std::string_view operation) { return slot(operation).shared; }
    // Expressions over the current table's fields, and its filter.
    TableExpressions& expressions(std::string_view operation) {
        return slot(operation).expressions;
    }
    // Attaches the orders of an index file to the current table; false, with refusal() set, when
    // the file cannot be had.
    [[nodiscard]] bool add_orders(const std::string& file);

    // -- Questions with neutral answers on an empty slot.
    RecordNumber record_number();
    RecordNumber record_count();
    bool end_of_file();
    std::string order_name();
    // 1-based position of a field in the current table (case-insensitive), 0 when it has none.
    std::size_t field_position(std::string_view name) { return field_position(current_, name); }
    std::size_t field_position(int area, std::string_view name);

    // -- Fields by name; an unknown name is EngineFault kUnknownName.
    Value field(int area, std::string_view name);
    void set_field(int area, std::string_view name, const Value& value);

    // Each appends to the current slot and sets the network error flag, which a key that is taken
    // does not.
    void append_blank(bool release_other_locks, LockTry attempt = LockTry::kAtOnce);
    Table::Added add_record(LockTry attempt, std::size_t distinct = 0);

    // -- Relations out of a slot, in the order in which they were added.
    // Also takes away the scopes that scoped relations have set. Nothing on an empty slot.
    void clear_relations(int area);
    // Positions the target at once. A relation to a target that the slot is related to already
    // takes the old one's place. EngineFault, with everything as it was: an expression that does
    // not compile or does not suit the target's order, an empty target, and a target from which
    // relations lead back to this slot.
    void add_relation(int area, Relation relation);
    std::vector<Relation> relations(int area) const;

    // Gives up every lock in every slot, ignoring what fails: the way back after a fault.
    void release_all_locks() noexcept;

  private:
    struct Slot {
        std::string alias;
        std::unique_ptr<Table> table;
        TableExpressions expressions;
        bool shared;
        std::vector<Relation> relations = {};
    };

    Slot& slot(std::string_view operation) { return slot(current_, operation); }
    Slot& slot(int area, std::string_view operation);

    bool leads_to(int from, int area) const;
    void follow(int area);
    void follow(Slot& parent, Relation& relation);
    static void limit(Slot& target, Relation& relation, Value value);
    void release_target(const Relation& relation);
    void end_relations_to(int area);

    Engine* engine_ = nullptr;
    std::string default_folder_;
    std::map<int, Slot> slots_;
    int current_ = 1;
    bool network_error_ = false;
    std::string refusal_;
};

}  // namespace brenik
