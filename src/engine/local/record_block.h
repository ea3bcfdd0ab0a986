// A block of neighbouring records, for scans of a table in file order.
//
// After a few steps from one record to the next, TableFile reads some 64 KB of whole records at
// once. The block answers the following steps for 20 ms at most. Its owner drops it wherever the
// next reading must be a fresh one.

#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "engine/record/table_layout.h"
#include "engine/record_number.h"

namespace brenik::local {

class RecordBlock {
  public:
    explicit RecordBlock(std::size_t record_length) : record_length_(record_length) {}

    // Ends the scan: the next steps read single records again.
    void forget();

    bool holds(RecordNumber record) const { return record - range_.first < count_; }
    // Copies the record that is read next. False if the block does not hold it or is too old.
    bool copy(RecordNumber record, MutableBytes into);

    struct Range {
        RecordNumber first;
        RecordNumber last;

        bool contains(RecordNumber record) const { return first <= record && record <= last; }
    };
    // The records to be read after a failed copy() of `record`, in a table of `count` records.
    // Nothing if no scan is in progress, or if these records were tried before and not kept.
    std::optional<Range> wanted(RecordNumber record, RecordNumber count) const;
    // Empties the block and returns its memory, for the bytes of these records. They belong to the
    // block after keep().
    MutableBytes begin(Range range);
    void keep() { count_ = range_.last - range_.first + 1; }

  private:
    using Clock = std::chrono::steady_clock;

    void note_step(RecordNumber record);

    std::size_t record_length_;
    Range range_{1, 0};
    RecordNumber count_ = 0;
    Clock::time_point begun_{};
    std::vector<Byte> bytes_;

    RecordNumber latest_ = 0;
    int steps_ = 0;  // from one record to the next, in one direction
    bool forward_ = true;
};

}  // namespace brenik::local
