// Builds a tag's tree from sorted entries, leaves first.

#include <algorithm>

#include "engine/index/cdx_header.h"
#include "engine/index/cdx_tree.h"

namespace brenik::index {
namespace {

// One tenth of each page stays free for later insertions.
constexpr std::size_t kSpareFraction = 10;

}  // namespace

// Pages of one level, filled from left to right.
struct CdxTree::Level {
    int number;
    RecordNumber largest_record;
    std::vector<CdxPage*> pages{};
    std::size_t used = 0;  // bytes of the last page
};

void CdxTree::build(const std::vector<IndexEntry>& entries) {
    Level level{0, 0};
    for (const IndexEntry& entry : entries) {
        level.largest_record = std::max(level.largest_record, entry.record);
    }
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (description_.unique && i > 0 && entries[i].key == entries[i - 1].key) continue;
        append(level, checked_entry(as_bytes(entries[i].key), entries[i].record), 0);
    }
    if (level.pages.empty()) begin_page(level);
    while (level.pages.size() > 1) {
        Level above{level.number + 1, 0};
        for (const CdxPage* page : level.pages) append(above, page->last_entry(), page->offset());
        level = std::move(above);
    }
    level.pages.front()->root = true;
    pages_.set_root(form(), level.pages.front()->offset());
}

void CdxTree::rebuild(const std::vector<IndexEntry>& entries) {
    const std::uint32_t place = pages_.root(form());
    build(entries);
    pages_.move(pages_.page(form(), pages_.root(form())), form(), place);
}

void CdxTree::append(Level& level, Bytes entry, std::uint32_t child) {
    CdxPage* page = level.pages.empty() ? &begin_page(level) : level.pages.back();
    page->insert(page->count(), entry, child);
    level.used += page->last_entry_bytes();
    const std::size_t room = page->room();
    if (level.used <= room - room / kSpareFraction || page->count() == 1) return;
    if (page->count() == 2 && level.used <= room) return;
    page->erase(page->count() - 1);
    page = &begin_page(level);
    page->insert(0, entry, child);
    level.used = page->last_entry_bytes();
}

CdxPage& CdxTree::begin_page(Level& level) {
    CdxPage& page = pages_.add(form(), level.number == 0);
    page.level = level.number;
    if (page.leaf()) page.prepare_for(level.largest_record);
    if (!level.pages.empty()) {
        page.left = level.pages.back()->offset();
        level.pages.back()->right = page.offset();
    }
    level.pages.push_back(&page);
    return page;
}

}  // namespace brenik::index
