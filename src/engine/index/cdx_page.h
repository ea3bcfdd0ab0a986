// One page of a compound index: how it is searched, changed and split.
//
// A page is kept as the file has it. Searching compares the probe with the bytes that each entry
// adds to its predecessor, and a change touches one entry and its successor. Entries are unpacked
// only to split a page, or to lay it out anew.

#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/index/page_format.h"
#include "util/bytes.h"

namespace brenik::index {

// An entry, copied out of its page: a key and a big-endian record number, so that comparing bytes
// compares entries. Also what a search looks for; it may end before the record number, or earlier.
class PageEntry {
  public:
    PageEntry() = default;
    explicit PageEntry(std::size_t size) : size_(size) {}
    explicit PageEntry(Bytes bytes);
    // REQUIRES: at most kLongestCdxKey bytes of key.
    PageEntry(Bytes key, RecordNumber record);

    operator Bytes() const { return {bytes_.data(), size_}; }
    Byte* data() { return bytes_.data(); }
    Bytes key() const { return Bytes(*this).first(size_ - 4); }
    RecordNumber record() const { return load_be32(bytes_.data() + size_ - 4); }

  private:
    std::array<Byte, kLongestCdxKey + 4> bytes_;
    std::size_t size_ = 0;
};

class CdxPage {
  public:
    static constexpr int kUnknownLevel = 255;

    // A new empty page.
    CdxPage(const CdxForm& form, std::uint32_t offset, bool leaf);
    // Throws PageDamage. Otherwise every entry is whole, and none is less than its predecessor.
    static CdxPage decode(const CdxForm& form, std::uint32_t offset, Bytes raw);
    // The bytes to write. If the right pointer has changed, they hold the old one while the removed
    // neighbour must stay reachable. Throws PageDamage when entries that another writer packed do
    // not fit any more.
    Bytes encode();
    // What encode() returned last, or what the page was decoded from.
    Bytes raw() const { return Bytes(raw_).first(kCdxPageSize); }
    // The 8 bytes of both pointers in the page, changed to the present ones.
    Bytes encode_pointers();

    std::uint32_t offset() const { return offset_; }
    std::uint32_t tree() const { return form_.header; }
    bool leaf() const { return leaf_; }

    std::size_t count() const { return count_; }
    bool empty() const { return count_ == 0; }
    PageEntry entry(std::size_t slot) const;
    PageEntry last_entry() const { return entry(count_ - 1); }
    // Of an interior page: key and record number as they lie in the page.
    Bytes branch(std::size_t slot) const { return {branch_at(slot), form_.key_length + 4}; }
    RecordNumber record(std::size_t slot) const;
    std::uint32_t child(std::size_t slot) const {
        return load_be32(branch_at(slot) + form_.key_length + 4);
    }
    // The first slot whose entry, cut to the length of `probe`, is not less (`past_equal`: is
    // greater).
    std::size_t bound(Bytes probe, bool past_equal) const;

    // Where an entry is or belongs in a leaf.
    struct Place {
        std::size_t slot = 0;
        std::size_t keys_end = kCdxPageSize;  // where the key bytes of the entries before it begin
        std::size_t same_before = 0;  // leading key bytes that the entry before it has in common
        std::size_t same = 0;         // and those that the entry in the slot has in common with it
        bool there = false;           // the entry in the slot is this one
    };
    // In a leaf: like bound().
    Place find(Bytes probe, bool past_equal) const;

    // An entry of a leaf and its place. The next entry costs no search.
    struct Reading {
        std::size_t slot = 0;
        std::size_t keys_begin = 0;  // where its key bytes begin
        PageEntry entry;
    };
    Reading reading(std::size_t slot) const;
    // The entry at a place that was found with `probe`. REQUIRES: there is one.
    Reading reading(const Place& place, Bytes probe) const;
    // REQUIRES: a next entry.
    void advance(Reading& reading) const;

    // After a change the page may be too large to be searched or written; cuts() and move_tail()
    // mend that. An erasure has this effect only on a page of another program.
    bool fits() const { return !overfull_; }
    void insert(const Place& place, Bytes entry);
    void insert_child(std::size_t slot, Bytes entry, std::uint32_t child);
    void erase(const Place& place, Bytes entry);
    void erase_child(std::size_t slot);
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

    // How exactly the entries that were decoded are packed. Other programs change a page in place
    // and rely on it.
    enum class Packing { kExact, kInexact, kTooTight };
    Packing packing() const { return packing_; }

    bool root = false;
    std::uint32_t left = kNoPage;
    std::uint32_t right = kNoPage;
    int level = kUnknownLevel;  // 0 for leaves; not in the file

    // For the page cache: how the page differs from the file.
    std::uint64_t epoch = 0;  // when the page was last known to be as in the file
    bool unwritten = false;   // never written
    bool content_changed = false;
    bool listed = false;  // in the list of pages to write
    // The right neighbour was removed from the tree. Until its parents no longer refer to it, the
    // file must keep the pointer to it.
    bool right_changed = false;
    std::uint32_t right_until_then = kNoPage;
    // The page ends before its entry in the parent (cdx_tree.h).
    bool loose = false;
    // The page is known to end with its entry in the parent. Each epoch finds out anew.
    bool end_is_named = false;

  private:
    std::size_t stride() const { return form_.key_length + (leaf_ ? 4 : 8); }
    std::size_t capacity() const;  // of an interior page
    const Byte* branch_at(std::size_t slot) const;
    Byte* branch_at(std::size_t slot);

    // -- A leaf in its packed form.
    std::size_t table_end() const;
    std::uint64_t table_bits(std::size_t slot) const;
    LeafNumbers numbers(std::size_t slot) const;
    void set_numbers(std::size_t slot, const LeafNumbers& entry);
    std::size_t stored(const LeafNumbers& entry) const {
        return form_.key_length - entry.duplicate - entry.trailing;
    }
    std::size_t keys_before(std::size_t slot) const;
    PageEntry unpack(std::size_t slot, std::size_t keys_end) const;
    void resize_keys(std::size_t keys_end, std::size_t was, std::size_t is);
    Byte* table_at(std::size_t slot);
    bool insert_packed(const Place& place, Bytes entry);
    void erase_packed(const Place& place, Bytes entry);
    void erase_unpacked(std::size_t slot);
    // Widens the entries of a leaf if they cannot hold this record number or every count.
    void prepare_for(RecordNumber record);
    enum class Order { kLess, kEqual, kGreater };
    std::size_t same_text(const Byte* text, std::size_t size, Bytes wanted) const;
    Order compare_rest(std::size_t slot, std::size_t keys_begin, std::size_t same,
                       Bytes probe) const;
    void add_rest(const LeafNumbers& numbers, Reading& reading) const;
    void decode_leaf(std::size_t count);
    bool take_layout(std::size_t count);
    LeafNumbers checked_numbers(std::size_t slot) const;

    // -- Unpacked entries, consecutively: while the page is too large, or is laid out anew.
    using Entries = std::vector<Byte>;
    Entries unpacked() const;
    void pack(Entries entries);
    std::size_t leaf_bytes(const Entries& entries, std::size_t slot, bool alone) const;
    bool part_fits(const Entries& entries, std::size_t from, std::size_t to) const;
    std::vector<std::size_t> leaf_cuts(const Entries& entries, bool appending) const;
    std::vector<std::size_t> greedy_leaf_cuts(const Entries& entries) const;

    CdxForm form_;
    std::uint32_t offset_;
    bool leaf_;
    Packing packing_ = Packing::kExact;
    LeafLayout layout_;
    std::size_t count_ = 0;
    std::size_t keys_begin_ = kCdxPageSize;  // of a leaf: the lowest key byte
    std::unique_ptr<Entries> overfull_;      // instead of those in raw_
    // Eight spare bytes let an entry of the table be loaded at once.
    std::array<Byte, kCdxPageSize + 8> raw_{};
};

}  // namespace brenik::index
