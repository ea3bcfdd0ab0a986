// The seam between the library's logic and whatever keeps the tables.
//
// Engine opens tables and carries the session-wide engine settings; Table is one open table with
// its position, its orders and its locks. Everything above this header is written against these two
// classes and against WorkAreas (work_areas.h), never against a file. Sharing conflicts are answers
// (a null table, false), never exceptions; whatever is nobody's sharing conflict (a damaged file,
// an I/O error, an empty work area) is an EngineFault.

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "util/fault.h"
#include "util/value.h"

namespace brenik {

using RecordNumber = std::uint32_t;  // 1-based; 0 stands for the blank phantom record

enum class TableSharing { kShared, kExclusive };
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
    std::string name;       // upper case
    std::string key;        // expression texts as the index file holds them
    std::string condition;  // empty when there is none
    bool unique = false;
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
    // The name by which expressions may call this table; a table without one has only the names
    // that mean the current table (FIELD, _FIELD).
    virtual void set_alias(const std::string& alias) = 0;

    // -- Position. Every move first writes out a changed record.
    // 0 and numbers past the last record give the phantom record.
    virtual void go_to(RecordNumber record) = 0;
    virtual void go_top() = 0;
    virtual void go_bottom() = 0;
    // Moves in the controlling order (or by record number), past records that are hidden. Forward
    // past the end leaves the phantom record; backward past the beginning leaves the first record,
    // with the beginning-of-file flag. From the phantom record, backwards, the first step leads to
    // the last record. A record outside the scopes counts as lying before the first or behind the
    // last one inside. Far moves are cheap (logarithmic) while nothing hides records. 0 reads the
    // record again and moves nowhere.
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
    // In capitals, as the function UPPER of this table's expressions makes them.
    virtual std::string upper(const std::string& text) const = 0;
    // What an expression over the fields gives on the current record: text as wide as the
    // expression says, a number, date, logical or date-time as field_get answers them; nil for
    // NULL. One that does not compile, or names another table's alias, is EngineFault kUnsupported,
    // which names the expression, the position in it and the reason. Cheap for a text that has been
    // evaluated before.
    virtual Value evaluate(const std::string& expression) = 0;
    // What an order's key gives on the current record, whatever aliases the key names.
    virtual Value key_value(std::size_t order) = 0;

    // The table's shared flag: how it was opened, until it is set. The flag is a mark that callers
    // read; setting it changes nothing about the open files and their locks.
    virtual bool shared() const = 0;
    virtual void set_shared(bool shared) = 0;

    // -- Locks. Unlocking first writes out a changed record.
    [[nodiscard]] virtual bool lock_record(RecordNumber record,
                                           LockTry attempt = LockTry::kAtOnce) = 0;
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
    // Attaches every order of the file (a name without extension, or a table's, means the table's
    // .CDX); the first of them becomes controlling, or the one that the engine's automatic order
    // setting says. False when the file cannot be had.
    virtual bool add_orders(const std::string& file) = 0;
    virtual std::size_t order_count() const = 0;
    // Of the attached orders those of one index file, named as for add_orders.
    virtual std::size_t order_count_of(const std::string& index_file) const = 0;
    virtual std::string order_name(std::size_t number) const = 0;  // empty when there is none
    virtual std::size_t order_number() const = 0;
    // EngineFault kUnknownName when there is no such order.
    virtual OrderDescription order_description(std::size_t number) const = 0;
    // The number of an order as callers name it: by name, by number, or nil for the controlling
    // one (0 in physical order). With an index file only that file's orders are looked at, numbered
    // from 1 within it, and nil is its first. Nothing when there is no such order.
    virtual std::optional<std::size_t> find_order(const Value& order,
                                                  const std::string& index_file) const = 0;
    // Makes an order controlling, position unchanged; an unknown name or number changes nothing
    // and answers false. The empty name and the number 0 select physical order.
    virtual bool set_order(std::string_view name) = 0;
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
    // order's own, whether or not it is controlling. Logarithmic once the order's pages have been
    // counted, except for kVisible while a filter or hidden deleted records apply, which reads
    // every record of the order.
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

    // -- Filter: records for which the expression is not true are skipped by navigation. Setting
    // one does not move. An expression that evaluate() would refuse, or that is not logical, is
    // EngineFault kUnsupported as there; the filter stays as it was.
    virtual std::string filter() const = 0;
    virtual void set_filter(const std::string& expression) = 0;  // empty text clears it
    virtual FilterOptimisation filter_optimisation() const = 0;
};

// What a table engine offers besides its tables. Status codes are the engine's own, 0 for success.
class Engine {
  public:
    virtual ~Engine() = default;

    // Where relative names of tables and index files lie, with its trailing separator. While it is
    // empty they lie in the process's current folder, and bare names of index files beside their
    // table.
    const std::string& default_folder() const { return default_folder_; }
    void set_default_folder(const std::string& folder) { default_folder_ = folder; }
    std::string path_of(const std::string& file) const {
        const bool absolute = file.find_first_of("\\/") == 0 || file.find(':') == 1;
        return absolute || file.empty() ? file : default_folder_ + file;
    }

    // Opens a table; a name without extension means ".DBF". Null when it, or a file that belongs to
    // it, cannot be had: held by somebody else, missing, or not permitted. A file that is there but
    // damaged or beyond what the engine can keep correct is an EngineFault that names file and
    // reason.
    virtual std::unique_ptr<Table> open(const std::string& path, TableSharing sharing) = 0;
    // What the last null table, index that was not added, or status other than 0, was about: file
    // and reason, for people. May take some milliseconds to find out.
    virtual std::string last_error() const = 0;

    virtual int set_server_type(int type) = 0;
    // 0 no server answers for the folder, 1 the local server, 2 a remote server.
    virtual int server_loaded(const std::string& folder) = 0;
    // Both answer the previous setting. Default: compatible locking, deleted records visible.
    virtual bool set_proprietary_locking(bool on) = 0;
    virtual bool set_deleted_hidden(bool on) = 0;
    virtual bool deleted_hidden() const = 0;
    // Which order of an index file becomes controlling when its orders are attached, by the engine
    // or by add_orders: 0 none, a number that the file does not have none either. Default 1.
    virtual int automatic_order() const = 0;
    virtual void set_automatic_order(int order) = 0;
    // Kept for callers that ask for it again. Default 0: tables are opened the way the caller says.
    virtual int automatic_share() const = 0;
    virtual void set_automatic_share(int share) = 0;
    // With full durability a record, its memos and its keys are on the disk when the call that
    // writes them returns, and never in an order in which a power failure could leave one of them
    // naming another that is not there. Default off.
    virtual void set_full_durability(bool on) = 0;
    // Both go on past a table that fails, and never throw. The status is that of the first one.
    virtual int write_all_records() = 0;
    // Closes every table that this engine still holds open; the Table objects stay valid and
    // answer as on an empty file until they are destroyed.
    virtual int close_all_tables() = 0;

  private:
    std::string default_folder_;
};

}  // namespace brenik
