// Lock positions of the compatible schemes and of the proprietary one.

#include "engine/locks/lock_scheme.h"

#include <algorithm>
#include <limits>

#include "engine/record/dbf_file.h"

namespace brenik::locks {
namespace {

constexpr std::uint64_t kCountDownFrom = 0x7FFFFFFE;
constexpr std::uint64_t kOffsetBase = 0x40000000;

}  // namespace

LockScheme::LockScheme(const record::TableLayout& layout, LockMode mode)
    : mode_(mode),
      counts_down_(layout.has_structural_index() || layout.is_later_generation()),
      header_length_(layout.header_length),
      record_length_(layout.record_length) {}

LockRange LockScheme::records(RecordNumber first, RecordNumber last) const {
    const std::uint64_t distance = last - first;
    if (mode_ == LockMode::kProprietary) return {kLine + first, distance + 1};
    if (counts_down_) return {kCountDownFrom - last, distance + 1};
    return {kOffsetBase + record::record_offset(header_length_, record_length_, first),
            distance * record_length_ + 1};
}

LockRange LockScheme::append() const {
    if (mode_ == LockMode::kProprietary) return {kLine, 1};
    return {counts_down_ ? kCountDownFrom : kOffsetBase, 1};
}

// The lock bytes of all records that fit into the file below these bytes, and the append byte.
LockRange LockScheme::marker() const {
    if (!counts_down_) return table();
    const std::uint64_t records = (kCountDownFrom - header_length_ - 1) / (record_length_ + 1);
    return {kCountDownFrom - records, records + 1};
}

std::uint64_t LockScheme::data_limit(bool marked) const {
    if (mode_ == LockMode::kCompatible) return kOffsetBase;
    return marked ? marker().offset : kLine;
}

RecordNumber LockScheme::max_records(bool marked) const {
    // The end mark follows the last record.
    const std::uint64_t by_size = (data_limit(marked) - header_length_ - 1) / record_length_;
    // A record's lock byte must lie in the range of the table lock, which begins at kOffsetBase.
    const std::uint64_t by_locks = mode_ == LockMode::kProprietary
                                       ? std::numeric_limits<RecordNumber>::max()
                                       : kCountDownFrom - kOffsetBase;
    return static_cast<RecordNumber>(std::min(by_size, by_locks));
}

}  // namespace brenik::locks
