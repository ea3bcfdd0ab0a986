// Locking modes, waiting in line, and growth to the last byte that the locks allow.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include "engine/index/cdx_file.h"
#include "engine/local/local_engine.h"
#include "engine/locks/lock_queue.h"
#include "engine/locks/lock_scheme.h"
#include "engine/make/create_table.h"
#include "temporary_folder.h"
#include "util/bytes.h"

namespace brenik::local {
namespace {

namespace fs = std::filesystem;
using platform::File;
using platform::LockKind;
using platform::OpenMode;

class SharingTest : public testing::Test {
  protected:
    SharingTest() { proprietary_.set_proprietary_locking(true); }

    std::string path(const char* extension = ".DBF") const {
        return (folder_ / (std::string("T") + extension)).string();
    }

    // A table K C(width), M memo with `records` records; its index has the tag K.
    void make(bool indexed, int records, std::uint32_t width = 8) {
        record::TableLayout layout;
        layout.version = 0xF5;
        layout.fields.resize(2);
        layout.fields[0].name = "K";
        layout.fields[0].width = width;
        layout.fields[1].name = "M";
        layout.fields[1].type = 'M';
        layout.fields[1].width = 10;
        make::create_table(path(), layout);
        if (indexed) make::create_index(path(), {{"K", "K"}});
        const auto table = open(compatible_);
        for (int i = 0; i < records; ++i) {
            ASSERT_TRUE(table->append_blank(false));
            table->field_put(1, "K" + std::to_string(i));
        }
    }

    std::unique_ptr<Table> open(LocalEngine& engine, TableSharing sharing = TableSharing::kShared) {
        return engine.open(path(), sharing);
    }

    // Another program, which knows nothing but the compatible positions.
    File stranger(const char* extension = ".DBF") const {
        return File::open(path(extension), OpenMode::kReadWrite);
    }

    TemporaryFolder folder_;
    LocalEngine compatible_;
    LocalEngine proprietary_;
};

// ------------------------------------------------------------------------------------------ modes

TEST_F(SharingTest, ModesExcludeEachOtherAndWorkTogetherEachForItself) {
    for (const bool indexed : {true, false}) {
        make(indexed, 2);
        for (LocalEngine* ours : {&compatible_, &proprietary_}) {
            LocalEngine& other = ours == &compatible_ ? proprietary_ : compatible_;
            auto one = open(*ours), two = open(*ours);
            ASSERT_TRUE(one && two);
            EXPECT_FALSE(open(other));
            EXPECT_FALSE(open(other, TableSharing::kExclusive));
            ASSERT_TRUE(one->lock_record(1));
            EXPECT_FALSE(two->lock_record(1));
            EXPECT_FALSE(two->lock_table());
            one->unlock_all();
            ASSERT_TRUE(two->lock_table());
            EXPECT_FALSE(one->lock_record(2));
            EXPECT_FALSE(one->append_blank(false));
            two->unlock_all();
            ASSERT_TRUE(one->append_blank(false));
            one->field_put(1, "LATEST");
            one->commit();
            EXPECT_TRUE(!indexed || two->seek("LATEST", SeekMode::kHard, SeekEnd::kFirst));
            one.reset();
            EXPECT_FALSE(open(other)) << "one user is left";
            two.reset();
            EXPECT_TRUE(open(other));
            EXPECT_TRUE(open(other, TableSharing::kExclusive));
        }
    }
}

TEST_F(SharingTest, StrangersAndProprietaryUsersKeepEachOtherOut) {
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
            EXPECT_FALSE(other.try_lock(p.offset, p.length)) << p.extension << p.offset;
            std::array<Byte, 64> bytes{};
            EXPECT_EQ(other.read_at(0, bytes), bytes.size());
        }
        ASSERT_TRUE(other.try_lock(p.offset, p.length)) << "nothing stays behind";
        EXPECT_FALSE(open(proprietary_)) << p.extension << p.offset;
        if (p.extension == std::string(".DBF")) {
            EXPECT_TRUE(open(compatible_));
        }
        other.unlock(p.offset, p.length);
        EXPECT_TRUE(open(proprietary_));
    }
}

TEST_F(SharingTest, NoLockOfAnyKindTouchesDataOfTheLargestTable) {
    for (const std::uint8_t flags : {std::uint8_t{0}, std::uint8_t{1}}) {
        for (const std::uint32_t length : {2u, 19u, 800u, 65500u}) {
            record::TableLayout layout;
            layout.flags = flags;
            layout.header_length = 97;
            layout.record_length = length;
            const locks::LockScheme old(layout), ours(layout, locks::LockMode::kProprietary);
            const auto end = [&](std::uint64_t records) { return 97 + records * length + 1; };
            EXPECT_LE(end(old.max_records()), locks::LockScheme::table().offset);
            EXPECT_GE(old.record(old.max_records()).offset, locks::LockScheme::table().offset);
            EXPECT_LE(end(ours.max_records()), ours.marker().offset);
            EXPECT_GT(end(ours.max_records()) + length, ours.marker().offset);
            EXPECT_EQ(ours.marker().offset + ours.marker().length - 1, 0x7FFFFFFEu);
            EXPECT_LE(end(ours.max_records(false)), ours.append().offset);
            const locks::LockRange all = locks::LockScheme::table(locks::LockMode::kProprietary);
            EXPECT_LT(ours.record(0xFFFFFFFF).offset, all.offset + all.length);
            EXPECT_LE(all.offset + all.length,
                      locks::LockScheme::use(locks::LockMode::kCompatible).offset);
        }
    }
}

// ---------------------------------------------------------------------------------------- waiting

constexpr locks::LockRange kMain{1ull << 33, 1};

struct Waiter {
    explicit Waiter(File own) : file(std::move(own)) {}

    bool lock_and_release(int timeout_ms) {
        const bool locked =
            queue.lock(kMain, locks::LockScheme::queue(), LockKind::kExclusive, timeout_ms);
        if (locked) file.unlock(kMain.offset, 1);
        return locked;
    }

    File file;
    locks::LockQueue queue{file};
};

// The waiters find the lock taken, one after the other; the first of them gets that place in line.
// When each was served then, counted from 1; 0 for one who was refused.
template <std::size_t kCount>
std::array<int, kCount> served(std::array<Waiter, kCount>& waiters, File holder, File look,
                               std::uint64_t first_place, int timeout_ms) {
    EXPECT_TRUE(holder.try_lock(kMain.offset, 1));
    std::array<int, kCount> turns{};
    std::atomic<int> next = 0;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kCount; ++i) {
        threads.emplace_back([&, i] {
            Waiter& waiter = waiters[i];
            if (!waiter.queue.lock(kMain, locks::LockScheme::queue(), LockKind::kExclusive,
                                   timeout_ms)) {
                return;
            }
            turns[i] = ++next;
            waiter.file.unlock(kMain.offset, 1);
        });
        // The place that the next one will find taken.
        const std::uint64_t place = locks::LockScheme::queue().offset + first_place + i;
        while (look.try_lock(place, 1)) {
            look.unlock(place, 1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    holder.unlock(kMain.offset, 1);
    for (std::thread& thread : threads) thread.join();
    return turns;
}

TEST_F(SharingTest, TheLineIsServedInTheOrderOfArrival) {
    make(false, 0);
    std::array waiters{Waiter(stranger()), Waiter(stranger()), Waiter(stranger()),
                       Waiter(stranger())};
    constexpr int kForever_ms = 600'000;  // a line that stands still half so long is passed
    EXPECT_EQ(served(waiters, stranger(), stranger(), 0, kForever_ms), (std::array{1, 2, 3, 4}));
}

TEST_F(SharingTest, NobodyPassesTheLineForEverAndALineThatStandsStillIsPassed) {
    make(false, 0);
    File first_in_line = stranger();
    Waiter waiter(stranger());
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(waiter.lock_and_release(0)) << "nobody waits";
    ASSERT_TRUE(first_in_line.try_lock(locks::LockScheme::queue().offset, 1));
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

TEST_F(SharingTest, WhoStandsStillInLineIsKnownAfterASecondAndNobodyElseIsPassed) {
    make(false, 0);
    const std::uint64_t places = locks::LockScheme::queue().offset;
    File suspended = stranger(), living = stranger();
    ASSERT_TRUE(suspended.try_lock(places, 1));
    std::array waiters{Waiter(stranger()), Waiter(stranger()), Waiter(stranger())};
    const auto all_lock = [&] {
        for (Waiter& waiter : waiters) ASSERT_TRUE(waiter.lock_and_release(200));
    };
    auto begin = std::chrono::steady_clock::now();
    const auto waited = [&] { return std::chrono::steady_clock::now() - begin; };
    while (waited() < std::chrono::milliseconds(1500)) all_lock();
    begin += waited();
    for (int i = 0; i < 100; ++i) all_lock();
    EXPECT_EQ(served(waiters, stranger(), stranger(), 1, 20'000), (std::array{1, 2, 3}));
    EXPECT_LT(waited(), std::chrono::seconds(2)) << "waited for once more";

    const auto is_met = [&] {
        for (int i = 0; i < 40; ++i) {
            if (!waiters[0].queue.try_lock(kMain, locks::LockScheme::queue(),
                                           LockKind::kExclusive)) {
                return true;
            }
            waiters[0].file.unlock(kMain.offset, 1);
        }
        return false;
    };
    ASSERT_TRUE(living.try_lock(places + 1, 1));
    EXPECT_TRUE(is_met()) << "somebody beside the one who stands still";
    living.close();
    EXPECT_FALSE(is_met());
    suspended.unlock(places, 1);
    EXPECT_FALSE(is_met());
    ASSERT_TRUE(suspended.try_lock(places, 1));
    EXPECT_TRUE(is_met()) << "the place was free in between";
}

TEST_F(SharingTest, ASuspendedProcessInLineHoldsUpOneChangeForAMoment) {
    make(true, 1);
    File suspended = stranger(".CDX");
    ASSERT_TRUE(suspended.try_lock(locks::LockScheme::queue().offset, 1));
    const auto table = open(compatible_);
    table->go_to(1);
    ASSERT_TRUE(table->lock_record(1));
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) {
        table->field_put(1, "C" + std::to_string(i));
        table->commit();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
}

// ----------------------------------------------------------------------------------------- growth

// Whatever of a file could be seen to have changed: its size, its first 64 KB and its last.
std::string picture(const std::string& path) {
    constexpr std::size_t kPart = 1 << 16;
    std::ifstream file(path, std::ios::binary);
    const std::uint64_t size = fs::file_size(path);
    std::string seen(2 * kPart, '\0');
    file.read(seen.data(), kPart);
    file.clear();
    file.seekg(static_cast<std::streamoff>(size > kPart ? size - kPart : 0));
    file.read(seen.data() + kPart, kPart);
    return seen + std::to_string(size);
}

void patch(const std::string& path, std::uint64_t offset, std::vector<Byte> bytes) {
    File file = File::open(path, OpenMode::kReadWrite);
    file.write_at(offset, bytes);
}

std::vector<Byte> le32(std::uint32_t value) {
    std::vector<Byte> bytes(4);
    store_le32(bytes.data(), value);
    return bytes;
}

class GrowthTest : public SharingTest {
  protected:
    // As if so many records had been added; the file has a hole where they would lie.
    void pretend(RecordNumber records) {
        const std::uint64_t length = 1 + kWidth + 10;
        fs::resize_file(path(), 97 + records * length);
        patch(path(), 4, le32(records));
    }

    std::map<std::string, std::string> pictures() const {
        std::map<std::string, std::string> all;
        for (const char* e : {".DBF", ".CDX", ".FPT"}) all[e] = picture(path(e));
        return all;
    }

    template <class Action>
    void expect_refused(const char* what, Action action) {
        const auto before = pictures();
        try {
            action();
            ADD_FAILURE() << what << ": not refused";
        } catch (const EngineFault& fault) {
            EXPECT_EQ(fault.code(), FaultCode::kLimit) << what << ": " << fault.what();
        }
        for (const auto& [extension, seen] : pictures()) {
            EXPECT_TRUE(seen == before.at(extension)) << what << " has changed " << extension;
        }
    }

    static constexpr std::uint32_t kWidth = 239;
};

TEST_F(GrowthTest, OfATableEndsWhereItsLocksBegin) {
    record::TableLayout layout;
    layout.flags = 1;
    layout.header_length = 97;
    layout.record_length = 1 + kWidth + 10;
    const locks::LockScheme old(layout), ours(layout, locks::LockMode::kProprietary);
    struct Case {
        const char* what;
        LocalEngine& engine;
        TableSharing sharing;
        RecordNumber most;
    };
    for (const Case& c :
         {Case{"compatible", compatible_, TableSharing::kShared, old.max_records()},
          {"compatible, exclusive", compatible_, TableSharing::kExclusive, old.max_records()},
          {"proprietary", proprietary_, TableSharing::kShared, ours.max_records()},
          {"proprietary, exclusive", proprietary_, TableSharing::kExclusive,
           ours.max_records(false)}}) {
        make(true, 3, kWidth);
        pretend(c.most - 1);
        auto table = open(c.engine, c.sharing);
        ASSERT_TRUE(table) << c.what;
        ASSERT_TRUE(table->append_blank(false)) << c.what;
        table->field_put(1, "LAST");
        table->unlock_all();
        EXPECT_TRUE(table->seek("LAST", SeekMode::kHard, SeekEnd::kFirst)) << c.what;
        EXPECT_EQ(table->record_number(), c.most) << c.what;
        expect_refused(c.what, [&] { static_cast<void>(table->append_blank(false)); });
    }
    // Past the marker, several proprietary users go on.
    const auto one = open(proprietary_), two = open(proprietary_);
    ASSERT_TRUE(one && two);
    EXPECT_FALSE(open(compatible_));
    EXPECT_TRUE(one->lock_record(ours.max_records(false)));
}

TEST_F(GrowthTest, OfAnIndexEndsBeforeItsRecordIsAdded) {
    constexpr std::uint64_t kEnd = 0x7FFFFFFE / 512 * 512;
    for (LocalEngine* engine : {&compatible_, &proprietary_}) {
        make(true, 3, kWidth);
        fs::resize_file(path(".CDX"), kEnd - 512);
        const auto table = open(*engine);
        expect_refused("addition", [&] { static_cast<void>(table->append_blank(false)); });
        for (RecordNumber record = 1; record <= 3; ++record) {
            table->go_to(record);
            ASSERT_TRUE(table->lock_record(record));
            table->field_put(1, "CHANGED" + std::to_string(record));
            table->unlock_all();  // finds room on the pages that are there
        }
        EXPECT_TRUE(table->seek("CHANGED2", SeekMode::kHard, SeekEnd::kFirst));
    }
}

TEST_F(GrowthTest, OfAMemoFileEndsBeforeRecordOrKeysChange) {
    for (const auto& [engine, limit] : {std::pair(&compatible_, std::uint64_t{1} << 30),
                                        {&proprietary_, std::uint64_t{1} << 32}}) {
        make(true, 3, kWidth);
        fs::resize_file(path(".FPT"), limit - 2 * 64);
        std::vector<Byte> next_free = le32(static_cast<std::uint32_t>(limit / 64 - 2));
        std::reverse(next_free.begin(), next_free.end());
        patch(path(".FPT"), 0, next_free);
        const auto table = open(*engine);
        table->go_to(2);
        ASSERT_TRUE(table->lock_record(2));
        table->field_put(1, "MOVED");
        table->field_put(2, Memo{std::string(200, 'x')});
        expect_refused("memo", [&] { table->commit(); });
        table->abandon_changes();
        EXPECT_TRUE(table->seek("K1", SeekMode::kHard, SeekEnd::kFirst));
        EXPECT_FALSE(table->seek("MOVED", SeekMode::kHard, SeekEnd::kFirst));
    }
}

TEST_F(GrowthTest, OfWidthsAndTagsIsRefusedBeforeAFileIsMade) {
    record::TableLayout wide;
    wide.version = 0x30;
    wide.fields.resize(255);
    for (std::size_t i = 0; i < wide.fields.size(); ++i) {
        wide.fields[i].name = "F" + std::to_string(i);
        wide.fields[i].width = 254;
    }
    wide.fields.resize(300, wide.fields.front());
    EXPECT_THROW(make::create_table(path(), wide), EngineFault);
    EXPECT_FALSE(fs::exists(path()));

    make(true, 1);
    const auto shared = index::CdxFile::open(path(".CDX"), {});
    const std::string before = picture(path(".CDX"));
    index::TagDescription tag;
    tag.name = "MORE";
    tag.key = "K";
    tag.key_length = 8;
    EXPECT_THROW(shared->add_tag(tag, {}), EngineFault) << "others would not know of the tag";
    EXPECT_TRUE(picture(path(".CDX")) == before);
}

}  // namespace
}  // namespace brenik::local
