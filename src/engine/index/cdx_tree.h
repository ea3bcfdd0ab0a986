// One tag's tree: walks and changes.
//
// Walks follow right pointers wherever a page ends before its entry in the parent: a split
// interrupted by a kill leaves the tree like this. A change that meets such a place repairs it
// first (the new page gets its entry in the parent), so that the tree is exact again. Right
// pointers are always valid, because a page is freed only when no right pointer names it. Left
// pointers are maintained for other programs; after a kill one may name a freed page, so nothing
// here relies on them.
//
// While a change is collected, no page passes a range of keys to its neighbour. If a page ends
// before its entry in the parent, because it lost its last entry or a change was interrupted, the
// parent keeps that entry until finish(), which also removes the leaves that are still empty then.
// So neighbouring pages may reach the file in any order.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/index/cdx_header.h"
#include "engine/index/cdx_pages.h"
#include "engine/index/cdx_positions.h"
#include "engine/index/key_sorter.h"

namespace brenik::index {

struct IndexEntry {
    std::string key;  // full key bytes
    RecordNumber record = 0;
};

// kMoment: the caller found the index unchanged a moment ago, and a step within one page need not
// ask again.
enum class Trust { kNothing, kMoment };

// Entries are ordered by key bytes, then by record number. This class knows storage order only;
// callers handle descending tags.
class CdxTree {
  public:
    CdxTree(CdxPages& pages, TagDescription description, std::uint32_t header_offset);
    CdxTree(const CdxTree&) = delete;
    CdxTree& operator=(const CdxTree&) = delete;

    const TagDescription& description() const { return description_; }
    // The pad byte depends on the key's type, which the caller learns by compiling the expression.
    // It must be set before the first walk.
    void set_pad(Byte pad) { description_.pad = pad; }

    // Each finds one entry; false if there is none.
    bool first(IndexEntry& found);
    bool last(IndexEntry& found);
    // The first entry whose (key, record) is not less than the given one. A key shorter than the
    // tag's is a prefix: entries that begin with it are not less.
    bool at_or_after(Bytes key, RecordNumber record, IndexEntry& found);
    // The last entry whose key is not greater than `key` or begins with it; among equal keys, its
    // record number is not greater than `record`. EngineFault kBusy when the index must be read and
    // stays locked for `timeout_ms`.
    bool at_or_before(Bytes key, RecordNumber record, IndexEntry& found,
                      int timeout_ms = platform::kShortLockTimeout_ms);
    // The neighbour of an entry by (key, record), whether or not that entry still exists.
    bool after(const IndexEntry& entry, IndexEntry& found, Trust trust = Trust::kNothing);
    bool before(const IndexEntry& entry, IndexEntry& found, Trust trust = Trust::kNothing);

    // The number of entries: all; those less than (key, record); those not greater, or beginning
    // with a key shorter than the tag's. The first call after a change of the file reads the
    // headers of all leaves (cdx_positions.h).
    std::size_t count();
    std::size_t count_before(Bytes key, RecordNumber record);
    std::size_t count_through(Bytes key, RecordNumber record);
    // The entry with this number, counted from 0.
    bool at(std::size_t number, IndexEntry& found);

  private:
    friend class CdxFile;

    // The first entry not less than `probe` (with `past_equal`: greater), compared over its length
    // only.
    bool forward(Bytes probe, bool past_equal, IndexEntry& found);
    // The last entry before that one.
    bool backward(Bytes probe, bool past_equal, IndexEntry& found);

    std::size_t count_below(Bytes probe, bool past_equal);

    // For CdxFile, under the index lock.
    bool contains(Bytes key);
    bool insert(Bytes key, RecordNumber record);
    bool remove(Bytes key, RecordNumber record);
    // Completes the collected changes. Must be called before anything is written.
    void finish();
    void forget_changes() { loose_.clear(); }
    // Builds a tag that has no root page yet. A unique tag takes the first entry of each key.
    void build(const SortedEntries& entries);
    // The same for a tag with a root page, which keeps its offset. Its other pages become unused
    // space.
    void rebuild(const SortedEntries& entries);

    // Key and record number as pages hold them; a short key alone, for comparison as a prefix.
    PageEntry probe(Bytes key, RecordNumber record) const;
    CdxForm form() const { return {header_, description_.key_length, description_.pad}; }

    struct Position {
        CdxPage* page;
        std::size_t slot;
    };
    using Path = std::vector<Position>;  // from the root down
    class Builder;
    class HeaderReader;

    // Runs a walk on a consistent set of pages; repeats it once if cached ones were stale.
    template <typename Walk>
    bool read(Walk walk);
    void begin();
    bool answer(Position position, IndexEntry& found);
    bool answer(Position located, Bytes probe, IndexEntry& found);
    bool answer(CdxPage& page, const CdxPage::Reading& reading, IndexEntry& found);
    bool answer_last(IndexEntry& found) const;
    bool remembered(Bytes entry) const;
    const LeafCounts& leaf_counts();

    CdxPage& load(std::uint32_t offset);
    CdxPage& root();
    CdxPage& child_of(const CdxPage& page, std::size_t slot);
    CdxPage& right_of(const CdxPage& page);
    CdxPage& split_off(const CdxPage& page);
    CdxPage& sibling(const CdxPage& page, std::uint32_t offset);
    Position locate(Bytes probe, bool past_equal);
    void check_depth(const CdxPage& leaf, std::size_t depth);
    bool step_on();
    bool step_back(Position& position);
    bool find_before(Position& position);
    void descend_before(CdxPage& from, Bytes limit, Path& candidates);
    CdxPage& last_below(CdxPage& from, Bytes limit, std::uint32_t end);

    Path path_to(Bytes entry);
    bool descend(Bytes entry, Path& path);
    void set_levels(const Path& path);
    void learn_levels(const Path& path, CdxPage& child);
    bool repair(Path& path, CdxPage& child);
    std::uint32_t expected_right(const Position& parent);
    void settle(Path& path, std::size_t depth, const PageEntry* known_last = nullptr);
    void loosen(CdxPage& page, Bytes said);
    void remove_emptied(Path& path, std::size_t depth);
    std::vector<CdxPage*> split(CdxPage& page, const Position& changed);
    void link_behind(CdxPage& page, CdxPage& added);
    void unlink(const CdxPage& page, CdxPage* left);
    bool repair_before(const Path& path, Bytes entry);
    void repair_left_pointer(Path& path, CdxPage& child);
    CdxPage* left_neighbour(const Path& path, std::size_t depth);
    PageEntry checked_entry(Bytes key, RecordNumber record) const;
    void grow(CdxPage& root, const std::vector<CdxPage*>& added);

    CdxPages& pages_;
    TagDescription description_;
    std::uint32_t header_;
    std::uint64_t visits_left_ = 0;
    std::vector<PageEntry> loose_;  // entries that the parents of loose pages hold for them

    CdxPage::Place place_;  // in the leaf that the last search or path for a change led to

    std::uint64_t depth_generation_ = 0;
    std::size_t leaf_depth_ = 0;

    // The last entry found and where it is, valid for one generation of the pages.
    CdxPage* last_page_ = nullptr;
    CdxPage::Reading last_;
    std::uint64_t last_generation_ = 0;

    LeafCounts leaf_counts_;
    std::uint64_t counted_generation_ = 0;
};

template <typename Walk>
bool CdxTree::read(Walk walk) {
    struct Guard {
        CdxPages& pages;
        ~Guard() { pages.end_read(); }
    } guard{pages_};
    pages_.begin_read();
    try {
        begin();
        return walk();
    } catch (const StaleCache&) {
        begin();
        return walk();
    }
}

}  // namespace brenik::index
