// Waiting for a lock in turn.
//
// The system's locks have no queue: whoever tries at the right moment has it, and a process that
// takes a lock again and again may keep out for seconds one that only tries now and then. So those
// who find a lock taken line up on a few bytes of their own (LockScheme::queue): each holds the
// byte of its place and moves on to the one ahead as soon as that is let go, and only the first in
// line tries the lock itself. A killed process leaves the line as it leaves every lock.
//
// The lock alone decides who may write. Programs that know nothing of the line do no harm.
//
// A suspended process keeps its place and does not move on. Whoever stands behind it takes what is
// free ahead of it, after half the timeout at the latest. A place that was refused for a second
// although what is ahead of it was free is remembered for a minute, and passed without waiting as
// long as it is not found free.
//
// A lock that is free costs one call. The line is looked at every eighth time, more seldom by those
// who have not met anybody for long, so that nobody in it can be passed for ever.

#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "engine/locks/lock_scheme.h"
#include "engine/table.h"
#include "platform/file.h"

namespace brenik::locks {

// Releases a lock at the end of a block.
class HeldLock {
  public:
    HeldLock(platform::File& file, LockRange range) : file_(file), range_(range) {}
    ~HeldLock() { file_.unlock(range_); }
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;

  private:
    platform::File& file_;
    LockRange range_;
};

// Workstations that write the same thing one after the other hold its lock for less than a
// millisecond each; with eight of them the last in line waits less than this.
inline constexpr int kTurn_ms = 40;

// The places, by offset, that were refused and have not been found free since; for a minute each.
class RefusedPlaces {
  public:
    using Clock = std::chrono::steady_clock;

    // The place was refused for so long a wait.
    void add(std::uint64_t place, int waited_ms);
    // The places were found free.
    void remove(LockRange places);
    // Time since the first refusal; zero for a place that is not known.
    Clock::duration refused_for(std::uint64_t place) const;
    // What is ahead of the place was free. After a second of refusals that means it stands still.
    void pass(std::uint64_t place);
    bool stands_still(std::uint64_t place) const;

  private:
    struct Refused {
        std::uint64_t place;
        Clock::time_point since;
        Clock::time_point until;  // when it is forgotten
        bool still = false;
    };

    const Refused* find(std::uint64_t place) const;

    std::vector<Refused> refused_;
};

class LockQueue {
  public:
    explicit LockQueue(platform::File& file) : file_(file) {}
    LockQueue(const LockQueue&) = delete;
    LockQueue& operator=(const LockQueue&) = delete;

    // False when the lock was not to be had in that time after the last step forward. `queue` is
    // where others wait for `range`.
    [[nodiscard]] bool lock(LockRange range, LockRange queue, platform::LockKind kind,
                            int timeout_ms);
    // Without waiting; whoever stands in line counts as having the lock when the line is looked at.
    [[nodiscard]] bool try_lock(LockRange range, LockRange queue, platform::LockKind kind);
    // One try of a caller who repeats it himself.
    [[nodiscard]] bool attempt(LockRange range, LockRange queue, LockTry kind_of_try);
    // For those who have tried in vain.
    [[nodiscard]] bool lock_in_turn(LockRange range, LockRange queue, platform::LockKind kind,
                                    int timeout_ms);

  private:
    struct Line;

    bool lock_out_of_turn(LockRange range, platform::LockKind kind);
    bool lock_unless_somebody_waits(LockRange range, LockRange queue, platform::LockKind kind);
    bool lock_after_look(LockRange range, platform::LockKind kind);
    int step(const Line& line, int from);
    bool may_pass(const Line& line, int nearest, int waited, int& ahead);
    bool take(const Line& line, int position, int timeout_ms);

    platform::File& file_;
    int earned_ = 0;  // tries without a look at the line, after the last look
    int left_ = 1;    // of those; who has just come passes nobody for long
    RefusedPlaces refused_;
};

}  // namespace brenik::locks
