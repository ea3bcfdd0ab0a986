// Probes of locks, additions and the moment at which changes reach the table.

#include <chrono>
#include <cstdio>

#include "engine/probes/bench.h"

namespace brenik::probes {
namespace {

constexpr std::chrono::milliseconds kAtOnce(200);

std::string held(bool is) { return is ? "held" : "gone"; }

Answer lock_status(Bench& bench) {
    const auto holder = bench.here();
    const auto other = bench.there();
    holder->lock(1);
    const Status status = bench.client().AdsLockRecord(other->handle(), 1);
    return told(status == advantage::kLockFailed, "a lock that another holds: " + said(status));
}

Answer refused_lock_time(Bench& bench) {
    const auto holder = bench.here();
    const auto other = bench.there();
    holder->lock(1);
    const auto begin = std::chrono::steady_clock::now();
    const Status status = bench.client().AdsLockRecord(other->handle(), 1);
    const auto took = std::chrono::steady_clock::now() - begin;
    if (status == 0) return unknown("the lock is not refused");
    char time[40];
    std::snprintf(time, sizeof time, "%.1f ms",
                  std::chrono::duration<double, std::milli>(took).count());
    return told(took < kAtOnce, "the refusal took " + std::string(time));
}

// The sequence that keeps identifiers unique.
Answer lock_then_read(Bench& bench) {
    const auto first = bench.here();
    const auto second = bench.there();
    first->go(1);
    first->image();
    second->change(1, "changed");
    first->lock(1);
    const std::string at_once = first->text("TEXT");
    first->leave();
    first->go(1);
    const std::string after_return = first->text("TEXT");
    return told(after_return == "changed" && first->holds(1),
                "after another's change and a lock the record reads " + quoted(at_once) +
                    "; left and returned to, " + quoted(after_return) + "; the lock is " +
                    held(first->holds(1)));
}

Answer refresh_locked(Bench& bench) {
    const auto first = bench.here();
    const auto second = bench.there();
    first->go(1);
    const std::string before = first->text("TEXT");
    second->change(1, "changed");
    first->lock(1);
    const Status status = bench.client().AdsRefreshRecord(first->handle());
    const std::string after = first->text("TEXT");
    return told(after == before, "after another's change, a lock and a refresh (" + said(status) +
                                     ") the record reads " + quoted(after));
}

Answer two_locks(Bench& bench) {
    const auto holder = bench.here();
    const auto other = bench.there();
    holder->lock(1);
    holder->lock(2);
    const Status first = bench.client().AdsLockRecord(other->handle(), 1);
    const Status second = bench.client().AdsLockRecord(other->handle(), 2);
    return told(holder->holds(1) && holder->holds(2) && first != 0 && second != 0,
                "after two locks the first is " + held(holder->holds(1)) + ", the second " +
                    held(holder->holds(2)) + "; another asks for both: " + said(first) + ", " +
                    said(second));
}

Answer table_lock_drops(Bench& bench) {
    const auto table = bench.here();
    const auto other = bench.there();
    table->lock(1);
    table->lock(2);
    other->lock(3);
    const Status status = bench.client().AdsLockTable(table->handle());
    if (status == 0) {
        bench.client().AdsUnlockTable(table->handle());
        return unknown("the table lock is not refused beside another's record lock");
    }
    return told(!table->holds(1) && !table->holds(2),
                "after the refusal (" + said(status) + ") the record locks are " +
                    held(table->holds(1)) + " and " + held(table->holds(2)));
}

Answer unlock_writes(Bench& bench) {
    const auto writer = bench.here();
    const auto reader = bench.there();
    writer->go(1);
    writer->lock(1);
    writer->set("TEXT", "changed");
    writer->unlock(1);
    reader->leave();
    reader->go(1);
    const std::string text = reader->text("TEXT");
    return told(text == "changed", "another reads " + quoted(text));
}

Answer implicit_lock(Bench& bench) {
    const auto writer = bench.here();
    const auto other = bench.there();
    writer->go(1);
    const Status set = bench.client().AdsSetField(writer->handle(), "TEXT", "changed", 7);
    const Status during = bench.client().AdsLockRecord(other->handle(), 1);
    if (during == 0) other->unlock(1);
    const Status write = bench.client().AdsWriteRecord(writer->handle());
    const Status after = bench.client().AdsLockRecord(other->handle(), 1);
    return told(set == 0 && during != 0 && after == 0,
                "a field is set without a lock: " + said(set) + "; another's lock: " +
                    said(during) + "; after the write (" + said(write) + "): " + said(after));
}

Answer append_lock(Bench& bench) {
    const auto table = bench.here();
    require(bench.client().AdsAppendRecord(table->handle()), "AdsAppendRecord");
    const U32 number = table->record();
    const bool at_first = table->holds(number);
    table->lock(number);
    table->set("CODE", "D1");
    table->write();
    const bool after_write = table->holds(number);
    table->go(1);
    const bool after_move = table->holds(number);
    return told(after_write, "the lock of a new record is " + held(at_first) +
                                 "; locked explicitly, it is " + held(after_write) +
                                 " after the write and " + held(after_move) + " after a move");
}

Answer own_append_lock(Bench& bench) {
    const auto table = bench.here();
    require(bench.client().AdsAppendRecord(table->handle()), "AdsAppendRecord");
    const U32 number = table->record();
    table->write();
    return told(table->holds(number), "the lock that the addition took is " +
                                          held(table->holds(number)) + " after the write");
}

Answer append_visible(Bench& bench) {
    const auto table = bench.here();
    const auto other = bench.there();
    const U16 fresh = advantage::kIgnoreFilters | advantage::kRefreshCount;
    require(bench.client().AdsAppendRecord(table->handle()), "AdsAppendRecord");
    const U32 before = other->count(fresh);
    table->write();
    const U32 after = other->count(fresh);
    return told(before == kRecords + 1, "another counts " + std::to_string(before) +
                                            " records before the write, " + std::to_string(after) +
                                            " after it");
}

// The deletion mark of the last record, and how many records there are.
Answer left_over(Bench& bench) {
    const auto table = bench.there();
    const U32 count = table->count(advantage::kIgnoreFilters | advantage::kRefreshCount);
    if (count == kRecords) return told(false, "no record is left over");
    table->go(count);
    const std::string image = table->image();
    return told(image[0] == '*', std::to_string(count - kRecords) + " left over, " +
                                     (image[0] == '*' ? "marked deleted" : "not marked deleted"));
}

Answer cancel_append(Bench& bench) {
    {
        const auto table = bench.here();
        require(bench.client().AdsAppendRecord(table->handle()), "AdsAppendRecord");
        require(bench.client().AdsCancelUpdate(table->handle()), "AdsCancelUpdate");
    }
    return left_over(bench);
}

Answer cancel_change(Bench& bench) {
    const auto table = bench.here();
    table->go(1);
    table->lock(1);
    table->set("TEXT", "changed");
    require(bench.client().AdsCancelUpdate(table->handle()), "AdsCancelUpdate");
    const bool kept = table->holds(1);
    const std::string text = table->text("TEXT");
    return told(kept && text == "text 1",
                "the record reads " + quoted(text) + " and its lock is " + held(kept));
}

// A record lock of another on the number that the new record will have.
Answer append_refused(Bench& bench) {
    const auto other = bench.there();
    if (bench.client().AdsLockRecord(other->handle(), kRecords + 1) != 0) {
        return unknown("nobody can lock the number of a record that does not exist yet");
    }
    const auto table = bench.here();
    const Status status = bench.client().AdsAppendRecord(table->handle());
    if (status == 0) return unknown("the addition is not refused");
    const U32 count = table->count(advantage::kIgnoreFilters | advantage::kRefreshCount);
    return told(count == kRecords + 1, said(status) + "; the table has " + std::to_string(count) +
                                           " records instead of " + std::to_string(kRecords));
}

constexpr Probe kProbes[] = {
    {"lock-status", "A lock that another holds is refused with 5035.", lock_status},
    {"refused-lock-time", "A refusal comes at once.", refused_lock_time},
    {"lock-then-read",
     "A record that was locked, left and returned to has others' changes and its lock.",
     lock_then_read},
    {"refresh-locked", "AdsRefreshRecord does nothing on a locked record.", refresh_locked},
    {"two-locks", "Several records are locked at once.", two_locks},
    {"table-lock-drops", "A table lock that is refused has dropped the record locks.",
     table_lock_drops},
    {"unlock-writes", "An unlock writes the changes of the record.", unlock_writes},
    {"implicit-lock", "A field that is set locks its record until it is written.", implicit_lock},
    {"append-lock", "An explicit lock of a new record outlives its write.", append_lock},
    {"own-append-lock", "The lock that an addition takes outlives the write.", own_append_lock},
    {"append-visible", "Others count a new record before it is written.", append_visible},
    {"append-refused", "An addition whose lock is refused leaves a blank record.", append_refused},
    {"cancel-append", "An addition that was cancelled leaves a deleted record.", cancel_append},
    {"cancel-change", "A cancelled change keeps the explicit lock.", cancel_change},
};

}  // namespace

std::span<const Probe> locking_probes() { return kProbes; }

}  // namespace brenik::probes
