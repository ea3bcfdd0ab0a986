// The orders of one table: its index files, the attached orders, and the update of all keys.
//
// Every tag of every open index file is maintained, whether or not it is attached as an order. When
// a record changes, a KeyUpdate changes the tags whose key or condition changes with it. It works
// in memory first, under the index lock; a fault before anything is published leaves the index
// unchanged.

#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/index/cdx_file.h"
#include "engine/index/order.h"
#include "engine/record/table_layout.h"

namespace brenik::local {

// Which keys of the version before a change the index holds: some, or none, if an earlier change of
// the record was interrupted.
enum class KeysBefore { kAll, kSome };

class TableOrders {
  public:
    // `cache_bytes` limits the memory for the pages of each index file.
    TableOrders(const record::TableLayout& layout, std::string table_path,
                const locks::FileUse& use, std::size_t cache_bytes)
        : layout_(layout),
          table_path_(std::move(table_path)),
          use_(use),
          cache_bytes_(cache_bytes) {}

    // Opens the structural index and attaches its orders. Throws Refused when it cannot be opened;
    // a tag that cannot be maintained is another EngineFault.
    void open_structural();
    // Releases the locks that opening keeps. Called after each open or attach, once the first pages
    // have been read.
    void end_opening() noexcept;
    bool has_structural() const { return !indexes_.empty() && indexes_.front().structural; }
    // Reopens the files after their share's session was lost; orders stay attached. EngineFault
    // when a file cannot be opened or now has other tags.
    void reopen();
    // True when a lost session may have left an index file inconsistent; reopen() forgets it.
    bool doubtful() const;
    // Rebuilds the index files in place. `for_each` calls back with every record. EngineFault kBusy
    // when an index stays locked.
    using RecordUse = std::function<bool(const record::RecordView&)>;
    void rebuild(const std::function<void(const RecordUse&)>& for_each);
    // Attaches the orders of an index file and opens the file if necessary. Throws Refused when it
    // cannot be opened.
    void attach(const std::string& name);
    // Detaches all orders; the structural index stays open and maintained.
    void detach_all();

    std::size_t attached_count() const { return attached_.size(); }
    const index::Order& attached(std::size_t number) const {
        return *attached_[number - 1];
    }  // from 1
    // Numbers of the attached orders of an index file, which is named as for attach().
    std::vector<std::size_t> numbers_of(const std::string& index_file) const;

    // EngineFault kLimit when the keys of another record might not fit into an index file.
    void require_room() const;
    void sync();
    template <class Visit>
    void for_each_file(Visit visit) const {
        for (const OpenIndex& index : indexes_) visit(*index.file);
    }

  private:
    friend class KeyUpdate;

    struct OpenIndex {
        std::unique_ptr<index::CdxFile> file;
        std::vector<std::unique_ptr<index::Order>> orders;
        bool structural = false;

        bool holds(const index::Order* order) const {
            return std::ranges::find(orders, order, &std::unique_ptr<index::Order>::get) !=
                   orders.end();
        }
    };
    struct KeyChange {
        index::Order* order;
        std::optional<std::string> removed;
        std::optional<std::string> inserted;
    };

    std::string full_index_path(const std::string& name) const;
    void open_index(const std::string& path, bool structural);
    void reopen(OpenIndex& one);
    locks::FileUse use_of(bool structural) const;
    void attach_orders_of(const OpenIndex& one);
    const OpenIndex* find_index(const std::string& path) const;
    std::vector<KeyChange> key_changes(const OpenIndex& one,
                                       const std::optional<record::RecordView>& before,
                                       const std::optional<record::RecordView>& after,
                                       KeysBefore keys_before) const;

    const record::TableLayout& layout_;
    std::string table_path_;
    locks::FileUse use_;
    std::size_t cache_bytes_;
    std::vector<OpenIndex> indexes_;  // the structural one first
    std::vector<const index::Order*> attached_;
};

// The effect of one record's change on the keys of its table: from `before` (none for a new record)
// to `after` (none for a removed one; never none in both). The object holds the index locks.
class KeyUpdate {
  public:
    KeyUpdate(TableOrders& orders, const std::optional<record::RecordView>& before,
              const std::optional<record::RecordView>& after,
              KeysBefore keys_before = KeysBefore::kAll);

    // Locks every index file that the change concerns. With a try, false when another user holds
    // one of the locks; without, waits a bounded time, then throws EngineFault kBusy.
    [[nodiscard]] bool lock(LockTry attempt, bool durable) { return lock_all(attempt, durable); }
    void lock(bool durable) { static_cast<void>(lock_all({}, durable)); }
    // True when the order already holds the key that the change would add.
    bool is_taken(const index::Order& order);

    // True when the record that an entry names has that entry's key.
    using RecordHas =
        std::function<bool(const index::Order& order, const index::IndexEntry& entry)>;
    // In memory only. EngineFault kDuplicateKey when another record has the key of a candidate tag.
    void insert(const RecordHas& has);
    void remove();

    // First writes what can fail for lack of space, which nothing refers to yet; publish() writes
    // the rest.
    void write_new_pages();
    void publish();
    // Removes what was inserted and published, as far as possible.
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
