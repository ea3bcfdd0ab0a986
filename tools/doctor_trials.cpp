// Each trial uses a file of its own. A leader creates it and a follower opens it. Both exchange
// their results. The side that finds a fault ends the trial at once; the other gets the result in
// place of the message that it waits for.

#include "doctor_trials.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <utility>
#include <vector>

#include "platform/clock.h"
#include "platform/file.h"
#include "util/bytes.h"

namespace brenik::tools {
namespace {

using platform::File;
using platform::LockKind;
using platform::OpenMode;
using Clock = std::chrono::steady_clock;

// Positions of the append lock, and of record 1's lock in proprietary mode
// (docs/explanation/locking.md).
constexpr std::uint64_t kLow = 0x7FFFFFFE;
constexpr std::uint64_t kHigh = 0x100000001;

constexpr int kAnswer_s = 30;
constexpr int kWork_s = 150;        // limit for work that both repeat
constexpr int kWorkAnswer_s = 180;  // at least the other's limit for work
constexpr int kLock_ms = 30'000;    // limit for one of many locks
constexpr int kFreeLock_ms = 5'000;
constexpr int kRounds = 5;
constexpr int kBouts = 4;  // rounds of shared work: no side finishes before the other has started
constexpr int kAppends = 100;
constexpr int kRaises = 200;
constexpr int kTimed = 50;
constexpr int kTrialsAlone = 5;  // the attempts in try_alone()

enum class Ill {
    kNone,
    kMount,
    kCannotMake,
    kFailed,
    kNotHad,
    kHadTwice,
    kNotLetGo,
    kCutOff,
    kSharedRefused,
    kOldSize,
    kOldBytes,
    kSlow,
    kLostRecords,
    kLostCounts,
};

struct Advice {
    const char* what;
    const char* remedy;
};

constexpr const char* kLocking =
    "mount it without nobrl; on the server, turn oplocks off for the share where programs on the "
    "server itself use the folder, and leave locking on";
constexpr const char* kCaching =
    "mount it with cache=none on Linux; on the server, turn oplocks and leases off for the share";

// Indexed by Ill.
constexpr Advice kAdvice[] = {
    {"", ""},
    {"the other workstation's mount is unsound; see its own report", "see its report"},
    {"a file cannot be opened with the lock that every open holds",
     "let the server and the mount grant byte-range locks"},
    {"a file call failed on the other workstation; see its own report", "see its report"},
    {"a lock that nobody holds was refused",
     "check what else uses the folder, and whether the "
     "server grants byte-range locks"},
    {"both sides were granted the same lock, so both can change a record at the same time",
     kLocking},
    {"a lock that was released could not be acquired",
     "check whether the server grants byte-range "
     "locks, and what else uses the folder"},
    {"a lock past 4 GB was applied at another position",
     "do not use LockType=1 there; reach the folder by "
     "another version of the protocol, such as vers=3.1.1"},
    {"a shared lock was refused beside another shared one",
     "check whether the server grants shared byte-range locks"},
    {"the size was stale after the other had made the file longer, so records are "
     "overwritten",
     kCaching},
    {"stale bytes were read after the other had written, so changes are lost", kCaching},
    {"a lock timed out, or the work took too long", "check the server's load and the network"},
    {"records that both appended are missing, overwritten or out of order", kLocking},
    {"a counter that both raised has lost counts, so an identifier is issued twice", kLocking},
};
static_assert(std::size(kAdvice) == static_cast<std::size_t>(Ill::kLostCounts) + 1);

Trial trial_of(const char* name, const char* good, Ill ill, const std::string& why = {}) {
    const Advice& advice = kAdvice[static_cast<std::size_t>(ill)];
    if (ill == Ill::kFailed && !why.empty()) {
        return {name, "a file call failed: " + why, "check the server and the network", good};
    }
    return {name, advice.what, advice.remedy, good};
}

// Thrown to end a trial.
struct TrialOver {
    Ill ill;
};

void require(bool condition, Ill ill) {
    if (!condition) throw TrialOver{ill};
}

File must_open(const std::string& path, OpenMode mode) {
    File file = File::open(path, mode);
    require(file.is_open(), Ill::kCannotMake);
    return file;
}

std::uint32_t number_at_start(const File& file) {
    Byte bytes[4] = {};
    file.read_at(0, bytes);
    return load_le32(bytes);
}

void put_number(File& file, std::uint32_t number) {
    Byte bytes[4];
    store_le32(bytes, number);
    file.write_at(0, bytes);
}

Times times_of(const std::function<void()>& call) {
    std::vector<double> times;
    for (int i = 0; i < kTimed; ++i) {
        const auto begin = Clock::now();
        call();
        times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
    }
    std::sort(times.begin(), times.end());
    return {times[times.size() / 2], times.back()};
}

RoundTrips measure(File& file) {
    const auto lock = [&] {
        require(file.try_lock({kLow, 1}), Ill::kNotHad);
        file.unlock({kLow, 1});
    };
    return {kTimed, times_of(lock), times_of([&] { file.size(); })};
}

// One side of one trial.
class Side {
  public:
    Side(Scratch& scratch, Partner& partner, std::string file, bool is_leader)
        : leads(is_leader), scratch_(scratch), partner_(partner), file_(std::move(file)) {}

    File make() { return must_open(scratch_.own_path(file_), OpenMode::kCreate); }
    File open() {
        return must_open(scratch_.path_of(partner_.name(), file_), OpenMode::kReadWrite);
    }
    // Returns the file once both sides have it open.
    File open_both() {
        if (!leads) {
            hear("made");
            File file = open();
            tell("open");
            return file;
        }
        File file = make();
        tell("made");
        hear("open");
        return file;
    }
    void tell(const std::string& word) { partner_.tell(word); }
    // Waits for `word`; ends the trial if the other has ended it.
    void hear(const std::string& word, int limit_s = kAnswer_s) {
        const std::string told = partner_.hear(limit_s);
        if (note_end(told)) throw TrialOver{Ill::kNone};
        if (told != word) throw NoAnswer("the other workstation sent an unexpected message");
    }
    // Sends our result and returns the other's.
    Ill exchange_ends(Ill ours, int limit_s = kAnswer_s) {
        tell(kEnd + std::to_string(static_cast<int>(ours)));
        while (!ended_) note_end(partner_.hear(limit_s));
        return theirs_;
    }

    const bool leads;
    RoundTrips times;  // set by the trials that measure

  private:
    static constexpr const char* kEnd = "end";

    bool note_end(const std::string& told) {
        if (!told.starts_with(kEnd)) return false;
        const int number = std::atoi(told.c_str() + std::string(kEnd).size());
        const bool known = number >= 0 && number < static_cast<int>(std::size(kAdvice));
        theirs_ = known ? static_cast<Ill>(number) : Ill::kFailed;
        return ended_ = true;
    }

    Scratch& scratch_;
    Partner& partner_;
    std::string file_;
    Ill theirs_ = Ill::kNone;
    bool ended_ = false;
};

// The leader locks and writes before the other opens the file. A server that granted exclusive
// caching must revoke it by then.
void lead_lock(Side& side, std::uint64_t place) {
    File file = side.make();
    put_number(file, 1);
    require(file.try_lock({place, 1}), Ill::kNotHad);
    side.tell("locked");
    side.hear("tried");
    file.unlock({place, 1});
    side.tell("free");
    side.hear("had");
}

void follow_lock(Side& side, std::uint64_t place) {
    side.hear("locked");
    File file = side.open();
    require(!file.try_lock({place, 1}), Ill::kHadTwice);
    require(!file.try_lock({place, 1}, LockKind::kShared), Ill::kHadTwice);
    require(number_at_start(file) == 1, Ill::kOldBytes);
    if (place == kHigh) require(file.try_lock({place & 0xFFFFFFFF, 1}), Ill::kCutOff);
    side.tell("tried");
    side.hear("free");
    require(file.lock_within({place, 1}, LockKind::kExclusive, kFreeLock_ms), Ill::kNotLetGo);
    side.tell("had");
}

void try_lock(Side& side) { side.leads ? lead_lock(side, kLow) : follow_lock(side, kLow); }
void try_high_lock(Side& side) { side.leads ? lead_lock(side, kHigh) : follow_lock(side, kHigh); }

void try_shared_lock(Side& side) {
    File file = side.open_both();
    if (side.leads) {
        require(file.try_lock({kLow, 1}, LockKind::kShared), Ill::kNotHad);
        side.tell("shared");
        side.hear("tried");
        return;
    }
    side.hear("shared");
    require(file.try_lock({kLow, 1}, LockKind::kShared), Ill::kSharedRefused);
    file.unlock({kLow, 1});
    require(!file.try_lock({kLow, 1}), Ill::kHadTwice);
    side.tell("tried");
}

// Both sides read, and so cache, the file before the other changes it. `change` and `is_seen` get
// the number of the round, from 1.
void try_changes(Side& side, const std::function<void(File&, int)>& change,
                 const std::function<bool(File&, int)>& is_seen, Ill ill) {
    File file = side.open_both();
    is_seen(file, 0);
    for (int round = 1; round <= kRounds; ++round) {
        if (side.leads) {
            side.hear("ready");
            require(file.lock_within({kLow, 1}, LockKind::kExclusive), Ill::kNotLetGo);
            change(file, round);
            file.unlock({kLow, 1});
            side.tell("changed");
        } else {
            side.tell("ready");
            side.hear("changed");
            require(is_seen(file, round), ill);  // the library also reads without a lock
            require(file.lock_within({kLow, 1}, LockKind::kExclusive), Ill::kNotLetGo);
            require(is_seen(file, round), ill);
            file.unlock({kLow, 1});
        }
    }
}

void try_growth(Side& side) {
    constexpr std::uint64_t kPiece = 100;
    try_changes(
        side, [](File& file, int) { file.write_at(file.size(), std::vector<Byte>(kPiece)); },
        [](File& file, int round) {
            return file.size() == kPiece * static_cast<std::uint64_t>(round);
        },
        Ill::kOldSize);
}

void try_reading(Side& side) {
    try_changes(
        side, [](File& file, int round) { put_number(file, static_cast<std::uint32_t>(round)); },
        [](File& file, int round) {
            return number_at_start(file) == static_cast<std::uint32_t>(round);
        },
        Ill::kOldBytes);
}

// Both sides run `look` and then `change` `times` times, concurrently, under one lock. `look`
// returns a number that `change` gets. A pause between the two lets an ineffective lock show.
void work_by_turns(Side& side, File& file, int times, const std::function<std::uint64_t()>& look,
                   const std::function<void(std::uint64_t seen, int number)>& change) {
    using std::chrono::milliseconds;
    const auto end = Clock::now() + std::chrono::seconds(kWork_s);
    for (int number = 0; number < times; ++number) {
        if (number % (times / kBouts) == 0) {
            side.tell("ready");
            side.hear("ready", kWorkAnswer_s);
        }
        require(Clock::now() < end, Ill::kSlow);
        require(file.lock_within({kLow, 1}, LockKind::kExclusive, kLock_ms), Ill::kSlow);
        const auto begin = Clock::now();
        const std::uint64_t seen = look();
        platform::system_clock().pause(1);
        change(seen, number);
        file.unlock({kLow, 1});
        // Pauses at least as long as the lock was held, so that the other gets its turn.
        const auto held = std::chrono::ceil<milliseconds>(Clock::now() - begin);
        platform::system_clock().pause(static_cast<int>(std::min(held, milliseconds(500)).count()));
    }
    side.tell("done");
    side.hear("done", kWorkAnswer_s);
}

// A record is the side's letter, a number from 0, and a line end.
void try_appending(Side& side) {
    const auto record_of = [](bool leads, int number) {
        std::string digits = std::to_string(1'000'000 + number);
        return (leads ? 'A' : 'B') + digits.substr(1) + "\n";
    };
    const std::size_t size = record_of(true, 0).size();
    File file = side.open_both();
    work_by_turns(
        side, file, kAppends, [&] { return file.size(); },
        [&](std::uint64_t at, int number) {
            file.write_at(at, as_bytes(record_of(side.leads, number)));
        });
    std::vector<Byte> bytes(size * 2 * kAppends + 1);
    bytes.resize(file.read_at(0, bytes));
    const std::string text(bytes.begin(), bytes.end());
    int next[2] = {0, 0};
    for (std::size_t at = 0; at < text.size(); at += size) {
        const bool leads = text[at] == 'A';
        require(text.substr(at, size) == record_of(leads, next[leads]++), Ill::kLostRecords);
    }
    require(next[0] == kAppends && next[1] == kAppends, Ill::kLostRecords);
}

void try_counting(Side& side) {
    File file = side.open_both();
    work_by_turns(
        side, file, kRaises, [&] { return number_at_start(file); },
        [&](std::uint64_t seen, int) { put_number(file, static_cast<std::uint32_t>(seen + 1)); });
    require(number_at_start(file) == 2 * kRaises, Ill::kLostCounts);
}

// The sides measure in turn, while both have the file open.
void try_many_calls(Side& side) {
    File file = side.open_both();
    if (!side.leads) side.hear("measured");
    side.times = measure(file);
    side.tell("measured");
    if (side.leads) side.hear("measured");
}

struct Attempt {
    const char* name;
    const char* good;
    void (*run)(Side&);
    bool is_even;  // both sides do the same, so the leader does not matter
};

constexpr const char* kLockGood = "one side locks, the other is refused until it unlocks";
constexpr Attempt kAttempts[] = {
    {"lock", kLockGood, try_lock, false},
    {"lock past 4 GB", kLockGood, try_high_lock, false},
    {"shared lock", "two shared locks coexist and exclude an exclusive lock", try_shared_lock,
     false},
    {"growth", "the new size is seen as soon as the other has extended the file", try_growth,
     false},
    {"reading", "the bytes are seen as soon as the other has written them", try_reading, false},
    {"appending", "of the records that both append, none is lost, torn or misplaced", try_appending,
     true},
    {"counting", "a counter that both raise ends at the sum", try_counting, true},
    {"many calls", "none fails", try_many_calls, true},
};

// Runs a trial here and returns its result; sets `why` if a call failed.
template <typename Run>
Ill end_of(Run run, std::string& why) {
    try {
        run();
    } catch (const TrialOver& over) {
        return over.ill;
    } catch (const EngineFault& fault) {
        why = fault.what();
        return Ill::kFailed;
    }
    return Ill::kNone;
}

Trial try_once(Scratch& scratch, Partner& partner, const Attempt& attempt, bool leads,
               RoundTrips& times) {
    const std::string file = std::to_string(&attempt - kAttempts);
    Side side(scratch, partner, file, leads);
    std::string why;
    const Ill ours = end_of([&] { attempt.run(side); }, why);
    const Ill theirs = side.exchange_ends(ours, attempt.is_even ? kWorkAnswer_s : kAnswer_s);
    if (side.times.count > 0) times = side.times;
    if (leads) scratch.remove(scratch.own_name(), file);
    return trial_of(attempt.name, attempt.good, ours == Ill::kNone ? theirs : ours, why);
}

}  // namespace

int trials_alone() { return kTrialsAlone; }
int trials_with() { return 1 + static_cast<int>(std::size(kAttempts)); }

RoundTrips try_alone(Scratch& scratch, const TrialReport& report) {
    const std::string path = scratch.own_path("alone");
    const auto attempt = [&](const char* name, const char* good, const auto& run) {
        std::string why;
        const auto on_new_file = [&] {
            File one = must_open(path, OpenMode::kCreate);
            File other = must_open(path, OpenMode::kReadWrite);
            run(one, other);
        };
        report(trial_of(name, good, end_of(on_new_file, why), why));
    };
    const auto exclude = [](File& one, File& other, std::uint64_t place) {
        require(one.try_lock({place, 1}), Ill::kNotHad);
        require(!other.try_lock({place, 1}), Ill::kHadTwice);
        if (place == kHigh) require(other.try_lock({place & 0xFFFFFFFF, 1}), Ill::kCutOff);
        one.unlock({place, 1});
        require(other.try_lock({place, 1}), Ill::kNotLetGo);
    };
    attempt("lock", "two handles of one file exclude each other",
            [&](File& one, File& other) { exclude(one, other, kLow); });
    attempt("lock past 4 GB", "two handles of one file exclude each other",
            [&](File& one, File& other) { exclude(one, other, kHigh); });
    attempt("growth", "one handle sees the size that the other has written",
            [](File& one, File& other) {
                require(other.size() == 0, Ill::kOldSize);
                put_number(one, 1);
                require(other.size() == 4, Ill::kOldSize);
            });
    attempt("reading", "one handle reads what the other has written", [](File& one, File& other) {
        put_number(one, 1);
        require(number_at_start(other) == 1, Ill::kOldBytes);
        put_number(one, 2);
        require(number_at_start(other) == 2, Ill::kOldBytes);
    });
    RoundTrips times;
    attempt("many calls", "none fails", [&](File& one, File&) { times = measure(one); });
    return times;
}

RoundTrips try_with(Scratch& scratch, Partner& partner, bool sound_here,
                    const TrialReport& report) {
    Side mount(scratch, partner, "mount", partner.is_first());
    const Ill theirs = mount.exchange_ends(sound_here ? Ill::kNone : Ill::kMount);
    report(trial_of("mount there", "no unsafe option found", theirs));
    RoundTrips times;
    for (const Attempt& attempt : kAttempts) {
        Trial trial = try_once(scratch, partner, attempt, partner.is_first(), times);
        if (!attempt.is_even && trial.fault.empty()) {
            trial = try_once(scratch, partner, attempt, !partner.is_first(), times);
        }
        report(trial);
    }
    return times;
}

}  // namespace brenik::tools
