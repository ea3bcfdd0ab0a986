// A queue in front of a lock, in which processes wait in turn.
//
// The system's locks have no queue: the process that tries at the right moment acquires the lock.
// One that acquires it again and again may keep out for seconds another that tries only now and
// then. So processes that find a lock taken queue on a few bytes of their own (LockScheme::queue).
// Each holds the byte of its place and moves to the place ahead as soon as that is released; only
// the first in the queue tries the lock itself. A killed process leaves the queue, because the
// system releases its locks.
//
// The lock alone decides who may write. Programs that do not know the queue do no harm.
//
// A suspended process keeps its place and does not advance. The process behind it takes what is
// free ahead of it, after half the timeout at the latest. A place that was refused for a second
// although the one ahead of it was free is remembered for a minute; until it is found free, it is
// passed without waiting.
//
// A free lock costs one call. Every eighth acquisition checks the queue; a process that has met no
// other for long checks less often, but at least every 32nd time, so that nobody waits for ever.

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

// Workstations that change the same record in turn hold its lock for less than a millisecond each;
// with eight of them, the last in the queue waits less than this.
inline constexpr int kTurn_ms = 40;

// Places, by offset, that were refused and not found free since. Each is remembered for a minute.
class RefusedPlaces {
  public:
    using Clock = std::chrono::steady_clock;

    // The place was refused after a wait of this length.
    void add(std::uint64_t place, int waited_ms);
    // The places were found free.
    void remove(LockRange places);
    // Time since the first refusal; zero for an unknown place.
    Clock::duration refused_for(std::uint64_t place) const;
    // A place ahead of this one was free. If this one has been refused for a second, it stands
    // still.
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

    // False on timeout; every step forward restarts the timeout. `queue` is where others wait for
    // `range`.
    [[nodiscard]] bool lock(LockRange range, LockRange queue, platform::LockKind kind,
                            int timeout_ms);
    // Never waits. When it checks the queue, a process in it counts as the holder of the lock.
    [[nodiscard]] bool try_lock(LockRange range, LockRange queue, platform::LockKind kind);
    // One try by a caller that retries.
    [[nodiscard]] bool attempt(LockRange range, LockRange queue, LockTry kind_of_try);
    // For a caller that has been refused before.
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
    int earned_ = 0;  // acquisitions allowed without a check of the queue, since the last check
    int left_ = 1;    // how many of those are left; a new process passes nobody for long
    RefusedPlaces refused_;
};

}  // namespace brenik::locks
