// Compresses entries and completes pages.

#include "engine/index/page_packer.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace brenik::index {

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
    const std::size_t most = count_ == 0 ? 0 : most_shared(length, trailing, trailing_);
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
