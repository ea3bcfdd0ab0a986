// The first half of the seam: one open table.
//
// Code above the seam is written against Table and Engine (engine.h), never against a file, so that
// one engine can replace another. A sharing conflict is a return value (false, a Refusal), never an
// exception. A damaged file, an I/O error or misuse is an EngineFault.
//
//     OpenAnswer answer = engine.open("LAW1.DBF", TableSharing::kShared);
//     if (std::holds_alternative<Refusal>(answer)) return;
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
// Navigation starts at the top; in a descending order the top is the end with the larger keys.
enum class ScopeEnd { kTop, kBottom };
// Which keys of an order are counted: all of them, or those that navigation visits (inside the
// order's scopes, accepted by the filter, and not deleted while deleted records are hidden).
enum class KeySet { kWhole, kVisible };
// kAtOnce never waits. kInTurn, for callers that were refused before, waits some milliseconds in a
// queue behind earlier callers: long enough for their quick changes, too short to wait for a
// person. An engine without a queue treats both alike.
enum class LockTry { kAtOnce, kInTurn };
// How much of a filter an engine evaluates from indexes instead of reading records.
enum class FilterOptimisation { kNone, kPartial, kFull };

struct FieldDescription {
    std::string name;  // upper case
    char type = 'C';   // as in the table's header: C N F D L M I B Y T ...
    int width = 0;
    int decimals = 0;
    ValueKind value = ValueKind::kCharacter;  // what field_get returns unless the field is NULL
};

struct OrderDescription {
    std::string name;            // upper case
    std::string key;             // expressions as the index file stores them
    std::string condition;       // empty when there is none
    std::size_t key_length = 0;  // bytes
    bool unique = false;         // keeps only the first record of each key
    bool candidate = false;      // refuses a second record with the same key
    bool descending = false;
    bool custom = false;
};

// One open table. Its position is a current record number, 1-based, or the phantom record past the
// last record, whose fields are all blank. Field positions are 1-based. A method that changes a
// record requires that this Table has locked it (by record lock, table lock or exclusive use), and
// otherwise throws EngineFault kNotLocked.
class Table {
  public:
    virtual ~Table() = default;

    virtual const std::vector<FieldDescription>& fields() const = 0;
    // The path of the file, for messages.
    virtual const std::string& path() const = 0;
    // The fields' layout, for which expressions are compiled.
    virtual const record::TableLayout& layout() const = 0;
    // The current record's bytes, on which expressions are evaluated; blank on the phantom record.
    // Valid until the next call.
    virtual record::RecordView record() = 0;

    // -- Position. Every move first writes out a changed record.
    // 0 and numbers past the last record select the phantom record.
    virtual void go_to(RecordNumber record) = 0;
    virtual void go_top() = 0;
    virtual void go_bottom() = 0;
    // Moves by `count` records in the controlling order (or by record number) and passes over
    // hidden records. A move forward past the end leaves the phantom record. A move backward past
    // the beginning leaves the first record and sets the beginning-of-file flag. Backward from the
    // phantom record, the first step leads to the last record. A record outside the scopes counts
    // as lying before the first or after the last record inside them. A count of 0 reads the record
    // again and does not move.
    virtual void skip(std::int64_t count) = 0;
    virtual bool end_of_file() = 0;
    virtual bool beginning_of_file() = 0;
    virtual RecordNumber record_number() = 0;  // count + 1 on the phantom record
    virtual RecordNumber record_count() = 0;   // as stored in the file now
    virtual bool deleted() = 0;                // false on the phantom record
    // Sets a function that is called at the end of every move (go to, top, bottom, skip by other
    // than 0, seek, append). An empty function removes it. There is at most one follower.
    virtual void set_follower(std::function<void()> follower) = 0;

    // -- Fields of the current record.
    // Returns blank-padded text, a number with width and decimals, a date, a logical or a memo; nil
    // for NULL. A date-time is text of 17 digits "YYYYMMDDhhmmssttt", blank when empty.
    virtual Value field_get(std::size_t position) = 0;
    // True when field_get() would return exactly this value.
    virtual bool field_equals(std::size_t position, const Value& value) = 0;
    // Pads or cuts text to the width. Fills the field with asterisks if a number does not fit. A
    // value of an unsuitable kind is EngineFault kUnsuitableValue.
    virtual void field_put(std::size_t position, const Value& value) = 0;
    virtual void mark_deleted() = 0;
    virtual void recall() = 0;
    // Drops the cached copy of the current record and reads it from the file. Returns a status like
    // those of the engine. If the record cannot be read, the next access to it throws.
    virtual int refresh_record() = 0;

    // -- Locks. Unlocking first writes out a changed record.
    [[nodiscard]] virtual bool lock_record(RecordNumber record,
                                           LockTry attempt = LockTry::kAtOnce) = 0;
    // A refused try may cost record locks. They conflict with the table lock, so they are released
    // for the try, and another user may hold them afterwards.
    [[nodiscard]] virtual bool lock_table(LockTry attempt = LockTry::kAtOnce) = 0;
    virtual void unlock_record(RecordNumber record) = 0;
    virtual void unlock_all() = 0;
    // True when this session may write the record: it holds its lock, the table's, or exclusive
    // use.
    virtual bool owns(RecordNumber record) const = 0;

    // Adds a blank record, makes it current and leaves it locked. False when another user holds a
    // lock that this needs. Its index keys are written with its final values when the record is
    // flushed, unlocked or left.
    [[nodiscard]] virtual bool append_blank(bool release_other_locks,
                                            LockTry attempt = LockTry::kAtOnce) = 0;
    // Begins a record that the file does not hold yet and makes it current: blank, with the number
    // of the phantom record, open to field_put. Every move drops it. EngineFault kLimit when the
    // table has no room for another record.
    virtual void begin_record() = 0;
    // Checks, as far as possible without writing, that the begun record can be added, or else that
    // the changes to the current record can be written. EngineFault kInputOutput when the file was
    // removed or replaced, kDamagedFile when it was cut short, kLimit when it is full.
    virtual void require_place() = 0;
    // Adds the begun record with its values, memos and keys in one step. Leaves it current and
    // locked, or unlocked with Leave::kUnlocked. kRefused: another user holds a lock that this
    // needs. kTaken: the order `distinct` (0: none) already has the record's key. After either, and
    // after a fault, the files hold nothing of the record, and it is still begun.
    enum class Added { kDone, kRefused, kTaken };
    enum class Leave { kLocked, kUnlocked };
    [[nodiscard]] virtual Added add_record(LockTry attempt, std::size_t distinct = 0,
                                           Leave leave = Leave::kLocked) = 0;

    // Drops the changes to the current record that are not yet written. A record that was just
    // appended stays and is marked deleted, because its number is taken.
    virtual void abandon_changes() noexcept = 0;

    // Passes every pending change to the operating system and, with full durability, on to the
    // disk.
    virtual void commit() = 0;

    // -- Orders, numbered from 1 as attached; 0 is physical order.
    // True when the engine opened the table's structural index by itself.
    virtual bool opened_orders_automatically() const = 0;
    // Detaches every order. A structural index is still maintained.
    virtual void clear_orders() = 0;
    // Attaches every order of an index file. A name without extension, or a table's name, means the
    // .CDX; a name without a folder means a file beside the table. Of the newly attached orders,
    // the one with the number `controlling`, counted from 1, becomes controlling; if there is no
    // such order, none does. Returns the reason if the file cannot be opened, otherwise nothing.
    [[nodiscard]] virtual std::optional<Refusal> add_orders(const std::string& file,
                                                            int controlling = 1) = 0;
    virtual std::size_t order_count() const = 0;
    // Upper case; empty when there is no such order.
    virtual std::string_view order_name(std::size_t number) const = 0;
    // The numbers of the attached orders of one index file, which is named as for add_orders.
    virtual std::vector<std::size_t> orders_of(const std::string& index_file) const = 0;
    virtual std::size_t order_number() const = 0;
    // EngineFault kUnknownName when there is no such order.
    virtual OrderDescription order_description(std::size_t number) const = 0;
    // Makes an order controlling (0: physical order) and keeps the position. An unknown number
    // changes nothing and returns false. orders.h does the same by name.
    virtual bool set_order(std::size_t number) = 0;
    // Finds a key in the controlling order. Text shorter than the key finds the first key that
    // begins with it. Keys outside the scopes and keys of hidden records are not found. A failed
    // hard seek, or a soft one past every key, leaves the phantom record. Any other failed soft
    // seek leaves the record with the next greater key (in a descending order, the next smaller
    // key).
    virtual bool seek(const Value& key, SeekMode mode, SeekEnd end) = 0;

    // Limits of the controlling order. nil means no limit, and is what scope() returns in physical
    // order. Text shorter than the key limits to keys that begin with it. Each order keeps its own
    // scopes until it is detached. Setting a scope does not move; in physical order it does
    // nothing. A value of another kind than the key's is EngineFault kUnsuitableValue and leaves
    // the scope unchanged.
    virtual Value scope(ScopeEnd end) const = 0;
    virtual void set_scope(ScopeEnd end, const Value& value) = 0;

    // Number of keys in an order (0: physical order, where every record counts as a key). The
    // order's own scopes apply whether or not it is controlling.
    virtual std::size_t key_count(std::size_t order, KeySet keys) = 0;
    // 1-based position of the current record's key; 0 on the phantom record and for a record that
    // is not among those keys.
    virtual std::size_t key_number(std::size_t order, KeySet keys) = 0;

    // The greatest key of a text order that is not greater than `limit` or begins with it. Scopes,
    // filter and visibility do not apply, and the position does not change. If others keep the
    // index locked, waits as long as every search (kLong) or no longer than a try in turn (kShort),
    // then throws EngineFault kBusy.
    enum class Wait { kLong, kShort };
    virtual std::optional<std::string> last_key(std::size_t order, const std::string& limit,
                                                Wait wait = Wait::kLong) = 0;

    // -- Filter: navigation skips records for which it returns false; an empty function clears it.
    // Setting a filter does not move. `text` is the filter's expression, for an engine that lets a
    // server evaluate it too; the function decides.
    using Filter = std::function<bool(const record::RecordView& record)>;
    virtual void set_filter(Filter filter, const std::string& text) = 0;
    virtual FilterOptimisation filter_optimisation() const = 0;
};

}  // namespace brenik
