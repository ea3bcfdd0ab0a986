// The seam, first half: one open table.
//
// What lies above is written against Table and Engine (engine.h), never against a file, so that any
// engine can take another's place. A sharing conflict is an answer (false, a Refusal), never an
// exception; a damaged file, an I/O error or misuse is an EngineFault.
//
//     OpenAnswer answer = engine.open("LAW1.DBF", TableSharing::kShared);
//     Table& names = *std::get<std::unique_ptr<Table>>(answer);
//     set_order(names, "U_ID");                                        // orders.h
//     if (names.seek("AB00001", SeekMode::kHard, SeekEnd::kFirst) &&
//         names.lock_record(names.record_number())) {
//         names.field_put(2, "Ibsen");
//         names.unlock_all();                                          // writes it
//     }

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/record/table_layout.h"
#include "engine/record_number.h"
#include "engine/refusal.h"
#include "util/value.h"

namespace brenik {

enum class SeekMode { kHard, kSoft };
enum class SeekEnd { kFirst, kLast };
// The top is where a walk begins: on a descending order it holds the larger key.
enum class ScopeEnd { kTop, kBottom };
// Which keys of an order are counted: all of them, or those that navigation comes across (inside
// the order's scopes, let through by the filter, and not deleted while deleted records are hidden).
enum class KeySet { kWhole, kVisible };
// A try at once never waits. One in turn, for callers that have been refused, waits some
// milliseconds behind those who came before: long enough for their quick changes and never for a
// person. An engine that knows no turns takes both alike.
enum class LockTry { kAtOnce, kInTurn };
// How much of a filter an engine answers from indexes instead of reading records.
enum class FilterOptimisation { kNone, kPartial, kFull };

struct FieldDescription {
    std::string name;  // upper case
    char type = 'C';   // the table's own letter: C N F D L M I B Y T ...
    int width = 0;
    int decimals = 0;
    ValueKind value = ValueKind::kCharacter;  // what field_get answers unless the field is NULL
};

struct OrderDescription {
    std::string name;            // upper case
    std::string key;             // expression texts as the index file holds them
    std::string condition;       // empty when there is none
    std::size_t key_length = 0;  // bytes
    bool unique = false;         // holds one record of each key, the first
    bool candidate = false;      // refuses a second record of a key
    bool descending = false;
    bool custom = false;
};

// One open table. Positions: a current record number, 1-based, or the phantom record past the last
// one, whose fields are all blank. Field positions are 1-based. Where a method changes a record,
// that record must be locked by this Table (record lock, table lock or exclusive use), else
// EngineFault kNotLocked.
class Table {
  public:
    virtual ~Table() = default;

    virtual const std::vector<FieldDescription>& fields() const = 0;
    // The file, for messages.
    virtual const std::string& path() const = 0;
    // Fields and record as bytes: what expressions are compiled for and evaluated on.
    virtual const record::TableLayout& layout() const = 0;
    // The current record, blank on the phantom record. The bytes are valid until the next call.
    virtual record::RecordView record() = 0;

    // -- Position. Every move first writes out a changed record.
    // 0 and numbers past the last record give the phantom record.
    virtual void go_to(RecordNumber record) = 0;
    virtual void go_top() = 0;
    virtual void go_bottom() = 0;
    // Moves in the controlling order (or by record number), past records that are hidden. Forward
    // past the end leaves the phantom record; backward past the beginning leaves the first record,
    // with the beginning-of-file flag. From the phantom record, backwards, the first step leads to
    // the last record. A record outside the scopes counts as lying before the first or behind the
    // last one inside. 0 reads the record again and moves nowhere.
    virtual void skip(std::int64_t count) = 0;
    virtual bool end_of_file() = 0;
    virtual bool beginning_of_file() = 0;
    virtual RecordNumber record_number() = 0;  // count + 1 on the phantom record
    virtual RecordNumber record_count() = 0;   // as the file says now
    virtual bool deleted() = 0;                // false on the phantom record
    // Called at the end of every move (go to, top, bottom, skip by other than 0, seek, append);
    // an empty one ends that. There is one follower at most.
    virtual void set_follower(std::function<void()> follower) = 0;

    // -- Fields of the current record.
    // Blank-padded text, numbers with width and decimals, dates, logicals, memos; nil for NULL; a
    // date-time is text of 17 digits "YYYYMMDDhhmmssttt", blank when empty.
    virtual Value field_get(std::size_t position) = 0;
    // Text is padded or cut to the width; a number that does not fit fills the field with
    // asterisks; a value of an unsuitable kind is EngineFault kUnsuitableValue.
    virtual void field_put(std::size_t position, const Value& value) = 0;
    virtual void mark_deleted() = 0;
    virtual void recall() = 0;
    // Reads the current record again from the file, dropping the cached copy. Answers a status, as
    // the engine does (below); one that cannot be read throws when it is next asked about.
    virtual int refresh_record() = 0;

    // -- Locks. Unlocking first writes out a changed record.
    [[nodiscard]] virtual bool lock_record(RecordNumber record,
                                           LockTry attempt = LockTry::kAtOnce) = 0;
    // A refused try may cost record locks: they stand in the way of the table's, are given up for
    // the try, and may be somebody else's afterwards.
    [[nodiscard]] virtual bool lock_table(LockTry attempt = LockTry::kAtOnce) = 0;
    virtual void unlock_record(RecordNumber record) = 0;
    virtual void unlock_all() = 0;
    // True when this session may write the record: by its lock, the table's, or exclusive use.
    virtual bool owns(RecordNumber record) const = 0;

    // Adds a blank record, makes it current and leaves it locked; false when the lock that this
    // needs is somebody else's. Its index keys are written with its final values when the record is
    // flushed, unlocked or left.
    [[nodiscard]] virtual bool append_blank(bool release_other_locks,
                                            LockTry attempt = LockTry::kAtOnce) = 0;
    // Makes a record current that the file does not hold yet: blank, with the number of the phantom
    // record, open to field_put. Every move drops it. EngineFault kLimit when there is no room for
    // a further record.
    virtual void begin_record() = 0;
    // Tells, as far as that can be known without writing, whether the record that was begun can be
    // added, or else what was put into the current one written: EngineFault kInputOutput when the
    // file was removed or replaced, kDamagedFile when it was cut short, kLimit when it is full.
    virtual void require_place() = 0;
    // Adds the record that was begun, with values, memos and keys at once, and leaves it current
    // and, unless the caller has no use for that, locked. Refused when a lock that this needs is
    // somebody else's, taken when the order `distinct` (0: none) has the record's key already;
    // then, and after a fault, nothing of it is in the files, and it is still begun.
    enum class Added { kDone, kRefused, kTaken };
    enum class Leave { kLocked, kUnlocked };
    [[nodiscard]] virtual Added add_record(LockTry attempt, std::size_t distinct = 0,
                                           Leave leave = Leave::kLocked) = 0;

    // Drops what the current record has not yet written out. A record that was only just appended
    // stays, marked deleted: its number is taken.
    virtual void abandon_changes() noexcept = 0;

    // Hands every pending change to the operating system, and on to the disk where the engine was
    // told to.
    virtual void commit() = 0;

    // -- Orders. Numbered from 1 as attached; 0 is physical order.
    // True when the engine opened the table's structural index by itself.
    virtual bool opened_orders_automatically() const = 0;
    // Detaches every order; a structural index stays maintained all the same.
    virtual void clear_orders() = 0;
    // Attaches every order of an index file; a name without extension, or a table's, means the
    // .CDX, and one without a folder lies beside the table. Of the orders that are new here the one
    // with the number `controlling`, counted from 1, becomes controlling; none where there is no
    // such one. Answers why the file cannot be had, or nothing.
    [[nodiscard]] virtual std::optional<Refusal> add_orders(const std::string& file,
                                                            int controlling = 1) = 0;
    virtual std::size_t order_count() const = 0;
    // Upper case; empty when there is no such order.
    virtual std::string_view order_name(std::size_t number) const = 0;
    // The numbers of the attached orders of one index file, named as for add_orders.
    virtual std::vector<std::size_t> orders_of(const std::string& index_file) const = 0;
    virtual std::size_t order_number() const = 0;
    // EngineFault kUnknownName when there is no such order.
    virtual OrderDescription order_description(std::size_t number) const = 0;
    // Makes an order controlling, 0 for physical order; position unchanged. An unknown number
    // changes nothing and answers false. orders.h has the names.
    virtual bool set_order(std::size_t number) = 0;
    // Finds a key in the controlling order. Text shorter than the key finds the first key that
    // begins with it. Keys outside the scopes and of hidden records are not found. A failed hard
    // seek, or a soft one past every key, leaves the phantom record; a failed soft one otherwise
    // leaves the next greater key's record (the next smaller one's in a descending order).
    virtual bool seek(const Value& key, SeekMode mode, SeekEnd end) = 0;

    // Limits of the controlling order; nil is no limit, and the answer in physical order. Text
    // shorter than the key limits to keys that begin with it. Each order keeps its own scopes until
    // it is detached. Setting one does not move; in physical order it does nothing. A value of
    // another kind than the key's is EngineFault kUnsuitableValue and leaves the scope as it was.
    virtual Value scope(ScopeEnd end) const = 0;
    virtual void set_scope(ScopeEnd end, const Value& value) = 0;

    // Keys of an order (0: physical order, where every record counts as a key). Scopes are the
    // order's own, whether or not it is controlling.
    virtual std::size_t key_count(std::size_t order, KeySet keys) = 0;
    // 1-based position of the current record's key; 0 on the phantom record and for a record that
    // is not among those keys.
    virtual std::size_t key_number(std::size_t order, KeySet keys) = 0;

    // The greatest key of an order of text that is not greater than `limit`, or begins with it,
    // whichever record it belongs to and whatever scopes, filter or visibility say; nothing moves.
    // Where others keep the index locked it waits as every search does, or no longer than a try in
    // turn; then EngineFault kBusy.
    enum class Wait { kLong, kShort };
    virtual std::optional<std::string> last_key(std::size_t order, const std::string& limit,
                                                Wait wait = Wait::kLong) = 0;

    // -- Filter: navigation skips records for which it answers false; an empty function clears it.
    // Setting one does not move.
    using Filter = std::function<bool(const record::RecordView& record)>;
    virtual void set_filter(Filter filter) = 0;
    virtual FilterOptimisation filter_optimisation() const = 0;
};

}  // namespace brenik
