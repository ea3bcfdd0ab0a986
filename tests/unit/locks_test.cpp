// Locking modes, whole records beside other writers, waiting in line, and growth to the last byte
// that the locks allow.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "engine/locks/lock_queue.h"
#include "engine/locks/lock_scheme.h"
#include "file_bytes.h"
#include "refused.h"
#include "tables.h"

namespace brenik::local {
namespace {

namespace fs = std::filesystem;
using fake::find;
using fake::take;
using platform::File;
using platform::LockKind;
using platform::OpenMode;

class LocksTest : public testing::Test {
  protected:
    LocksTest() { proprietary_.set_proprietary_locking(true); }

    std::string path(const std::string& extension = ".DBF") const {
        return folder_.path("T" + extension);
    }

    // A table K C(width), M memo with records "K0" and so on; its index has the tag K.
    void make(bool indexed, int records, std::uint32_t width = 8) {
        std::vector<make::TagDefinition> tags;
        if (indexed) tags = {{"K", "K"}};
        std::vector<Array> rows;
        for (int i = 0; i < records; ++i) rows.push_back({"K" + std::to_string(i)});
        folder_.make("T", {{"K", 'C', width}, {"M", 'M', 10}}, tags, rows, 0xF5);
    }

    std::unique_ptr<Table> open(LocalEngine& engine, TableSharing sharing = TableSharing::kShared) {
        return fake::open(engine, path(), sharing);
    }

    // Another program, which knows nothing but the compatible positions.
    File stranger(const std::string& extension = ".DBF") const {
        return File::open(path(extension), OpenMode::kReadWrite);
    }

    fake::TableFolder folder_;
    LocalEngine compatible_;
    LocalEngine proprietary_;
};

// ------------------------------------------------------------------------------------------ modes

TEST_F(LocksTest, StrangersAndProprietaryUsersKeepEachOtherOut) {
    struct Position {
        bool indexed;
        const char* extension;
        std::uint64_t offset;
        std::uint64_t length;
    };
    constexpr std::uint64_t kHeader = 97, kRecord = 19;
    for (const Position& p :
         {Position{true, ".DBF", 0x7FFFFFFE, 1},               // append
          {true, ".DBF", 0x7FFFFFFE - 1, 1},                   // the first record
          {true, ".DBF", 0x7FFFFFFE - 100'000'000, 1},         // one that may come
          {true, ".DBF", 0x40000000, 0x3FFFFFFF},              // the whole table
          {true, ".CDX", 0x7FFFFFFE, 1},                       // the index
          {false, ".DBF", 0x40000000, 1},                      // append
          {false, ".DBF", 0x40000000 + kHeader + kRecord, 1},  // the second record
          {false, ".DBF", 0x40000000, 0x3FFFFFFF}}) {
        make(p.indexed, 2);
        File other = stranger(p.extension);
        {
            const auto user = open(proprietary_);
            ASSERT_TRUE(user) << "a stranger that locks nothing is no hindrance";
            EXPECT_FALSE(other.try_lock({p.offset, p.length})) << p.extension << p.offset;
            std::array<Byte, 64> bytes{};
            EXPECT_EQ(other.read_at(0, bytes), bytes.size());
        }
        ASSERT_TRUE(other.try_lock({p.offset, p.length})) << "nothing stays behind";
        EXPECT_FALSE(open(proprietary_)) << p.extension << p.offset;
        if (p.extension == std::string(".DBF")) {
            EXPECT_TRUE(open(compatible_));
        }
        other.unlock({p.offset, p.length});
        EXPECT_TRUE(open(proprietary_));
    }
}

// ------------------------------------------------------------------------------ whole records

TEST_F(LocksTest, RecordsAreWholeBesideAWriterThatKnowsOnlyTheirLocks) {
    using Clock = std::chrono::steady_clock;
    constexpr RecordNumber kRecords = 12;
    std::vector<fake::Column> columns;
    for (const char* name :
         {"A", "B", "C", "D", "E", "F", "G", "H", "I", "J", "K", "L", "M", "N"}) {
        columns.push_back({name, 'C', 250});
    }
    folder_.make("T", columns, {}, std::vector<Array>(kRecords));
    const auto table = open(compatible_);
    const record::TableLayout layout = table->layout();
    File writer = stranger();
    std::atomic<bool> ends = false;
    std::atomic<bool> writes = false;
    std::atomic<Clock::time_point> slow_until{};  // the end of the latest slow write
    std::thread writing([&] {
        std::minstd_rand random(1);
        for (int written = 0; !ends; ++written) {
            const auto number = static_cast<RecordNumber>(1 + random() % kRecords);
            const std::uint64_t place = record::record_offset(layout, number);
            const platform::ByteRange lock{0x40000000 + place, 1};
            if (!writer.try_lock(lock)) continue;
            const std::vector<Byte> letters(layout.record_length - 1,
                                            static_cast<Byte>('A' + written % 26));
            writes = true;
            const auto begin = Clock::now();
            writer.write_at(place + 1, letters);
            if (Clock::now() - begin > std::chrono::microseconds(2)) slow_until = Clock::now();
            writes = false;
            writer.unlock(lock);
            if (written % 16 == 0) std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
    });
    const auto end = Clock::now() + std::chrono::seconds(1);
    int mixed = 0, read = 0;
    const auto look = [&] {
        const auto begin = Clock::now();
        const Bytes text = table->record().bytes.subspan(1);
        ++read;
        if (std::ranges::count(text, text[0]) == std::ssize(text)) return;
        // docs/explanation/locking.md names the gap: a writer that was stopped in the middle of its
        // copy.
        while (writes) std::this_thread::yield();
        mixed += slow_until.load() < begin;
    };
    while (Clock::now() < end) {
        for (table->go_top(); !table->end_of_file(); table->skip(1)) look();
        for (RecordNumber number = kRecords; number > 0; number -= 2) table->go_to(number), look();
    }
    ends = true;
    writing.join();
    EXPECT_EQ(mixed, 0) << "of " << read;
}

// ---------------------------------------------------------------------------------------- waiting

constexpr locks::LockRange kMain{1ull << 33, 1};

struct Waiter {
    explicit Waiter(File own) : file(std::move(own)) {}

    bool lock_and_release(int timeout_ms) {
        const bool locked =
            queue.lock(kMain, locks::LockScheme::queue(), LockKind::kExclusive, timeout_ms);
        if (locked) file.unlock({kMain.offset, 1});
        return locked;
    }

    File file;
    locks::LockQueue queue{file};
};

TEST_F(LocksTest, NobodyPassesTheLineForEverAndALineThatStandsStillIsPassed) {
    make(false, 0);
    File first_in_line = stranger();
    Waiter waiter(stranger());
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(waiter.lock_and_release(0)) << "nobody waits";
    ASSERT_TRUE(first_in_line.try_lock({locks::LockScheme::queue().offset, 1}));
    int passed = 0;
    const auto begin = std::chrono::steady_clock::now();
    const auto waited = [&] { return std::chrono::steady_clock::now() - begin; };
    while (passed < 1000 && waited() < std::chrono::milliseconds(100)) {
        ASSERT_TRUE(waiter.lock_and_release(200));
        ++passed;
    }
    EXPECT_LE(passed, 32);
    EXPECT_GE(waited(), std::chrono::milliseconds(100)) << "half the time belongs to the line";
    first_in_line.close();
    EXPECT_TRUE(waiter.lock_and_release(0));
}

TEST_F(LocksTest, WhoStandsStillInLineIsKnownAfterASecondAndNobodyElseIsPassed) {
    make(false, 0);
    const std::uint64_t places = locks::LockScheme::queue().offset;
    File suspended = stranger(), living = stranger();
    ASSERT_TRUE(suspended.try_lock({places, 1}));
    Waiter waiter(stranger());
    const auto begin = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(1500)) {
        ASSERT_TRUE(waiter.lock_and_release(200));
    }
    const auto is_met = [&] {
        for (int i = 0; i < 40; ++i) {
            if (!waiter.queue.try_lock(kMain, locks::LockScheme::queue(), LockKind::kExclusive)) {
                return true;
            }
            waiter.file.unlock({kMain.offset, 1});
        }
        return false;
    };
    EXPECT_FALSE(is_met()) << "the one who stands still is known";
    ASSERT_TRUE(living.try_lock({places + 1, 1}));
    EXPECT_TRUE(is_met()) << "somebody beside the one who stands still";
    living.close();
    suspended.unlock({places, 1});
    EXPECT_FALSE(is_met());
    ASSERT_TRUE(suspended.try_lock({places, 1}));
    EXPECT_TRUE(is_met()) << "the place was free in between";
}

TEST_F(LocksTest, ASuspendedProcessInLineHoldsUpOneChangeForAMoment) {
    make(true, 1);
    File suspended = stranger(".CDX");
    ASSERT_TRUE(suspended.try_lock({locks::LockScheme::queue().offset, 1}));
    const auto table = open(compatible_);
    ASSERT_TRUE(take(*table, 1));
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) {
        table->field_put(1, "C" + std::to_string(i));
        table->commit();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
}

// ----------------------------------------------------------------------------------------- growth

// What of a file shows a change: its size and its first 64 KB.
std::string picture(const std::string& path) {
    std::string seen(1 << 16, '\0');
    std::ifstream(path, std::ios::binary).read(seen.data(), 1 << 16);
    return seen + std::to_string(fs::file_size(path));
}

std::string le32(std::uint64_t value) {
    Byte bytes[4];
    store_le32(bytes, static_cast<std::uint32_t>(value));
    return std::string(as_text(bytes));
}

class GrowthTest : public LocksTest {
  protected:
    // As if so many records had been added; the file has a hole where they would lie.
    void pretend(RecordNumber records) {
        fs::resize_file(path(), 97 + std::uint64_t{records} * kLength);
        write_over(path(), 4, le32(records));
    }

    template <class Action>
    void expect_refused(const std::string& what, Action action) {
        const auto pictures = [this] {
            return picture(path()) + picture(path(".CDX")) + picture(path(".FPT"));
        };
        const std::string before = pictures();
        EXPECT_TRUE(refused(action, FaultCode::kLimit)) << what;
        EXPECT_TRUE(pictures() == before) << what << " has changed a file";
    }

    static constexpr std::uint32_t kWidth = 239, kLength = 1 + kWidth + 10;
};

TEST_F(GrowthTest, OfATableEndsWhereItsLocksBegin) {
    // The lock of the whole table; the locks of records, which end there; and our own locks.
    constexpr std::uint64_t kCompatible = 0x40000000, kOthers = 0x7FFFFFFE, kOwn = 1ull << 32;
    const auto most_before = [](std::uint64_t locks) {
        return static_cast<RecordNumber>((locks - 97 - 1) / kLength);
    };
    constexpr std::uint64_t kMarker = kOthers - (kOthers - 97 - 1) / (kLength + 1);
    struct Case {
        const char* what;
        LocalEngine& engine;
        TableSharing sharing;
        RecordNumber most;
    };
    for (const Case& c :
         {Case{"compatible", compatible_, TableSharing::kShared, most_before(kCompatible)},
          {"compatible, exclusive", compatible_, TableSharing::kExclusive,
           most_before(kCompatible)},
          {"proprietary", proprietary_, TableSharing::kShared, most_before(kMarker)},
          {"proprietary, exclusive", proprietary_, TableSharing::kExclusive, most_before(kOwn)}}) {
        make(true, 3, kWidth);
        pretend(c.most - 1);
        auto table = open(c.engine, c.sharing);
        ASSERT_TRUE(table) << c.what;
        ASSERT_TRUE(fake::append(*table, {"LAST"})) << c.what;
        EXPECT_TRUE(find(*table, "LAST")) << c.what;
        EXPECT_EQ(table->record_number(), c.most) << c.what;
        expect_refused(c.what, [&] { static_cast<void>(table->append_blank(false)); });
    }
    // Past the marker, several proprietary users go on.
    const auto one = open(proprietary_), two = open(proprietary_);
    ASSERT_TRUE(one && two);
    EXPECT_FALSE(open(compatible_));
    EXPECT_TRUE(one->lock_record(most_before(kOwn)));
}

TEST_F(GrowthTest, OfAnIndexEndsBeforeItsRecordIsAdded) {
    constexpr std::uint64_t kEnd = 0x7FFFFFFE / 512 * 512;
    for (LocalEngine* engine : {&compatible_, &proprietary_}) {
        make(true, 3, kWidth);
        fs::resize_file(path(".CDX"), kEnd - 512);
        const auto table = open(*engine);
        expect_refused("addition", [&] { static_cast<void>(table->append_blank(false)); });
        for (RecordNumber record = 1; record <= 3; ++record) {
            ASSERT_TRUE(take(*table, record));
            // Finds room on the pages that are there.
            fake::put_and_unlock(*table, {"CHANGED" + std::to_string(record)});
        }
        EXPECT_TRUE(find(*table, "CHANGED2"));
    }
}

TEST_F(GrowthTest, OfAMemoFileEndsBeforeRecordOrKeysChange) {
    for (const auto& [engine, limit] : {std::pair(&compatible_, std::uint64_t{1} << 30),
                                        {&proprietary_, std::uint64_t{1} << 32}}) {
        make(true, 3, kWidth);
        fs::resize_file(path(".FPT"), limit - 2 * 64);
        std::string next_free = le32(limit / 64 - 2);
        std::reverse(next_free.begin(), next_free.end());
        write_over(path(".FPT"), 0, next_free);
        const auto table = open(*engine);
        ASSERT_TRUE(take(*table, 2));
        table->field_put(1, "MOVED");
        table->field_put(2, Memo{std::string(200, 'x')});
        expect_refused("memo", [&] { table->commit(); });
        table->abandon_changes();
        EXPECT_TRUE(find(*table, "K1"));
        EXPECT_FALSE(find(*table, "MOVED"));
    }
}

}  // namespace
}  // namespace brenik::local
