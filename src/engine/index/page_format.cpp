// Loads and stores the headers of a page, and compares keys as pages pack them.

#include "engine/index/page_format.h"

#include <bit>

namespace brenik::index {
namespace {

constexpr std::size_t kWord = 8;  // bytes compared at a time
constexpr std::size_t kFreeOffset = 12;
constexpr std::size_t kRecordMaskOffset = 14;
constexpr unsigned kLeastRecordBits = 12;
constexpr unsigned kMostRecordBits = 32;

}  // namespace

RecordNumber LeafLayout::largest_record() const {
    return static_cast<RecordNumber>(mask(record_bits));
}

LeafLayout make_leaf_layout(std::size_t key_length, RecordNumber largest, unsigned entry_bytes) {
    const auto count_bits = static_cast<unsigned>(std::bit_width(key_length));
    const auto needed = std::max(kLeastRecordBits, static_cast<unsigned>(std::bit_width(largest)));
    const unsigned bytes = std::max(entry_bytes, (needed + 2 * count_bits + 7) / 8);
    return {std::min(8 * bytes - 2 * count_bits, kMostRecordBits), count_bits, count_bits, bytes};
}

std::size_t trailing_pads(Bytes key, Byte pad) {
    const std::uint64_t pads = pad * std::uint64_t{0x0101010101010101};
    std::size_t end = key.size();
    for (; end >= kWord; end -= kWord) {
        const std::uint64_t differs = load_le64(key.data() + end - kWord) ^ pads;
        if (differs == 0) continue;
        return key.size() - end + static_cast<std::size_t>(std::countl_zero(differs)) / 8;
    }
    while (end > 0 && key[end - 1] == pad) --end;
    return key.size() - end;
}

std::size_t common_prefix(const Byte* a, const Byte* b, std::size_t most) {
    std::size_t same = 0;
    for (; same + kWord <= most; same += kWord) {
        const std::uint64_t differs = load_le64(a + same) ^ load_le64(b + same);
        if (differs != 0) return same + static_cast<std::size_t>(std::countr_zero(differs)) / 8;
    }
    while (same < most && a[same] == b[same]) ++same;
    return same;
}

void store_page_header(Byte* raw, bool leaf, std::size_t count, const PageLinks& links) {
    store_le16(raw, static_cast<std::uint16_t>((links.root ? kRootAttribute : 0) |
                                               (leaf ? kLeafAttribute : 0)));
    store_le16(raw + 2, static_cast<std::uint16_t>(count));
    store_le32(raw + kLeftPointer, links.left);
    store_le32(raw + kRightPointer, links.right);
}

void store_leaf_header(Byte* raw, const LeafLayout& layout, std::size_t free) {
    store_le16(raw + kFreeOffset, static_cast<std::uint16_t>(free));
    store_le32(raw + kRecordMaskOffset, static_cast<std::uint32_t>(mask(layout.record_bits)));
    raw[18] = static_cast<Byte>(mask(layout.duplicate_bits));
    raw[19] = static_cast<Byte>(mask(layout.trailing_bits));
    raw[20] = static_cast<Byte>(layout.record_bits);
    raw[21] = static_cast<Byte>(layout.duplicate_bits);
    raw[22] = static_cast<Byte>(layout.trailing_bits);
    raw[23] = static_cast<Byte>(layout.entry_bytes);
}

std::uint64_t pack_numbers(const LeafLayout& layout, const LeafNumbers& entry) {
    return entry.record | std::uint64_t{entry.duplicate} << layout.record_bits |
           std::uint64_t{entry.trailing} << (layout.record_bits + layout.duplicate_bits);
}

std::optional<LeafLayout> load_leaf_layout(const Byte* raw) {
    const LeafLayout layout{raw[20], raw[21], raw[22], raw[23]};
    const unsigned bits = layout.record_bits + layout.duplicate_bits + layout.trailing_bits;
    if (layout.entry_bytes >= 1 && layout.entry_bytes <= 8 &&
        layout.record_bits <= kMostRecordBits && layout.duplicate_bits <= 8 &&
        layout.trailing_bits <= 8 && bits <= 8 * layout.entry_bytes &&
        load_le32(raw + kRecordMaskOffset) == mask(layout.record_bits) &&
        raw[18] == mask(layout.duplicate_bits) && raw[19] == mask(layout.trailing_bits)) {
        return layout;
    }
    return std::nullopt;
}

std::size_t load_leaf_free(const Byte* raw) { return load_le16(raw + kFreeOffset); }

}  // namespace brenik::index
