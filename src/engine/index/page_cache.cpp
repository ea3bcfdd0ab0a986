// Keeps pages by offset, and chooses those to remove.

#include "engine/index/page_cache.h"

#include <utility>

namespace brenik::index {

std::uint32_t* PageCache::number_of(std::uint32_t offset) {
    const std::size_t page = offset / kCdxPageSize;
    const std::size_t group = page / kPagesPerGroup;
    if (group >= groups_.size() || !groups_[group]) return nullptr;
    return &(*groups_[group])[page % kPagesPerGroup];
}

CdxPage* PageCache::find(std::uint32_t offset) {
    const std::uint32_t* number = number_of(offset);
    if (number == nullptr || *number == 0) return nullptr;
    Slot& slot = slots_[*number - 1];
    // A damaged file can name an offset between pages.
    if (slot.page->offset() != offset) return nullptr;
    slot.used = true;
    return slot.page.get();
}

CdxPage& PageCache::put(CdxPage page) {
    if (CdxPage* known = find(page.offset())) return *known = std::move(page);
    const std::size_t group = page.offset() / kCdxPageSize / kPagesPerGroup;
    if (group >= groups_.size()) groups_.resize(group + 1);
    if (!groups_[group]) groups_[group] = std::make_unique<Group>();
    if (free_.empty()) {
        slots_.emplace_back();
        free_.push_back(static_cast<std::uint32_t>(slots_.size()));
    }
    const std::uint32_t number = free_.back();
    Slot& slot = slots_[number - 1];
    slot.page = std::make_unique<CdxPage>(std::move(page));
    slot.used = true;
    free_.pop_back();
    ++count_;
    *number_of(slot.page->offset()) = number;
    return *slot.page;
}

void PageCache::remove(std::uint32_t offset) {
    std::uint32_t* number = number_of(offset);
    if (number == nullptr || *number == 0) return;
    free_.push_back(*number);
    slots_[*number - 1] = {};
    *number = 0;
    --count_;
}

void PageCache::clear() { *this = {}; }

void PageCache::shrink() {
    for (std::size_t left = count_ / 8; left > 0; hand_ = (hand_ + 1) % slots_.size()) {
        Slot& slot = slots_[hand_];
        if (!slot.page || std::exchange(slot.used, false)) continue;
        remove(slot.page->offset());
        --left;
    }
}

}  // namespace brenik::index
