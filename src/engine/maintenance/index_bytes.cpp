// Reads a whole index, and walks its trees however damaged they are.

#include "engine/maintenance/index_bytes.h"

#include <algorithm>
#include <array>

#include "engine/index/cdx_header.h"
#include "engine/locks/short_lock.h"

namespace brenik::maintenance {
namespace {

constexpr std::size_t kHeaderBytes = 16;  // root, free list, update counter

int compare(Bytes a, Bytes b) {
    const std::size_t common = std::min(a.size(), b.size());
    const auto [left, right] =
        std::mismatch(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(common), b.begin());
    if (left == a.begin() + static_cast<std::ptrdiff_t>(common)) return 0;
    return *left < *right ? -1 : 1;
}

std::string page_name(std::uint32_t offset) {
    return offset == index::kNoPage ? std::string("none") : "page " + std::to_string(offset);
}

}  // namespace

// FNV-1a, 64 bits.
std::uint64_t hash_of(std::string_view key) {
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const char c : key) hash = (hash ^ static_cast<Byte>(c)) * 0x100000001B3;
    return hash;
}

bool IndexBytes::read(platform::File& index) {
    const locks::ShortLock lock = locks::ShortLock::on_index(index);
    if (lock.held()) read_again(index);
    return lock.held();
}

void IndexBytes::read_again(const platform::File& index) {
    bytes_.resize(static_cast<std::size_t>(std::min(index.size(), kLargest)));
    bytes_.resize(index.read_at(0, bytes_));
}

bool IndexBytes::is_current(const platform::File& index) const {
    std::array<Byte, kHeaderBytes> now{};
    return bytes_.size() >= now.size() && index.read_at(0, now) == now.size() &&
           std::equal(now.begin(), now.end(), bytes_.begin());
}

Bytes IndexBytes::page(std::uint64_t offset) const {
    if (offset + index::kCdxPageSize > bytes_.size()) return {};
    return Bytes(bytes_).subspan(static_cast<std::size_t>(offset), index::kCdxPageSize);
}

Bytes IndexBytes::header_at(std::uint64_t offset) const {
    if (offset + index::kTagHeaderSize > bytes_.size()) return {};
    return Bytes(bytes_).subspan(static_cast<std::size_t>(offset), index::kTagHeaderSize);
}

std::string PageOwners::claim(std::uint64_t offset, const std::string& owner) {
    if (offset % index::kCdxPageSize != 0 || offset / index::kCdxPageSize >= owners_.size()) {
        return "lies outside the file's pages";
    }
    std::uint16_t& now = owners_[static_cast<std::size_t>(offset / index::kCdxPageSize)];
    if (now != 0) return "belongs to " + names_[now - 1U] + " already";
    if (names_.empty() || names_.back() != owner) {
        if (names_.size() >= 0xFFFF) return "belongs to one tag too many";
        names_.push_back(owner);
    }
    now = static_cast<std::uint16_t>(names_.size());
    return {};
}

std::vector<std::uint64_t> PageOwners::unclaimed() const {
    std::vector<std::uint64_t> offsets;
    for (std::size_t i = 0; i < owners_.size(); ++i) {
        if (owners_[i] == 0) offsets.push_back(i * index::kCdxPageSize);
    }
    return offsets;
}

void TreeWalk::fault(std::uint64_t page, const std::string& what) const {
    report_.fault("index-page", Remedy::kReindex, at_page(tag_, page), what);
}

// Reports what an interrupted change leaves; walks of this engine still read it correctly.
void TreeWalk::unfinished(std::uint64_t page, const std::string& what) const {
    report_.note(
        "index-unfinished", Remedy::kReindex, at_page(tag_, page),
        what +
            ": an interrupted change left this; BrenikDB reads it correctly and repairs it "
            "with its next change there, other programs may not");
}

void TreeWalk::run(std::uint32_t root, const std::function<void(const index::CdxPage&)>& leaf) {
    leaf_ = &leaf;
    std::vector<Link> level{{root, index::kNoPage, {}}};
    for (depth_ = 0; !level.empty(); ++depth_) {
        below_.clear();
        last_entry_.clear();
        leaves_.reset();
        previous_ = previous_left_ = previous_right_ = index::kNoPage;
        gap_ = false;
        for (const Link& link : level) {
            if (previous_ != index::kNoPage) follow_unnamed(link.page);
            const std::optional<index::CdxPage> page = take(link.page);
            if (page) visit(*page, link);
            gap_ = !page;
        }
        if (previous_ != index::kNoPage) follow_unnamed(index::kNoPage);
        level = std::move(below_);
    }
}

// The page, if it is a valid page of this tree and not claimed by another.
std::optional<index::CdxPage> TreeWalk::take(std::uint32_t offset) {
    const std::string refused = owners_.claim(offset, "tag " + tag_);
    if (!refused.empty()) {
        fault(offset, refused);
        return std::nullopt;
    }
    try {
        return index::CdxPage::decode(form_, offset, bytes_.page(offset));
    } catch (const index::PageDamage& damage) {
        fault(offset, damage.what());
        return std::nullopt;
    }
}

void TreeWalk::visit(const index::CdxPage& page, const Link& link) {
    check_place(page);
    if (link.parent != index::kNoPage && !page.empty() && !link.last_entry.empty() &&
        compare(page.last_entry(), link.last_entry) != 0) {
        unfinished(page.offset(), "does not end with the entry that page " +
                                      std::to_string(link.parent) + " names for it");
    }
    if (page.leaf()) {
        check_packing(page);
        return (*leaf_)(page);
    }
    for (std::size_t slot = 0; slot < page.count(); ++slot) {
        const Bytes entry = page.branch(slot);
        below_.push_back({page.child(slot), page.offset(), {entry.begin(), entry.end()}});
    }
}

// Visits pages that only their left neighbour names: an interrupted split leaves them.
void TreeWalk::follow_unnamed(std::uint32_t expected) {
    if (gap_) return;
    std::uint32_t next = previous_right_;
    while (next != expected) {
        if (next == index::kNoPage || owners_.is_claimed(next) || bytes_.page(next).empty()) {
            return fault(previous_, "its right sibling is " + page_name(next) + ", expected " +
                                        page_name(expected));
        }
        const std::optional<index::CdxPage> page = take(next);
        if (!page) return;
        unfinished(next, "no page of the level above names it, only its left sibling");
        visit(*page, {next, index::kNoPage, {}});
        next = page->right;
    }
}

// Checks attributes, siblings and the order within the level.
void TreeWalk::check_place(const index::CdxPage& page) {
    const std::uint32_t offset = page.offset();
    if (page.root != (depth_ == 0)) {
        fault(offset,
              page.root ? "is marked as a root, but is not one" : "is not marked as the root");
    }
    if (leaves_ && *leaves_ != page.leaf()) {
        fault(offset, "leaves and branches on one level: leaves are at different depths");
    }
    leaves_ = page.leaf();
    if (!gap_ && page.left != previous_) {
        const std::string what =
            "its left sibling is " + page_name(page.left) + ", expected " + page_name(previous_);
        page.left == previous_left_ ? unfinished(offset, what) : fault(offset, what);
    }
    if (page.empty() && depth_ > 0) fault(offset, "has no entries");
    for_each_entry(page, [&](std::size_t slot, Bytes entry) {
        const bool greater = last_entry_.empty() || compare(last_entry_, entry) < 0;
        last_entry_.assign(entry.begin(), entry.end());
        if (greater) return;
        fault(offset, "entry " + std::to_string(slot) + " is not greater than the one before it");
    });
    previous_ = offset;
    previous_left_ = page.left;
    previous_right_ = page.right;
}

// Other programs change a page in place and rely on exact free space and compression.
void TreeWalk::check_packing(const index::CdxPage& page) const {
    if (page.empty()) return;
    if (page.packing() == index::CdxPage::Packing::kExact) return;
    if (page.packing() == index::CdxPage::Packing::kTooTight) {
        return fault(page.offset(), "is packed more tightly than other programs accept");
    }
    fault(page.offset(), "free space or compression of its entries is not exact");
}

}  // namespace brenik::maintenance
