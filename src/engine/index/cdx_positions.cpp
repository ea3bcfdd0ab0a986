// Counts the entries of a tree's leaves, and finds entries by number.

#include "engine/index/cdx_positions.h"

#include <algorithm>
#include <array>

#include "engine/index/cdx_tree.h"
#include "engine/index/page_format.h"

namespace brenik::index {
namespace {

constexpr std::size_t kMostEntries = kCdxPageSize - kLeafStart;  // of a leaf, at one byte each
// Leaves that were created together are adjacent, so one read fetches many headers.
constexpr std::size_t kPagesAtOnce = 128;

struct LeafHeader {
    std::size_t entries;
    std::uint32_t right;
};

}  // namespace

void LeafCounts::add(std::uint32_t offset, std::size_t entries) {
    if (entries == 0) return;
    leaves_.push_back({offset, total_});
    total_ += entries;
}

void LeafCounts::finish() {
    by_offset_.resize(leaves_.size());
    for (std::uint32_t i = 0; i < by_offset_.size(); ++i) by_offset_[i] = i;
    std::sort(by_offset_.begin(), by_offset_.end(), [this](std::uint32_t a, std::uint32_t b) {
        return leaves_[a].offset < leaves_[b].offset;
    });
}

std::optional<std::size_t> LeafCounts::before(std::uint32_t offset) const {
    const auto found = std::lower_bound(
        by_offset_.begin(), by_offset_.end(), offset,
        [this](std::uint32_t index, std::uint32_t at) { return leaves_[index].offset < at; });
    if (found == by_offset_.end() || leaves_[*found].offset != offset) return {};
    return leaves_[*found].before;
}

const LeafCounts::Leaf& LeafCounts::holding(std::size_t number) const {
    const auto behind =
        std::upper_bound(leaves_.begin(), leaves_.end(), number,
                         [](std::size_t wanted, const Leaf& leaf) { return wanted < leaf.before; });
    return *(behind - 1);
}

// -- In the tree.

// Reads page headers, and no page from the file twice.
class CdxTree::HeaderReader {
  public:
    explicit HeaderReader(CdxPages& pages) : pages_(pages) {
        pages.measure();
        page_count_ = pages.page_count();
        headers_.resize(static_cast<std::size_t>(page_count_ / kPagesAtOnce + 1));
    }

    LeafHeader leaf(std::uint32_t offset) {
        const std::size_t page = offset / kCdxPageSize;
        if (offset % kCdxPageSize != 0 || page >= page_count_) refuse(offset);
        Group& group = headers_[page / kPagesAtOnce];
        if (group.empty()) read(page / kPagesAtOnce, group);
        const Byte* header = group[page % kPagesAtOnce].data();
        const std::size_t entries = load_le16(header + 2);
        if ((load_le16(header) & kLeafAttribute) == 0 || entries > kMostEntries) refuse(offset);
        return {entries, load_le32(header + kRightPointer)};
    }

  private:
    using Header = std::array<Byte, kInteriorStart>;
    using Group = std::vector<Header>;

    void read(std::size_t number, Group& group) {
        // A read past the end of the file would be repeated.
        const std::uint64_t first = std::uint64_t{number} * kPagesAtOnce;
        const auto pages =
            static_cast<std::size_t>(std::min<std::uint64_t>(kPagesAtOnce, page_count_ - first));
        block_.resize(pages * kCdxPageSize);
        pages_.read_bytes(first * kCdxPageSize, block_);
        group.resize(pages);
        for (std::size_t i = 0; i < pages; ++i) {
            std::copy_n(block_.data() + i * kCdxPageSize, kInteriorStart, group[i].begin());
        }
    }

    [[noreturn]] void refuse(std::uint32_t offset) {
        pages_.damaged(offset, "expected a leaf after its left sibling");
    }

    CdxPages& pages_;
    std::uint64_t page_count_ = 0;
    std::vector<Group> headers_;
    std::vector<Byte> block_;
};

// Counts again only if something may have changed since. Called inside a walk.
const LeafCounts& CdxTree::leaf_counts() {
    if (counted_generation_ == pages_.generation()) return leaf_counts_;
    LeafCounts counts;
    std::uint32_t offset = locate({}, false).page->offset();
    HeaderReader headers(pages_);
    for (std::uint64_t left = pages_.page_count(); offset != kNoPage; --left) {
        if (left == 0) pages_.damaged(offset, "expected leaves that do not form a cycle");
        const LeafHeader header = headers.leaf(offset);
        counts.add(offset, header.entries);
        offset = header.right;
    }
    counts.finish();
    leaf_counts_ = std::move(counts);
    counted_generation_ = pages_.generation();
    return leaf_counts_;
}

std::size_t CdxTree::count() {
    std::size_t total = 0;
    read([&] {
        total = leaf_counts().total();
        return true;
    });
    return total;
}

std::size_t CdxTree::count_below(Bytes probe, bool past_equal) {
    std::size_t number = 0;
    read([&] {
        const LeafCounts& counts = leaf_counts();
        if (counts.total() == 0) return false;
        const Position position = locate(probe, past_equal);
        const std::optional<std::size_t> before = counts.before(position.page->offset());
        if (!before) {
            pages_.damaged(position.page->offset(), "expected a leaf that its siblings lead to");
        }
        number = *before + position.slot;
        return true;
    });
    return number;
}

bool CdxTree::at(std::size_t number, IndexEntry& found) {
    return read([&] {
        const LeafCounts& counts = leaf_counts();
        if (number >= counts.total()) return false;
        const LeafCounts::Leaf& leaf = counts.holding(number);
        CdxPage& page = load(leaf.offset);
        const std::size_t slot = number - leaf.before;
        if (!page.leaf() || slot >= page.count()) {
            pages_.damaged(leaf.offset, "expected a leaf with as many entries as counted");
        }
        return answer({&page, slot}, found);
    });
}

std::size_t CdxTree::count_before(Bytes key, RecordNumber record) {
    return count_below(probe(key, record), false);
}

std::size_t CdxTree::count_through(Bytes key, RecordNumber record) {
    return count_below(probe(key, record), true);
}

}  // namespace brenik::index
