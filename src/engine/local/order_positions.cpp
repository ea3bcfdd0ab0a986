// Keys of an order by number: an order's scope is a range of its tag's entries, and a descending
// order counts them from the other end.

#include <algorithm>
#include <limits>

#include "engine/local/table_orders.h"

namespace brenik::local {
namespace {

constexpr RecordNumber kLastRecordNumber = std::numeric_limits<RecordNumber>::max();

}  // namespace

OrderWalk::Range OrderWalk::range() const {
    const auto& low = descending() ? scope_.bottom : scope_.top;
    const auto& high = descending() ? scope_.top : scope_.bottom;
    index::CdxTag& tag = *order_.tag;
    const std::size_t to =
        high ? tag.count_through(as_bytes(*high), kLastRecordNumber) : tag.count();
    const std::size_t from = low ? tag.count_before(as_bytes(*low), 0) : 0;
    return {std::min(from, to), to};
}

std::size_t OrderWalk::count() const {
    const Range keys = range();
    return keys.to - keys.from;
}

std::size_t OrderWalk::number_of(const index::IndexEntry& entry) const {
    const Range keys = range();
    const std::size_t number = order_.tag->count_before(as_bytes(entry.key), entry.record);
    const std::size_t behind = order_.tag->count_through(as_bytes(entry.key), entry.record);
    if (behind == number || number < keys.from || number >= keys.to) return 0;
    return descending() ? keys.to - number : number - keys.from + 1;
}

bool OrderWalk::leap(const index::IndexEntry& from, std::int64_t count,
                     index::IndexEntry& found) const {
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

}  // namespace brenik::local
