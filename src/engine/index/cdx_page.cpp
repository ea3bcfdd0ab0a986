// Decodes, encodes and splits index pages.

#include "engine/index/cdx_page.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "engine/index/page_packer.h"

namespace brenik::index {
namespace {

constexpr std::uint16_t kIgnoredAttribute = 0x04;
constexpr std::size_t kLeafRoom = kCdxPageSize - kLeafStart;
constexpr unsigned kLeastRecordBits = 12;
constexpr unsigned kMostRecordBits = 32;

std::uint64_t load_packed(const Byte* p, std::size_t bytes) {
    std::uint64_t packed = 0;
    for (std::size_t i = bytes; i-- > 0;) packed = packed << 8 | p[i];
    return packed;
}

// True when widths and masks agree with each other and with the entry size.
bool is_consistent(const LeafLayout& layout, Bytes raw) {
    return layout.entry_bytes >= 1 && layout.entry_bytes <= 8 &&
           layout.record_bits <= kMostRecordBits && layout.duplicate_bits <= 8 &&
           layout.trailing_bits <= 8 &&
           layout.record_bits + layout.duplicate_bits + layout.trailing_bits <=
               8 * layout.entry_bytes &&
           load_le32(raw.data() + 14) == mask(layout.record_bits) &&
           raw[18] == mask(layout.duplicate_bits) && raw[19] == mask(layout.trailing_bits);
}

}  // namespace

RecordNumber LeafLayout::largest_record() const {
    return static_cast<RecordNumber>(mask(record_bits));
}

LeafLayout make_leaf_layout(std::size_t key_length, RecordNumber largest, unsigned entry_bytes) {
    const auto count_bits = static_cast<unsigned>(std::bit_width(key_length));
    const auto needed = std::max(kLeastRecordBits, static_cast<unsigned>(std::bit_width(largest)));
    const unsigned bytes = std::max(entry_bytes, (needed + 2 * count_bits + 7) / 8);
    return {std::min(8 * bytes - 2 * count_bits, kMostRecordBits), count_bits, count_bits, bytes};
}

CdxPage::CdxPage(const CdxForm& form, std::uint32_t offset, bool leaf)
    : level(leaf ? 0 : kUnknownLevel),
      form_(form),
      offset_(offset),
      leaf_(leaf),
      layout_(make_leaf_layout(form.key_length, 0)) {}

std::size_t CdxPage::room() const { return leaf_ ? kLeafRoom : kCdxPageSize - kInteriorStart; }

std::size_t CdxPage::last_entry_bytes() const {
    return leaf_ ? leaf_bytes(count() - 1, false) : stride();
}

CdxPage CdxPage::decode(const CdxForm& form, std::uint32_t offset, Bytes raw) {
    const std::uint16_t attributes = load_le16(raw.data());
    const std::size_t count = load_le16(raw.data() + 2);
    if ((attributes & ~(kRootAttribute | kLeafAttribute | kIgnoredAttribute)) != 0) {
        throw PageDamage("expected an index page, found attributes " + std::to_string(attributes));
    }
    CdxPage page(form, offset, (attributes & kLeafAttribute) != 0);
    page.root = (attributes & kRootAttribute) != 0;
    page.left = load_le32(raw.data() + 4);
    page.right = load_le32(raw.data() + 8);
    if (page.leaf_) {
        page.decode_leaf(raw, count);
    } else {
        if (count == 0 || count > page.capacity()) {
            throw PageDamage("expected 1 to " + std::to_string(page.capacity()) +
                             " entries, found " + std::to_string(count));
        }
        const auto first = raw.begin() + kInteriorStart;
        page.entries_.assign(first, first + static_cast<std::ptrdiff_t>(count * page.stride()));
    }
    page.check_order();
    return page;
}

void CdxPage::decode_leaf(Bytes raw, std::size_t count) {
    const LeafLayout layout{raw[20], raw[21], raw[22], raw[23]};
    if (count == 0 && !root) throw PageDamage("expected entries in a leaf below the root");
    // An empty root may have no layout yet.
    if (count == 0 && !is_consistent(layout, raw)) return;
    if (!is_consistent(layout, raw)) {
        throw PageDamage("expected bit widths that fit the entry size and their masks");
    }
    layout_ = layout;
    const std::size_t table_end = kLeafStart + count * layout.entry_bytes;
    if (table_end > kCdxPageSize) {
        throw PageDamage("expected entries that fit a page, found " + std::to_string(count));
    }
    const std::size_t length = form_.key_length;
    entries_.resize(count * stride());
    std::size_t end = kCdxPageSize;
    for (std::size_t slot = 0; slot < count; ++slot) {
        const std::uint64_t packed =
            load_packed(raw.data() + kLeafStart + slot * layout.entry_bytes, layout.entry_bytes);
        const auto duplicate =
            static_cast<std::size_t>(packed >> layout.record_bits & mask(layout.duplicate_bits));
        const auto trailing = static_cast<std::size_t>(
            packed >> (layout.record_bits + layout.duplicate_bits) & mask(layout.trailing_bits));
        if (duplicate + trailing > length || (slot == 0 && duplicate > 0) ||
            end - table_end < length - duplicate - trailing) {
            throw PageDamage("entry " + std::to_string(slot) +
                             ": expected counts that fit the key and the page");
        }
        const std::size_t stored = length - duplicate - trailing;
        end -= stored;
        Byte* key = at(slot);
        if (duplicate > 0) std::memcpy(key, key - stride(), duplicate);
        if (stored > 0) std::memcpy(key + duplicate, raw.data() + end, stored);
        std::memset(key + length - trailing, form_.pad, trailing);
        store_be32(key + length, static_cast<std::uint32_t>(packed & mask(layout.record_bits)));
    }
}

void CdxPage::check_order() const {
    for (std::size_t slot = 1; slot < count(); ++slot) {
        if (std::memcmp(at(slot - 1), at(slot), form_.key_length + 4) > 0) {
            throw PageDamage("entry " + std::to_string(slot) + ": expected entries in key order");
        }
    }
}

// A foreign writer may have packed the page more tightly than other readers accept.
void CdxPage::encode(MutableBytes raw) const {
    PagePacker packer = leaf_ ? PagePacker(form_, layout_) : PagePacker(form_);
    for (std::size_t slot = 0; slot < count(); ++slot) {
        if (!packer.add(entry(slot), leaf_ ? 0 : child(slot), 0)) {
            throw PageDamage("expected entries that fit a page");
        }
    }
    const Bytes packed = packer.finish({root, left, right_changed ? right_until_then : right});
    std::copy(packed.begin(), packed.end(), raw.begin());
}

std::size_t CdxPage::bound(Bytes probe, bool past_equal) const {
    std::size_t low = 0;
    for (std::size_t high = count(); low < high;) {
        const std::size_t middle = (low + high) / 2;
        const int order = probe.empty() ? 0 : std::memcmp(at(middle), probe.data(), probe.size());
        if (order < 0 || (past_equal && order == 0)) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}

void CdxPage::insert(std::size_t slot, Bytes entry, std::uint32_t child) {
    if (leaf_) prepare_for(load_be32(entry.data() + form_.key_length));
    const auto gap = entries_.insert(
        entries_.begin() + static_cast<std::ptrdiff_t>(slot * stride()), stride(), Byte{0});
    std::copy(entry.begin(), entry.end(), gap);
    if (!leaf_) store_be32(at(slot) + form_.key_length + 4, child);
}

// A page laid out by another program keeps its widths while they hold all counts and record
// numbers.
void CdxPage::prepare_for(RecordNumber record) {
    const LeafLayout standard = make_leaf_layout(form_.key_length, 0, layout_.entry_bytes);
    if (layout_ != standard) {
        for (std::size_t slot = 0; slot < count(); ++slot) {
            record = std::max(record, this->record(slot));
        }
    }
    const bool sound = layout_.duplicate_bits == standard.duplicate_bits &&
                       layout_.trailing_bits == standard.trailing_bits;
    if (sound && record <= layout_.largest_record()) return;
    layout_ = make_leaf_layout(form_.key_length, record, layout_.entry_bytes);
}

void CdxPage::erase(std::size_t slot) {
    const auto first = entries_.begin() + static_cast<std::ptrdiff_t>(slot * stride());
    entries_.erase(first, first + static_cast<std::ptrdiff_t>(stride()));
}

void CdxPage::set_last_of_child(std::size_t slot, Bytes entry) {
    std::copy(entry.begin(), entry.end(), at(slot));
}

void CdxPage::become_empty_leaf() {
    if (!leaf_) layout_ = make_leaf_layout(form_.key_length, 0);
    leaf_ = true;
    level = 0;
    entries_.clear();
    left = right = kNoPage;
}

void CdxPage::become_branch() {
    leaf_ = false;
    ++level;
    left = right = kNoPage;
}

void CdxPage::move_tail(std::size_t slot, CdxPage& to) {
    const auto first = entries_.begin() + static_cast<std::ptrdiff_t>(slot * stride());
    to.entries_.assign(first, entries_.end());
    to.layout_ = layout_;
    to.level = level;
    to.left = offset_;
    to.right = std::exchange(right, to.offset_);
    to.right_changed = std::exchange(right_changed, false);
    to.right_until_then = right_until_then;
    to.loose = std::exchange(loose, false);
    entries_.erase(first, entries_.end());
}

void CdxPage::pass_over(const CdxPage& neighbour) {
    if (!neighbour.unwritten) {
        if (!right_changed) right_until_then = neighbour.offset_;
        right_changed = true;
    } else if (neighbour.right_changed && !right_changed) {
        right_until_then = neighbour.right_until_then;
        right_changed = true;
    }
    right = neighbour.right;
}

// Bytes that an entry takes after its predecessor, or as the first of a page.
std::size_t CdxPage::leaf_bytes(std::size_t slot, bool alone) const {
    const std::size_t length = form_.key_length;
    const Byte* key = at(slot);
    const std::size_t trailing = trailing_pads({key, length}, form_.pad);
    if (alone || slot == 0) return layout_.entry_bytes + length - trailing;
    const std::size_t before = trailing_pads({key - stride(), length}, form_.pad);
    const std::size_t most = length - std::max(trailing, before);
    return layout_.entry_bytes + length - trailing - common_prefix(key - stride(), key, most);
}

bool CdxPage::part_fits(std::size_t from, std::size_t to) const {
    std::size_t bytes = 0;
    for (std::size_t slot = from; slot < to && bytes <= kLeafRoom; ++slot) {
        bytes += leaf_bytes(slot, slot == from);
    }
    return bytes <= kLeafRoom;
}

std::vector<std::size_t> CdxPage::cuts(bool appending) const {
    if (leaf_) return leaf_cuts(appending);
    std::vector<std::size_t> result;
    if (count() <= capacity()) return result;
    const std::size_t pages = (count() + capacity() - 1) / capacity();
    if (appending && pages == 2) return {count() - 1};
    for (std::size_t page = 1; page < pages; ++page) result.push_back(count() * page / pages);
    return result;
}

std::vector<std::size_t> CdxPage::leaf_cuts(bool appending) const {
    std::vector<std::size_t> bytes_up_to(count() + 1, 0);
    for (std::size_t slot = 0; slot < count(); ++slot) {
        bytes_up_to[slot + 1] = bytes_up_to[slot] + leaf_bytes(slot, false);
    }
    if (bytes_up_to.back() <= kLeafRoom) return {};
    if (appending && bytes_up_to[count() - 1] <= kLeafRoom) return {count() - 1};
    const auto half =
        std::lower_bound(bytes_up_to.begin(), bytes_up_to.end(), bytes_up_to.back() / 2);
    const std::size_t middle = std::clamp<std::size_t>(
        static_cast<std::size_t>(half - bytes_up_to.begin()), 1, count() - 1);
    if (bytes_up_to[middle] <= kLeafRoom && part_fits(middle, count())) return {middle};
    return greedy_leaf_cuts();
}

// Long keys with short common prefixes, or entries that just became wider, can need three pages.
std::vector<std::size_t> CdxPage::greedy_leaf_cuts() const {
    std::vector<std::size_t> result;
    std::size_t bytes = 0;
    for (std::size_t slot = 0; slot < count(); ++slot) {
        bytes += leaf_bytes(slot, false);
        if (bytes <= kLeafRoom) continue;
        result.push_back(slot);
        bytes = leaf_bytes(slot, true);
    }
    return result;
}

}  // namespace brenik::index
