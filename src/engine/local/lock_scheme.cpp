// Lock positions of the two compatible schemes.

#include "engine/local/lock_scheme.h"

#include <algorithm>

namespace brenik::local {
namespace {

constexpr std::uint64_t kCountDownFrom = 0x7FFFFFFE;
constexpr std::uint64_t kOffsetBase = 0x40000000;

}  // namespace

LockScheme::LockScheme(const TableLayout& layout)
    : counts_down_(layout.has_structural_index() || layout.is_later_generation()),
      header_length_(layout.header_length),
      record_length_(layout.record_length) {}

LockRange LockScheme::record(RecordNumber record) const {
    if (counts_down_) return {kCountDownFrom - record, 1};
    return {kOffsetBase + header_length_ + (record - std::uint64_t{1}) * record_length_, 1};
}

LockRange LockScheme::append() const { return {counts_down_ ? kCountDownFrom : kOffsetBase, 1}; }

RecordNumber LockScheme::max_records() const {
    const std::uint64_t by_size = (kOffsetBase - header_length_ - 1) / record_length_;
    // Record bytes counted down must stay above the data, hence within the table lock's range.
    const std::uint64_t by_locks = kCountDownFrom - kOffsetBase;
    return static_cast<RecordNumber>(std::min(by_size, by_locks));
}

}  // namespace brenik::local
