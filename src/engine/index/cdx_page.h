// One 512-byte page of a compound index: how it is decoded, changed and encoded.
//
//   offset size
//        0    2  attributes: 1 root, 2 leaf; 4 is ignored
//        2    2  number of entries
//        4    4  left sibling on the same level, FFFFFFFF none
//        8    4  right sibling
//
// An interior page continues with entries of key, record number (big-endian) and child page
// (big-endian). Key and record number are those of the last entry below the child.
//
// A leaf continues with its layout and is filled from both ends:
//       12    2  free bytes between the entry table and the key bytes
//       14    4  record number mask, 18: duplicate count mask, 19: trailing count mask
//       20    1  bits of the record number, 21: of the duplicate count, 22: of the trailing count
//       23    1  bytes of one table entry
//       24       entry table: record number, duplicate count, trailing count from the lowest bit up
//      512       key bytes of the entries, from the end of the page downwards
// A key is stored without the bytes that it shares with its predecessor and without its trailing
// pad bytes. Both counts are as large as possible, but duplicates never reach into the trailing
// bytes of either key; other readers rely on that.
//
// Decoded, both kinds hold their entries consecutively in one buffer. Each is a key and a
// big-endian record number, so that comparing bytes compares entries; the child follows in interior
// pages.

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine/table.h"
#include "util/bytes.h"

namespace brenik::index {

inline constexpr std::size_t kCdxPageSize = 512;
inline constexpr std::uint32_t kNoPage = 0xFFFFFFFF;
inline constexpr std::size_t kLongestCdxKey = 240;

// How a leaf's entry table packs its numbers.
struct LeafLayout {
    unsigned record_bits = 0;
    unsigned duplicate_bits = 0;
    unsigned trailing_bits = 0;
    unsigned entry_bytes = 0;

    bool operator==(const LeafLayout&) const = default;
    RecordNumber largest_record() const;
};

// The narrowest layout with head-room for a new leaf, but at least `entry_bytes` wide per entry.
LeafLayout make_leaf_layout(std::size_t key_length, RecordNumber largest, unsigned entry_bytes = 0);

// A page that contradicts itself; the text says how.
class PageDamage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The properties that all pages of one tree share.
struct CdxForm {
    std::uint32_t header = 0;  // offset of the tag's header; identifies the tree within the file
    std::size_t key_length = 0;
    Byte pad = 0x20;
};

class CdxPage {
  public:
    static constexpr int kUnknownLevel = 255;

    // A new empty page.
    CdxPage(const CdxForm& form, std::uint32_t offset, bool leaf);
    // Throws PageDamage. Otherwise every entry is whole, and none is less than its predecessor.
    static CdxPage decode(const CdxForm& form, std::uint32_t offset, Bytes raw);
    // If the right pointer has changed, encodes the old one while the removed neighbour must stay
    // reachable. Throws PageDamage when entries that another writer packed do not fit any more.
    void encode(MutableBytes raw) const;

    std::uint32_t offset() const { return offset_; }
    std::uint32_t tree() const { return form_.header; }
    bool leaf() const { return leaf_; }

    std::size_t count() const { return entries_.size() / stride(); }
    bool empty() const { return entries_.empty(); }
    // Key and record number of an entry.
    Bytes entry(std::size_t slot) const { return {at(slot), form_.key_length + 4}; }
    Bytes last_entry() const { return entry(count() - 1); }
    RecordNumber record(std::size_t slot) const { return load_be32(at(slot) + form_.key_length); }
    std::uint32_t child(std::size_t slot) const {
        return load_be32(at(slot) + form_.key_length + 4);
    }
    // The first slot whose entry, cut to the length of `probe`, is not less (`past_equal`: is
    // greater).
    std::size_t bound(Bytes probe, bool past_equal) const;

    void insert(std::size_t slot, Bytes entry, std::uint32_t child = 0);
    // Widens the entries of a leaf if they cannot hold this record number.
    void prepare_for(RecordNumber record);
    void erase(std::size_t slot);
    void set_last_of_child(std::size_t slot, Bytes entry);
    // Turns an emptied root of any level into an empty leaf.
    void become_empty_leaf();
    // Turns a root whose entries have moved into an empty branch one level higher.
    void become_branch();

    // Where to split the page so that every part fits; empty if it fits as it is. With `appending`,
    // only the last entry goes to the new page, which suits ascending keys.
    std::vector<std::size_t> cuts(bool appending) const;
    // Moves the entries from `slot` on to an empty page, which becomes the right neighbour.
    void move_tail(std::size_t slot, CdxPage& to);
    // Removes the right neighbour from the level.
    void pass_over(const CdxPage& neighbour);
    // Encoded size of the last entry, and the bytes of a page for all entries.
    std::size_t last_entry_bytes() const;
    std::size_t room() const;
    std::size_t memory() const { return sizeof(CdxPage) + entries_.capacity(); }

    bool root = false;
    std::uint32_t left = kNoPage;
    std::uint32_t right = kNoPage;
    int level = kUnknownLevel;  // 0 for leaves; not in the file

    // For the page cache: how the page differs from the file.
    bool unwritten = false;  // never written
    bool content_changed = false;
    bool listed = false;  // in the list of pages to write
    // The right neighbour was removed from the tree. Until its parents no longer refer to it, the
    // file must keep the pointer to it.
    bool right_changed = false;
    std::uint32_t right_until_then = kNoPage;
    // The page ends before its entry in the parent (cdx_tree.h).
    bool loose = false;

  private:
    std::size_t stride() const { return form_.key_length + (leaf_ ? 4 : 8); }
    const Byte* at(std::size_t slot) const { return entries_.data() + slot * stride(); }
    Byte* at(std::size_t slot) { return entries_.data() + slot * stride(); }
    std::size_t capacity() const { return room() / stride(); }  // of an interior page
    std::size_t leaf_bytes(std::size_t slot, bool alone) const;
    bool part_fits(std::size_t from, std::size_t to) const;
    std::vector<std::size_t> leaf_cuts(bool appending) const;
    std::vector<std::size_t> greedy_leaf_cuts() const;
    void decode_leaf(Bytes raw, std::size_t count);
    void check_order() const;

    CdxForm form_;
    std::uint32_t offset_;
    bool leaf_;
    LeafLayout layout_;
    std::vector<Byte> entries_;
};

}  // namespace brenik::index
