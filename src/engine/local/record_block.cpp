// Decides when a scan reads a block, and how long the block lasts.

#include "engine/local/record_block.h"

#include <algorithm>

namespace brenik::local {
namespace {

constexpr int kStepsBefore = 4;
constexpr std::size_t kBlockBytes = std::size_t{1} << 16;
// Far less than MemoFile::kTextStays: the records refer to texts that others may replace.
constexpr std::chrono::milliseconds kLasts{20};

}  // namespace

void RecordBlock::forget() {
    range_ = {1, 0};
    count_ = latest_ = 0;
    steps_ = 0;
}

void RecordBlock::note_step(RecordNumber record) {
    const bool forward = record == latest_ + 1;
    const bool neighbour = forward || record + 1 == latest_;
    if (!neighbour || forward != forward_) steps_ = 0;
    if (neighbour) ++steps_;
    forward_ = forward;
    latest_ = record;
}

bool RecordBlock::copy(RecordNumber record, MutableBytes into) {
    note_step(record);
    if (!holds(record)) return false;
    if (Clock::now() - begun_ > kLasts) {
        // The host takes its time over each record, so reading ahead may not pay.
        forget();
        return false;
    }
    const auto begin =
        bytes_.begin() + static_cast<std::ptrdiff_t>((record - range_.first) * record_length_);
    std::copy_n(begin, into.size(), into.begin());
    return true;
}

std::optional<RecordBlock::Range> RecordBlock::wanted(RecordNumber record,
                                                      RecordNumber count) const {
    const auto most = static_cast<RecordNumber>(kBlockBytes / record_length_);
    if (steps_ < kStepsBefore || most < 2 || range_.contains(record) || record > count) return {};
    if (forward_) return Range{record, record + std::min(most - 1, count - record)};
    return Range{record - std::min(most - 1, record - 1), record};
}

MutableBytes RecordBlock::begin(Range range) {
    range_ = range;
    count_ = 0;
    begun_ = Clock::now();
    bytes_.resize((std::size_t{range.last} - range.first + 1) * record_length_);
    return bytes_;
}

}  // namespace brenik::local
