// Searches, changes and splits index pages.

#include "engine/index/cdx_page.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>
#include <utility>

#include "engine/index/page_packer.h"

namespace brenik::index {
namespace {

void store_packed(Byte* p, std::size_t bytes, std::uint64_t packed) {
    for (std::size_t i = 0; i < bytes; ++i) p[i] = static_cast<Byte>(packed >> (8 * i));
}

int compare_entries(Bytes a, Bytes b) { return std::memcmp(a.data(), b.data(), a.size()); }

[[noreturn]] void refuse_order(std::size_t slot) {
    throw PageDamage("entry " + std::to_string(slot) + ": expected entries in key order");
}

}  // namespace

PageEntry::PageEntry(Bytes bytes) : size_(bytes.size()) {
    std::copy(bytes.begin(), bytes.end(), bytes_.begin());
}

PageEntry::PageEntry(Bytes key, RecordNumber record) : size_(key.size() + 4) {
    std::copy(key.begin(), key.end(), bytes_.begin());
    store_be32(bytes_.data() + key.size(), record);
}

CdxPage::CdxPage(const CdxForm& form, std::uint32_t offset, bool leaf)
    : level(leaf ? 0 : kUnknownLevel),
      form_(form),
      offset_(offset),
      leaf_(leaf),
      layout_(make_leaf_layout(form.key_length, 0)) {}

std::size_t CdxPage::capacity() const { return (kCdxPageSize - kInteriorStart) / stride(); }

std::size_t CdxPage::table_end() const { return kLeafStart + count_ * layout_.entry_bytes; }

const Byte* CdxPage::branch_at(std::size_t slot) const {
    return (overfull_ ? overfull_->data() : raw_.data() + kInteriorStart) + slot * stride();
}

Byte* CdxPage::branch_at(std::size_t slot) {
    return (overfull_ ? overfull_->data() : raw_.data() + kInteriorStart) + slot * stride();
}

// -- Reading.

CdxPage CdxPage::decode(const CdxForm& form, std::uint32_t offset, Bytes raw) {
    const std::uint16_t attributes = load_le16(raw.data());
    const std::size_t count = load_le16(raw.data() + 2);
    if ((attributes & ~(kRootAttribute | kLeafAttribute | kIgnoredAttribute)) != 0) {
        throw PageDamage("expected an index page, found attributes " + std::to_string(attributes));
    }
    CdxPage page(form, offset, (attributes & kLeafAttribute) != 0);
    std::copy(raw.begin(), raw.end(), page.raw_.begin());
    page.root = (attributes & kRootAttribute) != 0;
    page.left = load_le32(raw.data() + kLeftPointer);
    page.right = load_le32(raw.data() + kRightPointer);
    if (page.leaf_) {
        page.decode_leaf(count);
        return page;
    }
    if (count == 0 || count > page.capacity()) {
        throw PageDamage("expected 1 to " + std::to_string(page.capacity()) + " entries, found " +
                         std::to_string(count));
    }
    page.count_ = count;
    for (std::size_t slot = 1; slot < count; ++slot) {
        if (compare_entries(page.branch(slot - 1), page.branch(slot)) > 0) refuse_order(slot);
    }
    return page;
}

void CdxPage::decode_leaf(std::size_t count) {
    if (!take_layout(count)) return;
    const std::size_t length = form_.key_length;
    const unsigned used_bits = layout_.record_bits + layout_.duplicate_bits + layout_.trailing_bits;
    PageEntry key(length);
    LeafNumbers before{0, 0, 0};
    std::size_t exact_bytes = 0;
    bool exact = true;
    for (std::size_t slot = 0; slot < count; ++slot) {
        const LeafNumbers entry = checked_numbers(slot);
        keys_begin_ -= stored(entry);
        const Byte* const text = raw_.data() + keys_begin_;
        const std::size_t shared =
            entry.duplicate + same_text(text, stored(entry), Bytes(key).subspan(entry.duplicate));
        const Byte other = shared < length ? key.data()[shared] : Byte{0};
        Byte* const rest = key.data() + entry.duplicate;
        std::memcpy(rest, text, stored(entry));
        std::memset(rest + stored(entry), form_.pad, entry.trailing);
        const bool less =
            shared < length ? key.data()[shared] < other : entry.record < before.record;
        if (slot > 0 && less) refuse_order(slot);
        LeafNumbers best{entry.record, 0, trailing_pads(key, form_.pad)};
        if (slot > 0) {
            best.duplicate =
                std::min(shared, most_shared(form_.key_length, best.trailing, before.trailing));
        }
        exact_bytes += layout_.entry_bytes + stored(best);
        exact = exact && best.trailing == entry.trailing && best.duplicate == entry.duplicate &&
                table_bits(slot) >> used_bits == 0;
        before = best;
    }
    exact = exact && load_leaf_free(raw_.data()) == keys_begin_ - table_end();
    if (!exact) packing_ = exact_bytes > kLeafRoom ? Packing::kTooTight : Packing::kInexact;
}

// False for an empty root that has no layout yet.
bool CdxPage::take_layout(std::size_t count) {
    const std::optional<LeafLayout> layout = load_leaf_layout(raw_.data());
    if (count == 0 && !root) throw PageDamage("expected entries in a leaf below the root");
    if (!layout) {
        if (count == 0) return false;
        throw PageDamage("expected bit widths that fit the entry size and their masks");
    }
    layout_ = *layout;
    count_ = count;
    if (table_end() > kCdxPageSize) {
        throw PageDamage("expected entries that fit a page, found " + std::to_string(count));
    }
    return true;
}

// Of the entry whose key bytes end where `keys_begin_` is.
LeafNumbers CdxPage::checked_numbers(std::size_t slot) const {
    const LeafNumbers entry = numbers(slot);
    if (entry.duplicate + entry.trailing > form_.key_length || (slot == 0 && entry.duplicate > 0) ||
        keys_begin_ - table_end() < stored(entry)) {
        throw PageDamage("entry " + std::to_string(slot) +
                         ": expected counts that fit the key and the page");
    }
    return entry;
}

std::uint64_t CdxPage::table_bits(std::size_t slot) const {
    const unsigned behind = 64 - 8 * layout_.entry_bytes;  // bits that belong to other entries
    return load_le64(raw_.data() + kLeafStart + slot * layout_.entry_bytes) << behind >> behind;
}

LeafNumbers CdxPage::numbers(std::size_t slot) const {
    const std::uint64_t bits = table_bits(slot);
    const std::uint64_t counts = bits >> layout_.record_bits;
    return {
        static_cast<RecordNumber>(bits & mask(layout_.record_bits)),
        static_cast<std::size_t>(counts & mask(layout_.duplicate_bits)),
        static_cast<std::size_t>(counts >> layout_.duplicate_bits & mask(layout_.trailing_bits))};
}

void CdxPage::set_numbers(std::size_t slot, const LeafNumbers& entry) {
    store_packed(raw_.data() + kLeafStart + slot * layout_.entry_bytes, layout_.entry_bytes,
                 pack_numbers(layout_, entry));
}

// Where the key bytes of the entries before `slot` begin.
std::size_t CdxPage::keys_before(std::size_t slot) const {
    if (slot == count_) return keys_begin_;
    std::size_t begin = kCdxPageSize;
    for (std::size_t i = 0; i < slot; ++i) begin -= stored(numbers(i));
    return begin;
}

// Takes from each earlier entry the leading bytes that the later ones share with it. `keys_end` is
// where the key bytes of the entries before `slot` begin.
PageEntry CdxPage::unpack(std::size_t slot, std::size_t keys_end) const {
    const std::size_t length = form_.key_length;
    PageEntry entry(length + 4);
    LeafNumbers from = numbers(slot);
    store_be32(entry.data() + length, from.record);
    std::size_t begin = keys_end - stored(from);
    for (std::size_t missing = length;;) {
        const std::size_t text_end = length - from.trailing;
        if (missing > from.duplicate) {
            const std::size_t copied = std::min(missing, text_end);
            if (copied > from.duplicate) {
                std::memcpy(entry.data() + from.duplicate, raw_.data() + begin,
                            copied - from.duplicate);
            }
            if (missing > text_end) {
                std::memset(entry.data() + text_end, form_.pad, missing - text_end);
            }
            missing = from.duplicate;
        }
        if (missing == 0) return entry;
        begin += stored(from);
        from = numbers(--slot);
    }
}

PageEntry CdxPage::entry(std::size_t slot) const {
    if (!leaf_) return PageEntry(branch(slot));
    if (overfull_) return PageEntry(Bytes(*overfull_).subspan(slot * stride(), stride()));
    if (slot + 1 == count_) return unpack(slot, keys_begin_ + stored(numbers(slot)));
    return unpack(slot, keys_before(slot));
}

RecordNumber CdxPage::record(std::size_t slot) const {
    return leaf_ && !overfull_ ? numbers(slot).record
                               : load_be32(branch_at(slot) + form_.key_length);
}

CdxPage::Reading CdxPage::reading(std::size_t slot) const {
    const std::size_t end = keys_before(slot);
    return {slot, end - stored(numbers(slot)), unpack(slot, end)};
}

// What the entry shares with the one before it, it shares with the probe.
CdxPage::Reading CdxPage::reading(const Place& place, Bytes probe) const {
    const LeafNumbers found = numbers(place.slot);
    Reading reading{place.slot, place.keys_end - stored(found), PageEntry(form_.key_length + 4)};
    if (found.duplicate > 0) std::memcpy(reading.entry.data(), probe.data(), found.duplicate);
    add_rest(found, reading);
    return reading;
}

// Fills in what an entry does not share with the one before it.
void CdxPage::add_rest(const LeafNumbers& numbers, Reading& reading) const {
    Byte* rest = reading.entry.data() + numbers.duplicate;
    std::memcpy(rest, raw_.data() + reading.keys_begin, stored(numbers));
    std::memset(rest + stored(numbers), form_.pad, numbers.trailing);
    store_be32(reading.entry.data() + form_.key_length, numbers.record);
}

void CdxPage::advance(Reading& reading) const {
    const LeafNumbers next = numbers(++reading.slot);
    reading.keys_begin -= stored(next);
    add_rest(next, reading);
}

std::size_t CdxPage::bound(Bytes probe, bool past_equal) const {
    if (leaf_) return find(probe, past_equal).slot;
    std::size_t low = 0;
    for (std::size_t high = count_; low < high;) {
        const std::size_t middle = (low + high) / 2;
        const int order =
            probe.empty() ? 0 : std::memcmp(branch_at(middle), probe.data(), probe.size());
        if (order < 0 || (past_equal && order == 0)) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}

// An entry that shares more with its predecessor than the predecessor does with the probe stands to
// the probe as the predecessor does: before it. Most others differ in the first byte they store, or
// have the probe's key and a lesser record number.
CdxPage::Place CdxPage::find(Bytes probe, bool past_equal) const {
    const std::size_t length = form_.key_length;
    const std::size_t in_key = std::min(probe.size(), length);
    const std::size_t count = count_;
    const LeafLayout layout = layout_;
    const std::uint64_t duplicate_mask = mask(layout.duplicate_bits);
    const std::uint64_t trailing_mask = mask(layout.trailing_bits);
    const std::uint64_t record_mask = mask(layout.record_bits);
    const RecordNumber record = probe.size() > length ? load_be32(probe.data() + length) : 0;
    const std::size_t pads = trailing_pads(probe.first(in_key), form_.pad);
    const Byte* entry = raw_.data() + kLeafStart;
    std::size_t keys_end = kCdxPageSize;
    std::size_t same_before = 0;
    for (std::size_t slot = 0; slot < count; ++slot, entry += layout.entry_bytes) {
        const std::uint64_t counts = load_le64(entry) >> layout.record_bits;
        const auto duplicate = static_cast<std::size_t>(counts & duplicate_mask);
        const auto trailing =
            static_cast<std::size_t>(counts >> layout.duplicate_bits & trailing_mask);
        const std::size_t text_end = length - trailing;
        const std::size_t begin = keys_end - (text_end - duplicate);
        if (duplicate <= same_before) {
            if (duplicate < std::min(text_end, in_key) && raw_[begin] < probe[duplicate]) {
                same_before = duplicate;
            } else if (duplicate == text_end && trailing == pads && same_before == length &&
                       (load_le64(entry) & record_mask) < record) {
                // The key of the probe once more, of an earlier record.
            } else {
                const std::size_t same =
                    duplicate + same_text(raw_.data() + begin, text_end - duplicate,
                                          probe.first(in_key).subspan(duplicate));
                const Order order = compare_rest(slot, begin, same, probe);
                if (order == Order::kGreater || (order == Order::kEqual && !past_equal)) {
                    return {slot, keys_end, same_before, same, order == Order::kEqual};
                }
                same_before = same;
            }
        }
        keys_end = begin;
    }
    return {count, keys_end, same_before, 0, false};
}

// The number of leading bytes of `wanted` that a stored text, followed by pads, has too.
std::size_t CdxPage::same_text(const Byte* text, std::size_t size, Bytes wanted) const {
    const std::size_t most = std::min(size, wanted.size());
    std::size_t same = common_prefix(text, wanted.data(), most);
    while (same >= size && same < wanted.size() && wanted[same] == form_.pad) ++same;
    return same;
}

// Compares an entry, which has `same` leading bytes of the probe's key, with the probe.
CdxPage::Order CdxPage::compare_rest(std::size_t slot, std::size_t keys_begin, std::size_t same,
                                     Bytes probe) const {
    const std::size_t length = form_.key_length;
    const LeafNumbers entry = numbers(slot);
    std::uint64_t there = entry.record;
    std::uint64_t wanted = 0;
    if (same < std::min(probe.size(), length)) {
        there =
            same < length - entry.trailing ? raw_[keys_begin + same - entry.duplicate] : form_.pad;
        wanted = probe[same];
    } else if (probe.size() > length) {
        wanted = load_be32(probe.data() + length);
    } else {
        return Order::kEqual;
    }
    if (there == wanted) return Order::kEqual;
    return there < wanted ? Order::kLess : Order::kGreater;
}

// -- Changing.

// Makes room for key bytes of another size: `was` and `is` bytes that end at `keys_end`. Those of
// the entries behind move.
void CdxPage::resize_keys(std::size_t keys_end, std::size_t was, std::size_t is) {
    const std::size_t behind = keys_end - was - keys_begin_;
    const std::size_t begin = keys_end - is - behind;
    std::memmove(raw_.data() + begin, raw_.data() + keys_begin_, behind);
    if (begin > keys_begin_) std::memset(raw_.data() + keys_begin_, 0, begin - keys_begin_);
    keys_begin_ = begin;
}

Byte* CdxPage::table_at(std::size_t slot) {
    return raw_.data() + kLeafStart + slot * layout_.entry_bytes;
}

// What the next entry no longer shares with its predecessor, it shares with the new entry.
bool CdxPage::insert_packed(const Place& place, Bytes entry) {
    const std::size_t slot = place.slot;
    const std::size_t end = place.keys_end;
    const Byte* const key = entry.data();
    LeafNumbers added{load_be32(key + form_.key_length), 0,
                      trailing_pads(entry.first(form_.key_length), form_.pad)};
    if (slot > 0) {
        added.duplicate = std::min(place.same_before, most_shared(form_.key_length, added.trailing,
                                                                  numbers(slot - 1).trailing));
    }
    LeafNumbers next{};
    std::size_t was = 0;
    std::size_t is = stored(added);
    std::size_t shared = 0;  // of the next entry with its predecessor until now
    if (slot < count_) {
        next = numbers(slot);
        was = stored(next);
        shared = next.duplicate;
        next.duplicate =
            std::min(place.same, most_shared(form_.key_length, added.trailing, next.trailing));
        is += stored(next);
    }
    if (table_end() + layout_.entry_bytes + is > keys_begin_ + was) return false;
    std::array<Byte, kLongestCdxKey> rest;  // what the next entry stored until now
    std::memcpy(rest.data(), raw_.data() + end - was, was);
    resize_keys(end, was, is);
    std::memcpy(raw_.data() + end - stored(added), key + added.duplicate, stored(added));
    std::memmove(table_at(slot + 1), table_at(slot), (count_ - slot) * layout_.entry_bytes);
    ++count_;
    set_numbers(slot, added);
    if (slot + 1 == count_) return true;
    Byte* to = raw_.data() + end - is;
    const std::size_t from_new = shared > next.duplicate ? shared - next.duplicate : 0;
    const std::size_t dropped = next.duplicate > shared ? next.duplicate - shared : 0;
    std::memcpy(to, key + next.duplicate, from_new);
    std::memcpy(to + from_new, rest.data() + dropped, was - dropped);
    set_numbers(slot + 1, next);
    return true;
}

// What the next entry shared with the erased one only, it stores itself now. That is never more
// than the erased entry stored.
void CdxPage::erase_packed(const Place& place, Bytes entry) {
    const std::size_t slot = place.slot;
    const std::size_t end = place.keys_end;
    const LeafNumbers erased = numbers(slot);
    std::size_t was = stored(erased);
    std::size_t is = 0;
    LeafNumbers next{};
    std::array<Byte, kLongestCdxKey> text;  // what the next entry will store
    if (slot + 1 < count_) {
        next = numbers(slot + 1);
        const Byte* const kept = raw_.data() + end - was - stored(next);
        was += stored(next);
        std::size_t shared = 0;
        if (slot > 0) {
            const std::size_t text_end = form_.key_length - next.trailing;
            shared = next.duplicate +
                     common_prefix(kept, entry.data() + next.duplicate, text_end - next.duplicate);
            shared = std::min(
                {shared, place.same_before,
                 most_shared(form_.key_length, next.trailing, numbers(slot - 1).trailing)});
        }
        const std::size_t from_erased = next.duplicate - std::min(shared, next.duplicate);
        const std::size_t dropped = shared - std::min(shared, next.duplicate);
        std::memcpy(text.data(), entry.data() + shared, from_erased);
        std::memcpy(text.data() + from_erased, kept + dropped, stored(next) - dropped);
        next.duplicate = shared;
        is = stored(next);
    }
    resize_keys(end, was, is);
    std::memmove(table_at(slot), table_at(slot + 1), (count_ - slot - 1) * layout_.entry_bytes);
    --count_;
    std::memset(raw_.data() + table_end(), 0, layout_.entry_bytes);
    if (slot == count_) return;
    std::memcpy(raw_.data() + end - is, text.data(), is);
    set_numbers(slot, next);
}

// Laying out anew moves the key bytes of a page that was packed inexactly, so the place is lost.
void CdxPage::insert(const Place& place, Bytes entry) {
    if (place.slot == count_) end_is_named = false;
    const bool exact = packing_ == Packing::kExact;
    prepare_for(load_be32(entry.data() + form_.key_length));
    if (exact && !overfull_ && insert_packed(place, entry)) return;
    Entries entries = unpacked();
    entries.insert(entries.begin() + static_cast<std::ptrdiff_t>(place.slot * stride()),
                   entry.begin(), entry.end());
    pack(std::move(entries));
}

void CdxPage::insert_child(std::size_t slot, Bytes entry, std::uint32_t child) {
    end_is_named = false;
    if (!overfull_ && count_ == capacity()) overfull_ = std::make_unique<Entries>(unpacked());
    if (overfull_) {
        overfull_->insert(overfull_->begin() + static_cast<std::ptrdiff_t>(slot * stride()),
                          stride(), Byte{0});
    } else {
        std::memmove(branch_at(slot + 1), branch_at(slot), (count_ - slot) * stride());
    }
    ++count_;
    set_last_of_child(slot, entry);
    store_be32(branch_at(slot) + form_.key_length + 4, child);
}

// Before a change. A page laid out by another program keeps its widths while they hold all counts
// and record numbers.
void CdxPage::prepare_for(RecordNumber record) {
    const auto count_bits = static_cast<unsigned>(std::bit_width(form_.key_length));
    const bool sound = layout_.duplicate_bits == count_bits && layout_.trailing_bits == count_bits;
    if (sound && record <= layout_.largest_record()) return;
    for (std::size_t slot = 0; slot < count_; ++slot) record = std::max(record, this->record(slot));
    Entries entries = unpacked();
    layout_ = make_leaf_layout(form_.key_length, record, layout_.entry_bytes);
    pack(std::move(entries));
}

void CdxPage::erase(const Place& place, Bytes entry) {
    if (place.slot + 1 == count_) end_is_named = false;
    const bool exact = packing_ == Packing::kExact;
    prepare_for(0);
    exact && !overfull_ ? erase_packed(place, entry) : erase_unpacked(place.slot);
}

void CdxPage::erase_child(std::size_t slot) {
    end_is_named = false;
    erase_unpacked(slot);
}

void CdxPage::erase_unpacked(std::size_t slot) {
    Entries entries = unpacked();
    const auto first = entries.begin() + static_cast<std::ptrdiff_t>(slot * stride());
    entries.erase(first, first + static_cast<std::ptrdiff_t>(stride()));
    pack(std::move(entries));
}

void CdxPage::set_last_of_child(std::size_t slot, Bytes entry) {
    end_is_named = false;
    std::copy(entry.begin(), entry.end(), branch_at(slot));
}

void CdxPage::become_empty_leaf() {
    if (!leaf_) layout_ = make_leaf_layout(form_.key_length, 0);
    leaf_ = true;
    level = 0;
    pack({});
    left = right = kNoPage;
}

void CdxPage::become_branch() {
    leaf_ = false;
    ++level;
    pack({});
    left = right = kNoPage;
}

void CdxPage::move_tail(std::size_t slot, CdxPage& to) {
    Entries entries = unpacked();
    const auto first = entries.begin() + static_cast<std::ptrdiff_t>(slot * stride());
    to.layout_ = layout_;
    to.pack({first, entries.end()});
    to.level = level;
    to.left = offset_;
    to.right = std::exchange(right, to.offset_);
    to.right_changed = std::exchange(right_changed, false);
    to.right_until_then = right_until_then;
    to.loose = std::exchange(loose, false);
    end_is_named = false;
    entries.erase(first, entries.end());
    pack(std::move(entries));
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

// -- Writing.

Bytes CdxPage::encode() {
    // A foreign writer may have packed the page more tightly than other readers accept.
    if (overfull_) throw PageDamage("expected entries that fit a page");
    store_page_header(raw_.data(), leaf_, count_,
                      {root, left, right_changed ? right_until_then : right});
    if (leaf_) store_leaf_header(raw_.data(), layout_, keys_begin_ - table_end());
    return raw();
}

Bytes CdxPage::encode_pointers() {
    store_le32(raw_.data() + kLeftPointer, left);
    store_le32(raw_.data() + kRightPointer, right);
    return Bytes(raw_).subspan(kLeftPointer, 8);
}

// -- Unpacked entries.

CdxPage::Entries CdxPage::unpacked() const {
    if (overfull_) return *overfull_;
    if (!leaf_) return {branch_at(0), branch_at(count_)};
    Entries entries(count_ * stride());
    if (count_ == 0) return entries;
    Reading each = reading(0);
    for (Byte* to = entries.data();; to += stride()) {
        std::memcpy(to, Bytes(each.entry).data(), stride());
        if (each.slot + 1 == count_) return entries;
        advance(each);
    }
}

// If the entries do not fit, they stay unpacked.
void CdxPage::pack(Entries entries) {
    count_ = entries.size() / stride();
    packing_ = Packing::kExact;
    overfull_.reset();
    PagePacker packer = leaf_ ? PagePacker(form_, layout_) : PagePacker(form_);
    for (std::size_t slot = 0; slot < count_; ++slot) {
        const Byte* const entry = entries.data() + slot * stride();
        const std::uint32_t child = leaf_ ? 0 : load_be32(entry + form_.key_length + 4);
        if (packer.add({entry, form_.key_length + 4}, child, 0)) continue;
        overfull_ = std::make_unique<Entries>(std::move(entries));
        return;
    }
    keys_begin_ = packer.keys_begin();
    std::ranges::copy(packer.finish({}), raw_.begin());
}

// Bytes that an entry takes after its predecessor, or as the first of a page.
std::size_t CdxPage::leaf_bytes(const Entries& entries, std::size_t slot, bool alone) const {
    const std::size_t length = form_.key_length;
    const Byte* key = entries.data() + slot * stride();
    const std::size_t trailing = trailing_pads({key, length}, form_.pad);
    if (alone || slot == 0) return layout_.entry_bytes + length - trailing;
    const std::size_t before = trailing_pads({key - stride(), length}, form_.pad);
    const std::size_t most = most_shared(length, trailing, before);
    return layout_.entry_bytes + length - trailing - common_prefix(key - stride(), key, most);
}

bool CdxPage::part_fits(const Entries& entries, std::size_t from, std::size_t to) const {
    std::size_t bytes = 0;
    for (std::size_t slot = from; slot < to && bytes <= kLeafRoom; ++slot) {
        bytes += leaf_bytes(entries, slot, slot == from);
    }
    return bytes <= kLeafRoom;
}

std::vector<std::size_t> CdxPage::cuts(bool appending) const {
    if (!overfull_) return {};
    if (leaf_) return leaf_cuts(*overfull_, appending);
    const std::size_t pages = (count_ + capacity() - 1) / capacity();
    if (appending && pages == 2) return {count_ - 1};
    std::vector<std::size_t> result;
    for (std::size_t page = 1; page < pages; ++page) result.push_back(count_ * page / pages);
    return result;
}

std::vector<std::size_t> CdxPage::leaf_cuts(const Entries& entries, bool appending) const {
    std::vector<std::size_t> bytes_up_to(count_ + 1, 0);
    for (std::size_t slot = 0; slot < count_; ++slot) {
        bytes_up_to[slot + 1] = bytes_up_to[slot] + leaf_bytes(entries, slot, false);
    }
    if (appending && bytes_up_to[count_ - 1] <= kLeafRoom) return {count_ - 1};
    const auto half =
        std::lower_bound(bytes_up_to.begin(), bytes_up_to.end(), bytes_up_to.back() / 2);
    const std::size_t middle = std::clamp<std::size_t>(
        static_cast<std::size_t>(half - bytes_up_to.begin()), 1, count_ - 1);
    if (bytes_up_to[middle] <= kLeafRoom && part_fits(entries, middle, count_)) return {middle};
    return greedy_leaf_cuts(entries);
}

// Long keys with short common prefixes, or entries that just became wider, can need three pages.
std::vector<std::size_t> CdxPage::greedy_leaf_cuts(const Entries& entries) const {
    std::vector<std::size_t> result;
    std::size_t bytes = 0;
    for (std::size_t slot = 0; slot < count_; ++slot) {
        bytes += leaf_bytes(entries, slot, false);
        if (bytes <= kLeafRoom) continue;
        result.push_back(slot);
        bytes = leaf_bytes(entries, slot, true);
    }
    return result;
}

}  // namespace brenik::index
