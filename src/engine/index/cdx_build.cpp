// Making an index file, and filling a new tag from sorted entries, leaves first.

#include <algorithm>

#include "engine/index/cdx_header.h"
#include "engine/index/cdx_tree.h"

namespace brenik::index {
namespace {

// One tenth of each page stays free for the first insertions.
constexpr std::size_t kSpareFraction = 10;

}  // namespace

// Pages of one level, filled from left to right.
struct CdxTag::Tree::Level {
    int number;
    RecordNumber largest_record;
    std::vector<CdxPage*> pages{};
    std::size_t used = 0;  // bytes of the last page
};

void CdxTag::Tree::build(const std::vector<IndexEntry>& entries) {
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

void CdxTag::Tree::rebuild(const std::vector<IndexEntry>& entries) {
    const std::uint32_t place = pages_.root(form());
    build(entries);
    pages_.move(pages_.page(form(), pages_.root(form())), form(), place);
}

void CdxTag::Tree::append(Level& level, Bytes entry, std::uint32_t child) {
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

CdxPage& CdxTag::Tree::begin_page(Level& level) {
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

std::unique_ptr<CdxFile> CdxFile::create(const std::string& path) {
    platform::File file =
        platform::File::open(path, platform::OpenMode::kCreate, platform::Sharing::kExclusive);
    if (!file.is_open()) {
        throw EngineFault(file.failure() == platform::OpenFailure::kSharing
                              ? FaultCode::kBusy
                              : FaultCode::kInputOutput,
                          "create index", path + ": the index file cannot be made");
    }
    // The directory's own first page lies right behind its header.
    std::vector<Byte> bytes = make_directory_header(kTagHeaderSize);
    bytes.resize(kTagHeaderSize + kCdxPageSize);
    CdxPage root(CdxForm{0, kTagNameLength, ' '}, kTagHeaderSize, true);
    root.root = true;
    root.encode(MutableBytes(bytes).subspan(kTagHeaderSize));
    file.write_at(0, bytes);
    return std::unique_ptr<CdxFile>(
        new CdxFile(std::move(file), true, locks::LockMode::kCompatible));
}

CdxTag& CdxFile::add_tag(const TagDescription& description,
                         const std::vector<IndexEntry>& entries) {
    if (!pages_->exclusive()) {
        throw EngineFault(FaultCode::kNotLocked, "create index",
                          path() + ": a tag is only added in exclusive use");
    }
    std::string name = description.name;
    name.resize(kTagNameLength, ' ');
    // The header is made once more when the root is known; this first one finds what does not fit.
    make_tag_header(description, 0, path());
    Change change(*this);
    if (change.contains(*directory_, as_bytes(name))) {
        throw EngineFault(FaultCode::kDuplicateKey, "create index",
                          path() + ": there is a tag " + description.name + " already");
    }
    const std::uint32_t header = pages_->reserve_header();
    auto tag = std::make_unique<CdxTag>(*this, description, header);
    tag->tree_->build(entries);
    pages_->fill_header(header,
                        make_tag_header(description, pages_->root(tag->tree_->form()), path()));
    change.insert(*directory_, as_bytes(name), header);
    change.publish();
    tags_.push_back(std::move(tag));
    return *tags_.back();
}

}  // namespace brenik::index
