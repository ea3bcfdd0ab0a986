// The bytes of an index page of 512 bytes.
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

#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <stdexcept>

#include "engine/record_number.h"
#include "util/bytes.h"

namespace brenik::index {

inline constexpr std::size_t kCdxPageSize = 512;
inline constexpr std::uint32_t kNoPage = 0xFFFFFFFF;
inline constexpr std::size_t kLongestCdxKey = 240;

// Attributes of a page, where its pointers are, and where its entries begin.
inline constexpr std::uint16_t kRootAttribute = 0x01;
inline constexpr std::uint16_t kLeafAttribute = 0x02;
inline constexpr std::uint16_t kIgnoredAttribute = 0x04;
inline constexpr std::size_t kLeftPointer = 4;
inline constexpr std::size_t kRightPointer = 8;
inline constexpr std::size_t kInteriorStart = 12;
inline constexpr std::size_t kLeafStart = 24;
inline constexpr std::size_t kLeafRoom = kCdxPageSize - kLeafStart;

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

// What a page says about its place in the tree.
struct PageLinks {
    bool root = false;
    std::uint32_t left = kNoPage;
    std::uint32_t right = kNoPage;
};

// Stores the first 12 bytes of a page, and the 12 that follow in a leaf.
void store_page_header(Byte* raw, bool leaf, std::size_t count, const PageLinks& links);

// How a leaf's entry table packs its numbers.
struct LeafLayout {
    unsigned record_bits = 0;
    unsigned duplicate_bits = 0;
    unsigned trailing_bits = 0;
    unsigned entry_bytes = 0;

    RecordNumber largest_record() const;
};

// The numbers of an entry in a leaf's entry table.
struct LeafNumbers {
    RecordNumber record;
    std::size_t duplicate;
    std::size_t trailing;
};

// The narrowest layout with head-room for a new leaf, but at least `entry_bytes` wide per entry.
LeafLayout make_leaf_layout(std::size_t key_length, RecordNumber largest, unsigned entry_bytes = 0);

void store_leaf_header(Byte* raw, const LeafLayout& layout, std::size_t free);
// Nothing unless widths and masks agree with each other and with the entry size.
std::optional<LeafLayout> load_leaf_layout(const Byte* raw);
std::size_t load_leaf_free(const Byte* raw);
std::uint64_t pack_numbers(const LeafLayout& layout, const LeafNumbers& entry);

// The greatest number of so many bits, fewer than 64.
inline std::uint64_t mask(unsigned bits) { return (std::uint64_t{1} << bits) - 1; }
// The number of pad bytes at the end of a key.
std::size_t trailing_pads(Bytes key, Byte pad);
// The number of leading bytes that both have in common, at most `most`.
std::size_t common_prefix(const Byte* a, const Byte* b, std::size_t most);
// The most bytes that a key can share with its predecessor, given the trailing pad bytes of both.
inline std::size_t most_shared(std::size_t key_length, std::size_t trailing,
                               std::size_t before_trailing) {
    return key_length - std::max(trailing, before_trailing);
}

}  // namespace brenik::index
