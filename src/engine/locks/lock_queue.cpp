// The queue in front of a lock.

#include "engine/locks/lock_queue.h"

#include <algorithm>
#include <list>
#include <optional>

namespace brenik::locks {
namespace {

using platform::LockKind;

// How many times a free lock is taken without a check of the queue: after a wait in it, and at
// most. Strict turns cost a process switch each; a few turns in a row cost the others little.
constexpr int kFewWithoutLook = 7;
constexpr int kMostWithoutLook = 31;

// A wait consists of parts, each an eighth of the timeout. Between the parts of a long wait all
// places ahead are tried, so that processes behind a suspended one detect it at the same time.
constexpr int kParts = 8;           // for the first in the queue
constexpr int kLongestInLine = 12;  // for all others
constexpr int kPatience = 4;        // after this many parts any place may be passed
constexpr int kLongWait_ms = 1000;
// Such a try outlasts a simultaneous one by another process.
constexpr int kLongTry_ms = 5;

constexpr std::chrono::seconds kSuspectAfter(1);
constexpr std::chrono::minutes kRemembered(1);

constexpr int kNowhere = -1;

}  // namespace

// -- Places that do not advance.

const RefusedPlaces::Refused* RefusedPlaces::find(std::uint64_t place) const {
    const auto found = std::ranges::find(refused_, place, &Refused::place);
    return found != refused_.end() && Clock::now() < found->until ? &*found : nullptr;
}

void RefusedPlaces::add(std::uint64_t place, int waited_ms) {
    if (find(place) != nullptr) return;
    const Clock::time_point now = Clock::now();
    std::erase_if(refused_, [&](const Refused& one) { return one.until <= now; });
    refused_.push_back({place, now - std::chrono::milliseconds(waited_ms), now + kRemembered});
}

void RefusedPlaces::remove(LockRange places) {
    std::erase_if(refused_, [&](const Refused& one) {
        return one.place >= places.offset && one.place - places.offset < places.length;
    });
}

RefusedPlaces::Clock::duration RefusedPlaces::refused_for(std::uint64_t place) const {
    const Refused* one = find(place);
    return one != nullptr ? Clock::now() - one->since : Clock::duration::zero();
}

void RefusedPlaces::pass(std::uint64_t place) {
    if (refused_for(place) < kSuspectAfter || stands_still(place)) return;
    Refused& one = *std::ranges::find(refused_, place, &Refused::place);
    one.still = true;
    one.until = Clock::now() + kRemembered;
}

bool RefusedPlaces::stands_still(std::uint64_t place) const {
    const Refused* one = find(place);
    return one != nullptr && one->still;
}

// -- Trying once.

// Places in the queue are locked exclusively, which requires write access.
bool LockQueue::lock(LockRange range, LockRange queue, LockKind kind, int timeout_ms) {
    if (!file_.writable()) return file_.lock_within(range, kind, timeout_ms);
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
    return file_.try_lock(range, kind);
}

// Holding every place of the queue at once proves that nobody waits. Places that stand still are
// left out.
bool LockQueue::lock_unless_somebody_waits(LockRange range, LockRange queue, LockKind kind) {
    if (file_.try_lock(queue)) {
        const HeldLock line(file_, queue);
        refused_.remove(queue);
        return lock_after_look(range, kind);
    }
    const std::uint64_t end = queue.offset + queue.length;
    std::list<HeldLock> parts;
    std::uint64_t begin = queue.offset;
    for (std::uint64_t place = begin; place <= end; ++place) {
        if (place < end && !refused_.stands_still(place)) continue;
        const LockRange part = {begin, place - begin};
        begin = place + 1;
        if (part.length == queue.length || !file_.try_lock(part)) return false;
        if (part.length > 0) parts.emplace_back(file_, part);
    }
    return lock_after_look(range, kind);
}

bool LockQueue::lock_after_look(LockRange range, LockKind kind) {
    if (!file_.try_lock(range, kind)) return false;
    left_ = earned_ = std::min(2 * earned_ + 1, kMostWithoutLook);
    return true;
}

// -- Waiting in the queue.

// Positions count from the lock itself (0) to the last place; the next one is the end of the queue.
struct LockQueue::Line {
    LockRange range;
    LockRange queue;
    LockKind kind;
    int timeout_ms;

    int end() const { return static_cast<int>(queue.length) + 1; }
    std::uint64_t place(int position) const {
        return queue.offset + static_cast<std::uint64_t>(position) - 1;
    }
};

// A place is released only after one ahead of it has been acquired. Every step forward restarts the
// timeout.
bool LockQueue::lock_in_turn(LockRange range, LockRange queue, LockKind kind, int timeout_ms) {
    earned_ = left_ = kFewWithoutLook;
    const Line line = {range, queue, kind, timeout_ms};
    std::optional<HeldLock> own_place;
    for (int position = line.end(); position > 0;) {
        position = step(line, position);
        if (position == kNowhere) return false;
        own_place.reset();
        if (position > 0) own_place.emplace(file_, LockRange{line.place(position), 1});
    }
    return true;
}

// Acquires a position ahead of `from` and returns it; kNowhere on timeout.
int LockQueue::step(const Line& line, int from) {
    int nearest = from - 1;
    for (; nearest > 0 && refused_.stands_still(line.place(nearest)); --nearest) {
        if (take(line, nearest, 0)) return nearest;
    }
    const int parts = nearest > 0 ? kLongestInLine : kParts;
    for (int waited = 0; waited < parts; ++waited) {
        int wanted = nearest;
        int ahead = 0;
        if (nearest > 0 && may_pass(line, nearest, waited, ahead)) {
            if (ahead > 0 || take(line, 0, 0)) {
                for (; wanted > ahead; --wanted) refused_.pass(line.place(wanted));
                return ahead;
            }
            wanted = 0;
        }
        if (take(line, wanted, line.timeout_ms / kParts)) return wanted;
    }
    return kNowhere;
}

// True when a process that has waited `waited` parts for `nearest` may go to position `ahead`: the
// first free place ahead, which it then holds, or the lock itself. After half the timeout this is
// always so. Before, a place may be passed once it has been refused for a second, and two in a row
// once both have been refused for two seconds: a process that waits behind a suspended one has
// passed it by then.
bool LockQueue::may_pass(const Line& line, int nearest, int waited, int& ahead) {
    const bool is_long = line.timeout_ms >= kLongWait_ms;
    const bool looks = waited >= kPatience || (is_long && waited > 0);
    auto shortest = refused_.refused_for(line.place(nearest));
    if (!looks && shortest < kSuspectAfter) return false;
    int unknown = 1;
    for (ahead = nearest - 1; ahead > 0 && !take(line, ahead, is_long ? kLongTry_ms : 0); --ahead) {
        if (refused_.stands_still(line.place(ahead))) continue;
        shortest = std::min(shortest, refused_.refused_for(line.place(ahead)));
        ++unknown;
    }
    if (waited >= kPatience || shortest >= unknown * kSuspectAfter) return true;
    if (ahead > 0) file_.unlock({line.place(ahead), 1});
    return false;
}

bool LockQueue::take(const Line& line, int position, int timeout_ms) {
    const LockRange range = position == 0 ? line.range : LockRange{line.place(position), 1};
    const LockKind kind = position == 0 ? line.kind : LockKind::kExclusive;
    const bool taken =
        timeout_ms == 0 ? file_.try_lock(range, kind) : file_.lock_within(range, kind, timeout_ms);
    if (position == 0) return taken;
    if (taken) {
        refused_.remove(range);
    } else {
        refused_.add(range.offset, timeout_ms);
    }
    return taken;
}

}  // namespace brenik::locks
