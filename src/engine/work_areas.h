// Numbered slots that hold the session's open tables, one of them current.
//
// Hosts and operations identify tables by slot number; the library's routines also by alias. This
// class uses only the Engine and Table interfaces, so every engine shares it. Queries on an empty
// slot return neutral values (no alias, record 0 of 0, end of file). An operation that needs a
// table in the slot throws EngineFault kEmptyWorkArea with the operation's name.

#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/engine.h"
#include "engine/table_expressions.h"

namespace brenik {

inline constexpr int kMaxWorkArea = 150;

// Which slot a table is opened in: the current one, whose table is closed first, or the lowest free
// one, which becomes current.
enum class OpenIn { kCurrentArea, kNewArea };

// A relation makes its target follow the parent. After every move of the parent the value of the
// expression is sought in the target's controlling order or, if the target is in physical order,
// taken as a record number. A scoped relation also limits that order to the keys that equal the
// value.
struct Relation {
    int target = 0;  // work area
    std::string expression;
    bool scoped = false;
    std::string limited_order = {};  // the order that it limits; set by WorkAreas
};

class WorkAreas {
  public:
    WorkAreas() = default;
    WorkAreas(const WorkAreas&) = delete;
    WorkAreas& operator=(const WorkAreas&) = delete;

    // -- The engine that opens the tables from now on. REQUIRES: every slot is empty.
    void set_engine(Engine& engine);
    bool has_engine() const { return engine_ != nullptr; }
    // EngineFault kEmptyWorkArea when no engine is set.
    Engine& engine() const;
    // A call of the host, as the engine sees it. A call that begins inside another one belongs to
    // it.
    class HostCall {
      public:
        explicit HostCall(WorkAreas& areas) : areas_(areas) {
            if (areas_.calls_ == 0 && areas_.engine_) areas_.engine_->begin_call();
            ++areas_.calls_;
        }
        HostCall(const HostCall&) = delete;
        HostCall& operator=(const HostCall&) = delete;
        ~HostCall() {
            if (--areas_.calls_ == 0 && areas_.engine_) areas_.engine_->end_call();
        }

      private:
        WorkAreas& areas_;
    };
    // A time within a call in which the host's own code runs. To the engine the call ends and then
    // begins again.
    class HostTurn {
      public:
        explicit HostTurn(WorkAreas& areas)
            : areas_(areas), calls_(std::exchange(areas.calls_, 0)) {
            if (calls_ > 0 && areas_.engine_) areas_.engine_->end_call();
        }
        HostTurn(const HostTurn&) = delete;
        HostTurn& operator=(const HostTurn&) = delete;
        ~HostTurn() {
            areas_.calls_ = calls_;
            if (calls_ > 0 && areas_.engine_) areas_.engine_->begin_call();
        }

      private:
        WorkAreas& areas_;
        int calls_;
    };
    // The engine's status calls; 0 when there is no engine yet.
    int write_all_records() { return engine_ ? engine_->write_all_records() : 0; }
    int close_all_tables() { return engine_ ? engine_->close_all_tables() : 0; }
    // The folder of relative names of tables and index files, with its trailing separator. While it
    // is empty, such names refer to the process's current folder, and bare names of index files to
    // their table's folder.
    const std::string& default_folder() const { return default_folder_; }
    void set_default_folder(const std::string& folder) { default_folder_ = folder; }
    std::string path_of(const std::string& file) const;

    // -- Slots.
    int current() const { return current_; }
    void select(int area) { current_ = area; }
    // Number of the slot that holds the alias (case-insensitive), 0 when none does.
    int area_of(std::string_view alias) const;
    // Like area_of, but a number as text ("5") names the slot itself, used or not (1 to 150).
    int area_named(std::string_view name) const;
    int lowest_free() const;  // 0 when all are in use
    bool used() const { return used(current_); }
    bool used(int area) const { return slots_.contains(area); }
    std::string alias() const { return alias(current_); }  // as opened; empty on an empty slot
    std::string alias(int area) const;

    // Without an alias, uses the file's base name in upper case. Sets the network error flag on
    // failure and clears it on success; on failure the slot is empty and current. EngineFault
    // kLimit if no slot is free.
    void open(const std::string& path, const std::optional<std::string>& alias,
              TableSharing sharing, OpenIn where = OpenIn::kCurrentArea);
    // The engine is known to callers as a table driver with a name. A caller that names the driver
    // of an open asks here first: EngineFault kUnknownName unless it is that one (in any letter
    // case).
    void register_driver(const std::string& name) { driver_ = name; }
    void require_driver(const std::string& name) const;
    // Why the last open or add_orders was refused; empty if it was not. Searches for the holders.
    std::string refusal() const { return refusal_ ? refusal_->explanation() : std::string(); }
    // Takes back an open that turned out to be useless: empties the slot and sets the network error
    // flag.
    void refuse();
    // Closing a table also ends the relations to it.
    void close();
    void close_all();

    // The network error flag: true after an open or append that failed for sharing reasons.
    bool network_error() const { return network_error_; }

    // -- The table of a slot. `operation` names the caller in the fault for an empty slot.
    Table& table(std::string_view operation) { return table(current_, operation); }
    Table& table(int area, std::string_view operation);

    // -- Settings that callers make for tables, kept here for every engine alike.
    // The number of the order that becomes controlling when an index file's orders are attached;
    // none does for 0 or for a number that the file does not have.
    int automatic_order = 1;
    // Kept only for callers that read it back: the caller of open() chooses the sharing.
    int automatic_share = 0;
    // The current table's shared flag: how the table was opened, until a caller sets it. Setting it
    // changes nothing about the open files and their locks.
    bool& shared_flag(std::string_view operation) { return slot(operation).shared; }
    // Expressions over the current table's fields, and its filter.
    TableExpressions& expressions(std::string_view operation) {
        return slot(operation).expressions;
    }
    // Attaches the orders of an index file to the current table. False, with the reason in
    // refusal(), if the file cannot be opened.
    [[nodiscard]] bool add_orders(const std::string& file);

    // -- Queries with neutral values on an empty slot.
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
    void require_field(int area, std::string_view name) {
        static_cast<void>(known_position(slot(area, name), name));
    }

    // Both append to the current slot. They set the network error flag if a lock was refused and
    // clear it otherwise, also for a key that is taken.
    void append_blank(bool release_other_locks, LockTry attempt = LockTry::kAtOnce);
    Table::Added add_record(LockTry attempt, std::size_t distinct = 0);

    // -- Relations from a slot, in the order in which they were added.
    // Also removes the scopes that scoped relations have set. Does nothing on an empty slot.
    void clear_relations(int area);
    // Positions the target at once. A new relation replaces an existing one to the same target. An
    // EngineFault leaves everything unchanged: for an expression that does not compile or does not
    // suit the target's order, for an empty target, and for a target whose own relations lead back
    // to this slot.
    void add_relation(int area, Relation relation);
    std::vector<Relation> relations(int area) const;

    // Releases every lock in every slot and ignores failures: the recovery after a fault.
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

    static std::size_t known_position(const Slot& slot, std::string_view name);
    bool leads_to(int from, int area) const;
    void note(const Refusal& refusal);
    void follow(int area);
    void follow(Slot& parent, Relation& relation);
    static void limit(Slot& target, Relation& relation, Value value);
    void release_target(const Relation& relation);
    void end_relations_to(int area);

    Engine* engine_ = nullptr;
    std::string driver_;
    int calls_ = 0;  // of the host, each inside the one before
    std::string default_folder_;
    std::map<int, Slot> slots_;
    int current_ = 1;
    bool network_error_ = false;
    std::optional<Refusal> refusal_;
};

}  // namespace brenik
