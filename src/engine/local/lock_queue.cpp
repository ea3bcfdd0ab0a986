// The line in front of a lock.

#include "engine/local/lock_queue.h"

#include <algorithm>

namespace brenik::local {
namespace {

using platform::LockKind;

// How often a free lock is taken without a look at the line: after waiting in it, and at most.
// Taking turns strictly costs a change of process each time; a few turns at once cost the others
// little.
constexpr int kFewWithoutLook = 7;
constexpr int kMostWithoutLook = 31;

}  // namespace

bool LockQueue::lock(LockRange range, LockRange queue, LockKind kind, int timeout_ms) {
    return try_lock(range, queue, kind) || lock_in_turn(range, queue, kind, timeout_ms);
}

bool LockQueue::try_lock(LockRange range, LockRange queue, LockKind kind) {
    return left_ > 0 ? lock_out_of_turn(range, kind)
                     : lock_unless_somebody_waits(range, queue, kind);
}

bool LockQueue::attempt(LockRange range, LockRange queue, LockTry kind_of_try) {
    constexpr auto kKind = LockKind::kExclusive;
    return kind_of_try == LockTry::kInTurn ? lock_in_turn(range, queue, kKind, kTurn_ms)
                                           : try_lock(range, queue, kKind);
}

bool LockQueue::lock_out_of_turn(LockRange range, LockKind kind) {
    --left_;
    return file_.try_lock(range.offset, range.length, kind);
}

// Holding every place of the line for a moment proves that nobody has one.
bool LockQueue::lock_unless_somebody_waits(LockRange range, LockRange queue, LockKind kind) {
    if (!file_.try_lock(queue.offset, queue.length)) return false;
    const HeldLock line(file_, queue);
    if (!file_.try_lock(range.offset, range.length, kind)) return false;
    left_ = earned_ = std::min(2 * earned_ + 1, kMostWithoutLook);
    return true;
}

// From the last place to the first; the place behind is let go only when the one ahead is had.
// Every step shows that the line moves, and is worth as much patience again.
bool LockQueue::lock_in_turn(LockRange range, LockRange queue, LockKind kind, int timeout_ms) {
    earned_ = left_ = kFewWithoutLook;
    std::uint64_t place = queue.length;
    const auto leave = [&] {
        if (place < queue.length) file_.unlock(queue.offset + place, 1);
    };
    while (place > 0 &&
           file_.lock_within(queue.offset + place - 1, 1, LockKind::kExclusive, timeout_ms / 2)) {
        leave();
        --place;
    }
    const bool locked = file_.lock_within(range.offset, range.length, kind, timeout_ms);
    leave();
    return locked;
}

}  // namespace brenik::local
