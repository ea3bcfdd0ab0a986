// The pages of an index file that are in memory, found by their offset.
//
// The cache holds a limited number of pages. When it is full, the clock algorithm removes those
// that were not used since its hand last passed them; the pages at the top of the trees stay.

#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/index/cdx_page.h"

namespace brenik::index {

class PageCache {
  public:
    // Null if the page is not in the cache.
    CdxPage* find(std::uint32_t offset);
    // Takes the place of a page with the same offset.
    CdxPage& put(CdxPage page);
    void remove(std::uint32_t offset);
    void clear();
    // True when there are so many pages that shrink() should be called.
    bool full(std::size_t most_bytes) const { return memory() > most_bytes; }
    // Removes an eighth of the pages. Only for a caller that holds no reference to one.
    void shrink();

  private:
    static constexpr std::size_t kPagesPerGroup = 1024;
    // Numbers of slots, counted from 1; 0 where the page is not in the cache.
    using Group = std::array<std::uint32_t, kPagesPerGroup>;
    struct Slot {
        std::unique_ptr<CdxPage> page;
        bool used = false;
    };

    std::uint32_t* number_of(std::uint32_t offset);
    std::size_t memory() const { return count_ * (sizeof(CdxPage) + sizeof(Slot)); }

    std::vector<std::unique_ptr<Group>> groups_;  // by offset
    std::vector<Slot> slots_;
    std::vector<std::uint32_t> free_;  // numbers of slots without a page
    std::size_t count_ = 0;
    std::size_t hand_ = 0;
};

}  // namespace brenik::index
