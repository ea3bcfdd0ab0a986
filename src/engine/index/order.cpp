// The contents of an order, and steps through it.

#include "engine/index/order.h"

#include <algorithm>
#include <limits>

#include "util/runtime.h"

namespace brenik::index {
namespace {

constexpr RecordNumber kLastRecordNumber = std::numeric_limits<RecordNumber>::max();

// Compares the leading bytes, as many as the limit has.
int compare_leading(const std::string& key, const std::string& limit) {
    return key.compare(0, limit.size(), limit);
}

bool is_ascii(const std::string& bytes) {
    return std::all_of(bytes.begin(), bytes.end(),
                       [](char c) { return static_cast<Byte>(c) < 0x80; });
}

// UPPER and LOWER may be shortened to four letters. A field with such a name is harmless.
bool folds_case(const std::string& expression) {
    const std::string text = upper(expression);
    return text.find("UPPE") != std::string::npos || text.find("LOWE") != std::string::npos;
}

}  // namespace

std::string Order::key_of(const record::RecordView& record) const {
    std::string bytes(format.length, '\0');
    build_key(key, format, record, {reinterpret_cast<Byte*>(bytes.data()), bytes.size()});
    return bytes;
}

bool Order::agrees_with(const IndexEntry& entry, const record::RecordView& record) const {
    if (!holds(record)) return false;
    const std::string expected = key_of(record);
    if (expected == entry.key) return true;
    if (format.form != KeyForm::kText) {
        return key.lone_field() == nullptr || format.type == expression::ResultType::kDateTime;
    }
    return folds_case(key.text()) && !(is_ascii(expected) && is_ascii(entry.key));
}

bool OrderWalk::towards_end(const std::string& key, RecordNumber from, IndexEntry& found) const {
    return order_.tag->at_or_after(as_bytes(key), from, found);
}

bool OrderWalk::towards_start(const std::string& key, RecordNumber from, IndexEntry& found) const {
    return order_.tag->at_or_before(as_bytes(key), from, found);
}

bool OrderWalk::before_top(const IndexEntry& entry) const {
    if (!scope_.top) return false;
    const int place = compare_leading(entry.key, *scope_.top);
    return descending() ? place > 0 : place < 0;
}

bool OrderWalk::behind_bottom(const IndexEntry& entry) const {
    if (!scope_.bottom) return false;
    const int place = compare_leading(entry.key, *scope_.bottom);
    return descending() ? place < 0 : place > 0;
}

bool OrderWalk::first(IndexEntry& found) const {
    bool any;
    if (descending()) {
        any = scope_.top ? towards_start(*scope_.top, kLastRecordNumber, found)
                         : order_.tag->last(found);
    } else {
        any = scope_.top ? towards_end(*scope_.top, 0, found) : order_.tag->first(found);
    }
    return any && inside(found);
}

bool OrderWalk::last(IndexEntry& found) const {
    bool any;
    if (descending()) {
        any = scope_.bottom ? towards_end(*scope_.bottom, 0, found) : order_.tag->first(found);
    } else {
        any = scope_.bottom ? towards_start(*scope_.bottom, kLastRecordNumber, found)
                            : order_.tag->last(found);
    }
    return any && inside(found);
}

bool OrderWalk::next(const IndexEntry& from, IndexEntry& found, Trust trust) const {
    CdxTree& tag = *order_.tag;
    const bool any = descending() ? tag.before(from, found, trust) : tag.after(from, found, trust);
    return any && (before_top(found) ? first(found) : inside(found));
}

bool OrderWalk::previous(const IndexEntry& from, IndexEntry& found, Trust trust) const {
    CdxTree& tag = *order_.tag;
    const bool any = descending() ? tag.after(from, found, trust) : tag.before(from, found, trust);
    return any && (behind_bottom(found) ? last(found) : inside(found));
}

OrderWalk::Match OrderWalk::seek(const std::string& key, SeekEnd end, IndexEntry& found) const {
    const auto begins = [&] { return compare_leading(found.key, key) == 0; };
    const auto look = [&](bool from_low) {
        return from_low ? towards_end(key, 0, found) : towards_start(key, kLastRecordNumber, found);
    };
    if (end == SeekEnd::kLast && look(descending()) &&
        (behind_bottom(found) ? last(found) : inside(found)) && begins()) {
        return Match::kFound;
    }
    if (!look(!descending()) || !(before_top(found) ? first(found) : inside(found))) {
        return Match::kNone;
    }
    return begins() ? Match::kFound : Match::kGreater;
}

// -- By number: a scope is a range of the tag's entries; a descending order numbers them from the
// other end.

OrderWalk::Range OrderWalk::range() const {
    const auto& low = descending() ? scope_.bottom : scope_.top;
    const auto& high = descending() ? scope_.top : scope_.bottom;
    CdxTree& tag = *order_.tag;
    const std::size_t to =
        high ? tag.count_through(as_bytes(*high), kLastRecordNumber) : tag.count();
    const std::size_t from = low ? tag.count_before(as_bytes(*low), 0) : 0;
    return {std::min(from, to), to};
}

std::size_t OrderWalk::count() const {
    const Range keys = range();
    return keys.to - keys.from;
}

std::size_t OrderWalk::number_of(const IndexEntry& entry) const {
    const Range keys = range();
    const std::size_t number = order_.tag->count_before(as_bytes(entry.key), entry.record);
    const std::size_t behind = order_.tag->count_through(as_bytes(entry.key), entry.record);
    if (behind == number || number < keys.from || number >= keys.to) return 0;
    return descending() ? keys.to - number : number - keys.from + 1;
}

bool OrderWalk::leap(const IndexEntry& from, std::int64_t count, IndexEntry& found) const {
    const Range keys = range();
    const bool upwards = (count > 0) != descending();
    const std::uint64_t steps =
        count > 0 ? static_cast<std::uint64_t>(count) : 0 - static_cast<std::uint64_t>(count);
    const Bytes key = as_bytes(from.key);
    if (upwards) {
        const std::size_t next = std::max(order_.tag->count_through(key, from.record), keys.from);
        return next < keys.to && steps <= keys.to - next &&
               order_.tag->at(next + static_cast<std::size_t>(steps) - 1, found);
    }
    const std::size_t behind = std::min(order_.tag->count_before(key, from.record), keys.to);
    return behind > keys.from && steps <= behind - keys.from &&
           order_.tag->at(behind - static_cast<std::size_t>(steps), found);
}

}  // namespace brenik::index
