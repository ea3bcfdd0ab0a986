// Builds a tag's tree from sorted entries.
//
// All levels grow at once, each with one page under construction. Pages go to the end of the file
// in large steps, not through the page cache.

#include <algorithm>
#include <cstring>
#include <deque>
#include <utility>

#include "engine/index/cdx_header.h"
#include "engine/index/cdx_tree.h"
#include "engine/index/page_packer.h"

namespace brenik::index {
namespace {

// One tenth of each page stays free for later insertions.
constexpr std::size_t kSpareFraction = 10;
constexpr std::size_t kBytesAtOnce = std::size_t{1} << 20;

// Writes pages, most of them in the order of their offsets.
class PageWriter {
  public:
    explicit PageWriter(CdxPages& pages) : pages_(pages) { waiting_.reserve(kBytesAtOnce); }

    void write(std::uint32_t offset, Bytes page) {
        if (offset < start_) return pages_.write_reserved(offset, page);
        if (waiting_.empty() || offset - start_ + page.size() > kBytesAtOnce) {
            flush();
            start_ = offset;
        }
        const auto place = static_cast<std::size_t>(offset - start_);
        waiting_.resize(std::max(waiting_.size(), place + page.size()));
        std::memcpy(waiting_.data() + place, page.data(), page.size());
    }

    void flush() {
        if (!waiting_.empty()) pages_.write_reserved(start_, waiting_);
        waiting_.clear();
    }

  private:
    CdxPages& pages_;
    // The bytes of the file from `start_` on. A page among them that is not complete yet is written
    // later, by itself if need be.
    std::vector<Byte> waiting_;
    std::uint64_t start_ = 0;
};

}  // namespace

class CdxTree::Builder {
  public:
    Builder(CdxPages& pages, const CdxForm& form, RecordNumber largest_record)
        : pages_(pages), form_(form), writer_(pages) {
        levels_.push_back({PagePacker(form, make_leaf_layout(form.key_length, largest_record))});
    }

    // Writes all pages but the root, and returns that.
    Bytes build(const SortedEntries& entries, bool unique) {
        for (Bytes entry; entries.next(entry);) {
            if (!unique || !ends_with(entry.first(form_.key_length))) append(0, entry, 0);
        }
        for (std::size_t number = 0; number + 1 < levels_.size(); ++number) {
            write(number, kNoPage);
            append(number + 1, levels_[number].packer.last_entry(), levels_[number].offset);
        }
        writer_.flush();
        return levels_.back().packer.finish({true, kNoPage, kNoPage});
    }
    int root_level() const { return static_cast<int>(levels_.size()) - 1; }

  private:
    struct Level {
        PagePacker packer;
        std::uint32_t offset = kNoPage;  // of the page under construction; of the first, once full
        std::uint32_t left = kNoPage;
    };

    bool ends_with(Bytes key) const {
        const PagePacker& leaf = levels_.front().packer;
        return leaf.count() > 0 &&
               std::memcmp(leaf.last_entry().data(), key.data(), key.size()) == 0;
    }

    // A page takes two entries, if they fit at all, so that each level is smaller than the one
    // below.
    void append(std::size_t number, Bytes entry, std::uint32_t child) {
        if (number == levels_.size()) levels_.push_back({PagePacker(form_)});
        Level& level = levels_[number];
        PagePacker& packer = level.packer;
        const std::size_t spare = packer.count() < 2 ? 0 : packer.room() / kSpareFraction;
        if (packer.add(entry, child, spare)) return;
        if (level.offset == kNoPage) level.offset = pages_.reserve_page();
        const std::uint32_t next = pages_.reserve_page();
        write(number, next);
        append(number + 1, packer.last_entry(), level.offset);
        level.left = std::exchange(level.offset, next);
        packer.reset();
        static_cast<void>(packer.add(entry, child, 0));  // the first one always fits
    }

    void write(std::size_t number, std::uint32_t right) {
        Level& level = levels_[number];
        writer_.write(level.offset, level.packer.finish({false, level.left, right}));
    }

    CdxPages& pages_;
    CdxForm form_;
    PageWriter writer_;
    std::deque<Level> levels_;
};

void CdxTree::build(const SortedEntries& entries) {
    Builder builder(pages_, form(), entries.largest_record);
    const Bytes root = builder.build(entries, description_.unique);
    const std::uint32_t offset = pages_.reserve_page();
    pages_.write_reserved(offset, root);
    pages_.set_root(form(), offset);
}

void CdxTree::rebuild(const SortedEntries& entries) {
    Builder builder(pages_, form(), entries.largest_record);
    const Bytes root = builder.build(entries, description_.unique);
    pages_.replace(form(), pages_.root(form()), root, builder.root_level());
}

}  // namespace brenik::index
