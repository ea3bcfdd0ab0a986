// The orders of one table: its index files, the walks through them, and keeping them right.
//
// Every tag of every open index file is maintained, whether or not it is attached as an order. When
// a record changes, a KeyUpdate alters the tags whose key or condition changed with it: in memory
// under the index lock first; a fault before anything is published leaves the index as it was.

#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/expression/expression.h"
#include "engine/index/cdx_file.h"
#include "engine/index/index_key.h"
#include "engine/record/table_layout.h"

namespace brenik::local {

struct Order {
    index::CdxTag* tag;
    expression::Expression key;
    std::optional<expression::Expression> condition;
    index::KeyFormat format;

    const index::TagDescription& description() const { return tag->description(); }
    bool holds(const record::RecordView& record) const {
        return !condition || condition->is_true(record);
    }
    std::string key_of(const record::RecordView& record) const;
    // False for an entry that an interrupted change or a failed append has left behind: the record
    // that it names has another key by now, or none. Keys that two writers may compute differently
    // (the case of letters beyond ASCII, times of day, arithmetic) are given the benefit of the
    // doubt.
    bool agrees_with(const index::IndexEntry& entry, const record::RecordView& record) const;
};

// Limits of a walk: leading key bytes of the first and last entry, in walking order.
struct Scope {
    std::optional<std::string> top;
    std::optional<std::string> bottom;
};

// Steps through an order in its own direction: "next" goes towards smaller keys where the order is
// descending. All answer false when there is no such entry within the scope.
class OrderWalk {
  public:
    OrderWalk(const Order& order, const Scope& scope) : order_(order), scope_(scope) {}

    bool first(index::IndexEntry& found) const;
    bool last(index::IndexEntry& found) const;
    bool next(const index::IndexEntry& from, index::IndexEntry& found) const;
    bool previous(const index::IndexEntry& from, index::IndexEntry& found) const;
    // The first, or the last, entry that begins with `key`; where there is none, `found` is the one
    // that a soft seek goes to.
    enum class Match { kFound, kGreater, kNone };
    Match seek(const std::string& key, SeekEnd end, index::IndexEntry& found) const;

    // Entries within the scope; the number of one of them, counted from 1, 0 for any other; and the
    // one that lies `count` steps from an entry, whether or not that is one itself.
    std::size_t count() const;
    std::size_t number_of(const index::IndexEntry& entry) const;
    bool leap(const index::IndexEntry& from, std::int64_t count, index::IndexEntry& found) const;

  private:
    bool descending() const { return order_.description().descending; }
    bool towards_end(const std::string& key, RecordNumber from, index::IndexEntry& found) const;
    bool towards_start(const std::string& key, RecordNumber from, index::IndexEntry& found) const;
    bool before_top(const index::IndexEntry& entry) const;
    bool behind_bottom(const index::IndexEntry& entry) const;
    bool inside(const index::IndexEntry& entry) const {
        return !before_top(entry) && !behind_bottom(entry);
    }
    // Numbers of entries in the tag, whatever the order's direction: `to` is behind the last.
    struct Range {
        std::size_t from;
        std::size_t to;
    };
    Range range() const;

    const Order& order_;
    const Scope& scope_;
};

class TableOrders {
  public:
    TableOrders(const record::TableLayout& layout, std::string table_path,
                const locks::FileUse& use)
        : layout_(layout), table_path_(std::move(table_path)), use_(use) {}

    // Opens the structural index and attaches its orders. Refused when it cannot be had; a tag that
    // cannot be kept correct is another EngineFault.
    void open_structural();
    // After each of the calls that open or attach, when what comes first has been read.
    void end_opening() noexcept;
    bool has_structural() const { return !indexes_.empty() && indexes_.front().structural; }
    // Opens the files again where their share's session was lost; orders stay attached. EngineFault
    // when one of them cannot be had or has other tags by now.
    void reopen();
    // Makes the index files anew, in their places, in which a lost session may have left what does
    // not belong together. `for_each` calls back with every record. EngineFault kBusy when somebody
    // keeps such an index locked.
    using RecordUse = std::function<bool(const record::RecordView&)>;
    bool doubtful() const;
    void mend_doubtful(const std::function<void(const RecordUse&)>& for_each);
    // Attaches the orders of an index file, opening it where it is not open yet. Refused when it
    // cannot be had.
    void attach(const std::string& name);
    // Detaches all orders; the structural index stays open and maintained.
    void detach_all();

    std::size_t attached_count() const { return attached_.size(); }
    const Order& attached(std::size_t number) const { return *attached_[number - 1]; }  // from 1
    // Numbers of the attached orders of an index file, as attach() understands its name.
    std::vector<std::size_t> numbers_of(const std::string& index_file) const;

    // EngineFault kLimit when the keys of a further record might not fit into an index file.
    void require_room() const;
    void sync();
    // Calls `visit` with every open index file.
    template <class Visit>
    void for_each_file(Visit visit) const {
        for (const OpenIndex& index : indexes_) visit(*index.file);
    }

  private:
    friend class KeyUpdate;

    struct OpenIndex {
        std::unique_ptr<index::CdxFile> file;
        std::vector<std::unique_ptr<Order>> orders;
        bool structural = false;
        bool doubtful = false;

        bool holds(const Order* order) const {
            return std::ranges::find(orders, order, &std::unique_ptr<Order>::get) != orders.end();
        }
    };
    struct KeyChange {
        Order* order;
        std::optional<std::string> removed;
        std::optional<std::string> inserted;
    };

    std::string full_index_path(const std::string& name) const;
    void open_index(const std::string& path, bool structural);
    void reopen(OpenIndex& index);
    locks::FileUse use_of(bool structural) const;
    void attach_orders_of(const OpenIndex& index);
    const OpenIndex* find_index(const std::string& path) const;
    std::vector<KeyChange> key_changes(const OpenIndex& index,
                                       const std::optional<record::RecordView>& before,
                                       const std::optional<record::RecordView>& after) const;

    const record::TableLayout& layout_;
    std::string table_path_;
    locks::FileUse use_;
    std::vector<OpenIndex> indexes_;  // the structural one first
    std::vector<const Order*> attached_;
};

// What one record's change does to the keys of its table: from `before` (none for a record that is
// new) to `after` (none for one that is not to be there; never both). The index locks go with the
// object.
class KeyUpdate {
  public:
    KeyUpdate(TableOrders& orders, const std::optional<record::RecordView>& before,
              const std::optional<record::RecordView>& after);

    // Locks every index file that is concerned. One try, false when one of them is somebody
    // else's; or waiting a bounded time, else EngineFault kBusy.
    [[nodiscard]] bool lock(LockTry attempt, bool durable) { return lock_all(attempt, durable); }
    void lock(bool durable) { static_cast<void>(lock_all({}, durable)); }
    // True when the order holds the key already that the change would add to it.
    bool is_taken(const Order& order);

    // True when the record that an entry names has that entry's key.
    using RecordHas = std::function<bool(const Order& order, const index::IndexEntry& entry)>;
    // In memory. EngineFault kDuplicateKey when another record has the key of a candidate tag.
    void insert(const RecordHas& has);
    void remove();

    // What can fail for want of space, and is named by nothing yet; then the rest.
    void write_new_pages();
    void publish();
    // Takes what was inserted and published out again, as far as that can be done.
    void take_back() noexcept;

  private:
    struct FileChange {
        index::CdxFile* file;
        std::vector<TableOrders::KeyChange> keys;
        std::unique_ptr<index::CdxFile::Change> change = {};
    };
    bool lock_all(std::optional<LockTry> attempt, bool durable);
    bool is_held(const TableOrders::KeyChange& key, const RecordHas& has) const;

    RecordNumber record_;
    std::vector<FileChange> files_;
};

}  // namespace brenik::local
