// The bytes of an index file at one moment, read under the index lock, and its trees.
//
// Checks walk these bytes, not the engine's cache: they must see what the file holds even where no
// walk of the engine leads, and continue past damage. A page is visited only once, so every walk
// ends, whatever the pages say.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "engine/index/cdx_file.h"
#include "engine/index/cdx_page.h"
#include "engine/maintenance/open_table_files.h"
#include "engine/maintenance/reporter.h"

namespace brenik::maintenance {

// One entry of a leaf. The key itself is not stored: decoded keys may take many times the space
// that they take in the file.
struct TreeEntry {
    RecordNumber record;
    std::uint32_t page;
    std::uint64_t key_hash;
};

std::uint64_t hash_of(std::string_view key);

// Calls `use(slot, entry)` for each entry. Asking a leaf for its entries one by one would unpack
// the earlier ones each time.
template <typename Use>
void for_each_entry(const index::CdxPage& page, Use use) {
    if (!page.leaf()) {
        for (std::size_t slot = 0; slot < page.count(); ++slot) use(slot, page.entry(slot));
        return;
    }
    if (page.empty()) return;
    index::CdxPage::Reading reading = page.reading(0);
    use(reading.slot, reading.entry);
    while (reading.slot + 1 < page.count()) {
        page.advance(reading);
        use(reading.slot, reading.entry);
    }
}

class IndexBytes {
  public:
    // Page offsets have 32 bits.
    static constexpr std::uint64_t kLargest = 0xFFFFFE00;

    // False when another program keeps the index locked.
    bool read(platform::File& index);
    // Both require a lock that the caller holds.
    void read_again(const platform::File& index);
    bool is_current(const platform::File& index) const;

    const std::vector<Byte>& bytes() const { return bytes_; }
    // Empty when the page is not wholly in the file.
    Bytes page(std::uint64_t offset) const;
    Bytes header_at(std::uint64_t offset) const;

  private:
    std::vector<Byte> bytes_;
};

// Which tree each page belongs to.
class PageOwners {
  public:
    explicit PageOwners(std::uint64_t file_size)
        : owners_(static_cast<std::size_t>(file_size / index::kCdxPageSize)) {}

    // Claims a page for an owner. Empty on success, otherwise the reason why it cannot be claimed.
    std::string claim(std::uint64_t offset, const std::string& owner);
    std::vector<std::uint64_t> unclaimed() const;
    bool is_claimed(std::uint64_t offset) const {
        return offset / index::kCdxPageSize < owners_.size() &&
               owners_[static_cast<std::size_t>(offset / index::kCdxPageSize)] != 0;
    }

  private:
    std::vector<std::uint16_t> owners_;  // 1 + index into names_; 0: no owner
    std::vector<std::string> names_;
};

// Walks a tree level by level and reports its faults. Passes every readable leaf to `leaf`, in the
// order of its level.
class TreeWalk {
  public:
    TreeWalk(const IndexBytes& bytes, PageOwners& owners, const Reporter& report, std::string tag,
             index::CdxForm form)
        : bytes_(bytes), owners_(owners), report_(report), tag_(std::move(tag)), form_(form) {}

    void run(std::uint32_t root, const std::function<void(const index::CdxPage&)>& leaf);

  private:
    // A page, as the level above names it.
    struct Link {
        std::uint32_t page;
        std::uint32_t parent;  // kNoPage for the root
        std::vector<Byte> last_entry;
    };

    void fault(std::uint64_t page, const std::string& what) const;
    void unfinished(std::uint64_t page, const std::string& what) const;
    std::optional<index::CdxPage> take(std::uint32_t offset);
    void visit(const index::CdxPage& page, const Link& link);
    void follow_unnamed(std::uint32_t expected);
    void check_place(const index::CdxPage& page);
    void check_packing(const index::CdxPage& page) const;

    const IndexBytes& bytes_;
    PageOwners& owners_;
    const Reporter& report_;
    std::string tag_;
    index::CdxForm form_;
    const std::function<void(const index::CdxPage&)>* leaf_ = nullptr;

    // The level in progress.
    std::size_t depth_ = 0;
    std::vector<Link> below_;
    std::optional<bool> leaves_;  // whether this level's pages are leaves
    std::uint32_t previous_ = index::kNoPage;
    std::uint32_t previous_left_ = index::kNoPage;
    std::uint32_t previous_right_ = index::kNoPage;
    std::vector<Byte> last_entry_;
    bool gap_ = false;  // the previous page could not be read
};

}  // namespace brenik::maintenance
