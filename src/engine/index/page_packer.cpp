// Compresses entries and completes pages.

#include "engine/index/page_packer.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace brenik::index {
namespace {

constexpr std::size_t kWord = 8;  // bytes compared at a time

}  // namespace

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
    store_le16(raw + 12, static_cast<std::uint16_t>(free));
    store_le32(raw + 14, static_cast<std::uint32_t>(mask(layout.record_bits)));
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

PagePacker::PagePacker(const CdxForm& form, const LeafLayout& layout)
    : form_(form), leaf_(true), layout_(layout) {
    reset();
}

PagePacker::PagePacker(const CdxForm& form) : form_(form), leaf_(false) { reset(); }

void PagePacker::reset() {
    count_ = 0;
    front_ = leaf_ ? kLeafStart : kInteriorStart;
    back_ = kCdxPageSize;
    trailing_ = 0;
}

std::size_t PagePacker::room() const {
    return kCdxPageSize - (leaf_ ? kLeafStart : kInteriorStart);
}

bool PagePacker::add(Bytes entry, std::uint32_t child, std::size_t spare) {
    if (!(leaf_ ? add_to_leaf(entry, spare) : add_to_branch(entry, child, spare))) return false;
    std::copy(entry.begin(), entry.end(), last_.begin());
    ++count_;
    return true;
}

bool PagePacker::add_to_leaf(Bytes entry, std::size_t spare) {
    const std::size_t length = form_.key_length;
    const std::size_t trailing = trailing_pads(entry.first(length), form_.pad);
    const std::size_t most = count_ == 0 ? 0 : length - std::max(trailing, trailing_);
    const std::size_t duplicate = common_prefix(last_.data(), entry.data(), most);
    const std::size_t stored = length - duplicate - trailing;
    if (front_ + layout_.entry_bytes + stored + spare > back_) return false;
    back_ -= stored;
    if (stored > 0) std::memcpy(page_.data() + back_, entry.data() + duplicate, stored);
    std::uint64_t packed =
        pack_numbers(layout_, {load_be32(entry.data() + length), duplicate, trailing});
    for (std::size_t i = 0; i < layout_.entry_bytes; ++i, packed >>= 8) {
        page_[front_++] = static_cast<Byte>(packed);
    }
    trailing_ = trailing;
    return true;
}

bool PagePacker::add_to_branch(Bytes entry, std::uint32_t child, std::size_t spare) {
    if (front_ + entry.size() + 4 + spare > back_) return false;
    std::memcpy(page_.data() + front_, entry.data(), entry.size());
    store_be32(page_.data() + front_ + entry.size(), child);
    front_ += entry.size() + 4;
    return true;
}

Bytes PagePacker::finish(const PageLinks& links) {
    Byte* raw = page_.data();
    std::memset(raw + front_, 0, back_ - front_);
    store_page_header(raw, leaf_, count_, links);
    if (leaf_) store_leaf_header(raw, layout_, back_ - front_);
    return page_;
}

}  // namespace brenik::index
