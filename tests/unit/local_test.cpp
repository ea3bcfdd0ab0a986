// The embedded engine's tables, judged by what lies on disk.
//
// Tables written by another engine are read and then changed; an independent checker (a script that
// shares no code with the engine) says whether table, memos and every tag still agree.

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <iterator>
#include <random>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "checker.h"
#include "engine/local/memo_file.h"
#include "engine/local/table_file.h"
#include "engine/local/table_orders.h"
#include "file_bytes.h"
#include "places.h"
#include "tables.h"
#include "util/runtime.h"

namespace brenik::local {
namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;
using fake::append;
using fake::find;
using fake::take;

const fs::path kFixtures = fs::path(kTestData) / "fixtures";

class LocalTest : public testing::Test {
  protected:
    // A copy of a fixture takes the place of the table.
    std::unique_ptr<Table> open_copy(const std::string& fixture) {
        for (const char* extension : {".DBF", ".CDX", ".FPT"}) {
            const fs::path from = kFixtures / (fixture + extension), to = file(extension);
            fs::remove(to);
            if (!fs::exists(from)) continue;
            fs::copy_file(from, to);
            fs::permissions(to, fs::perms::owner_all);
        }
        return open();
    }
    std::string file(const std::string& extension = ".DBF") const {
        return folder_.path("T" + extension);
    }
    std::unique_ptr<Table> open() { return fake::open(engine_, file()); }
    std::unique_ptr<Table> make(std::uint8_t version, const std::vector<fake::Column>& fields,
                                const std::vector<make::TagDefinition>& tags = {},
                                const std::vector<Array>& rows = {}) {
        folder_.make("T", fields, tags, rows, version);
        return open();
    }

    fake::TableFolder folder_;
    LocalEngine engine_;
};

// ------------------------------------------------------------ tables written by another engine

std::uint32_t crc32(std::string_view bytes) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (const char c : bytes) {
        crc ^= static_cast<std::uint8_t>(c);
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (0xEDB88320 & (0 - (crc & 1)));
    }
    return ~crc;
}

std::vector<std::string> words_of(const std::string& text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

class FixtureTest : public LocalTest, public testing::WithParamInterface<const char*> {};

// What the writer's own program read is kept beside each fixture.
TEST_P(FixtureTest, EveryRecordMemoAndOrderIsReadAsItsWriterReadsIt) {
    const auto table = open_copy(GetParam());
    const auto records = TableFile::open(file(), {});
    std::vector<Byte> bytes(records->layout().record_length);
    std::ostringstream seen;
    const auto sum = [&](std::string_view text) -> std::ostream& {
        return seen << std::hex << std::setw(8) << std::setfill('0') << crc32(text) << std::dec;
    };
    seen << "records " << table->record_count();
    for (RecordNumber record = 1; record <= table->record_count(); ++record) {
        table->go_to(record);
        records->read(record, bytes);
        seen << " rec " << record << (table->deleted() ? " * " : " ");
        sum(as_text(bytes));
        for (std::size_t i = 0; i < table->fields().size(); ++i) {
            if (table->fields()[i].type != 'M') continue;
            const std::string text = table->field_get(i + 1).text();
            seen << " " << table->fields()[i].name << "=" << text.size() << ":";
            sum(text);
        }
    }
    std::set<std::string> names;
    for (std::size_t i = 1; i <= table->order_count(); ++i) names.emplace(table->order_name(i));
    for (const std::string& name : names) {
        ASSERT_TRUE(set_order(*table, name));
        seen << " tag " << name;
        for (const RecordNumber record : fake::walk(*table)) seen << " " << record;
    }
    const std::string expected = bytes_of(kFixtures / (GetParam() + ".expected.txt"s));
    EXPECT_EQ(words_of(seen.str()),
              words_of(std::regex_replace(expected, std::regex(" expr=.*"), "")));
}

Value random_value(const FieldDescription& described, std::mt19937& random) {
    const auto number = [&](int limit) {
        return static_cast<int>(random() % static_cast<unsigned>(limit));
    };
    const auto text = [&](int longest, char first, int letters) {
        std::string made(static_cast<std::size_t>(number(longest + 1)), first);
        for (char& c : made) c = static_cast<char>(first + number(letters));
        return made;
    };
    switch (described.type) {
        case 'D':
            return number(9) == 0 ? Date() : Date(2415021 + number(60000));
        case 'L':
            return number(2) == 0;
        case 'N':
        case 'F':
            return Number{(number(2000) - 1000) / std::pow(10, described.decimals)};
        case 'I':
        case 'B':
        case 'Y':
            return Number{static_cast<double>(number(2000000) - 1000000)};
        case 'T':
            return number(2) == 0 ? "20240229235959000" : "20240229000001000";
        case 'M':
            return Memo{text(900, '\0', 256)};
        default:
            return text(described.width, 'A', 4);
    }
}

TEST_P(FixtureTest, HundredsOfChangesLeaveNothingForTheJudgeToFind) {
    std::mt19937 random(20261);
    std::unique_ptr<Table> table;
    if (GetParam() == "EMPTY"s) {  // in its place one with keys as wide as can be
        table = make(0x30, {{"K", 'C', 240}, {"V", 'C', 99, 0, 0x02}, {"M", 'M', 4}},
                     {{"K", "K"}, {"V", "V"}, {"DOWN", "LEFT(K,200)", "", false, false, true}});
    } else {
        table = open_copy(GetParam());
    }
    for (int step = 0; step < 700; ++step) {
        const RecordNumber count = table->record_count();
        if (count == 0 || random() % 4 == 0) {
            ASSERT_TRUE(table->append_blank(false));
        } else {
            ASSERT_TRUE(take(*table, static_cast<RecordNumber>(1 + random() % count)));
            if (random() % 4 == 0) table->deleted() ? table->recall() : table->mark_deleted();
        }
        for (std::size_t i = 1; i <= table->fields().size(); ++i) {
            if (random() % 2 != 0)
                table->field_put(i, random_value(table->fields()[i - 1], random));
        }
        table->unlock_all();
    }
    table.reset();
    EXPECT_TRUE(judged_right(file(), "--lax-unique"));
}

INSTANTIATE_TEST_SUITE_P(WrittenElsewhere, FixtureTest,
                         testing::Values("NUMKEYS", "CHARKEYS", "UNIQUES", "FORTAGS", "MEMO64",
                                         "EMPTY"));

// ------------------------------------------------------------------------------- in file order

class ScanTest : public LocalTest {
  protected:
    ScanTest() {
        std::vector<Array> rows;
        for (int i = 1; i <= kRecords; ++i) rows.push_back({std::to_string(i)});
        make(0x03, {{"K", 'C', 4}, {"WIDE", 'C', 250}}, {{"K", "K"}}, rows);
        theirs_ = fake::open(their_engine_, file());
        ours_ = open();
        ours_->set_order(0);
    }

    std::string text() { return std::string(trim_right(ours_->field_get(1).text())); }

    // Goes to the record, step by step from the first one, and reads each on the way.
    void scan_to(RecordNumber record) {
        for (ours_->go_top(); ours_->record_number() < record; ours_->skip(1)) text();
        text();
    }

    static constexpr int kRecords = 1000;  // several blocks
    LocalEngine their_engine_;
    std::unique_ptr<Table> theirs_, ours_;
};

TEST_F(ScanTest, ReadsEveryRecordInEitherDirectionWhateverOthersHold) {
    ASSERT_TRUE(theirs_->lock_record(500));
    LocalEngine reader;  // asks nobody about locks
    reader.set_read_only(true);
    const auto only_read = fake::open(reader, file());
    only_read->set_order(0);
    for (int at = 1; at <= kRecords; ++at, only_read->skip(1)) {
        ASSERT_EQ(trim_right(only_read->field_get(1).text()), std::to_string(at));
    }
    const auto walk = [&](bool forward, auto expected) {
        forward ? ours_->go_top() : ours_->go_bottom();
        for (int at = forward ? 1 : kRecords; at >= 1 && at <= kRecords; at += forward ? 1 : -1) {
            if (!expected(at)) continue;
            ASSERT_EQ(text(), std::to_string(at));
            ours_->skip(forward ? 1 : -1);
        }
        EXPECT_TRUE(forward ? ours_->end_of_file() : ours_->beginning_of_file());
    };
    for (const bool forward : {true, false}) walk(forward, [](int) { return true; });
    ours_->set_filter([](const record::RecordView& record) { return record.number % 100 < 7; }, {});
    for (const bool forward : {true, false}) walk(forward, [](int at) { return at % 100 < 7; });
    EXPECT_EQ(ours_->key_count(0, KeySet::kVisible), 70u);
    ours_->set_filter({}, {});
    theirs_->unlock_all();
    ASSERT_TRUE(theirs_->lock_table());
    const auto begin = std::chrono::steady_clock::now();
    for (const bool forward : {true, false}) walk(forward, [](int) { return true; });
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1500))
        << "only a few of the locked records are waited for";
}

TEST_F(ScanTest, FindsWhatOthersChangeAtTheNextCallLockOrMoveAndSoonAnyway) {
    const std::pair<const char*, std::function<void()>> endings[] = {
        {"a call of the host", [&] { engine_.begin_call(); }},
        {"a lock of another record", [&] { ASSERT_TRUE(ours_->lock_record(900)); }},
        {"a lock of another table", [&] { ASSERT_TRUE(take(*open(), 901)); }},
        {"a refreshed record", [&] { ours_->refresh_record(); }},
        {"a record read again", [&] { ours_->skip(0); }},
        {"a move", [&] { ours_->go_to(ours_->record_number()); }},
        {"time", [] { std::this_thread::sleep_for(std::chrono::milliseconds(21)); }}};
    int changes = 0;
    for (const auto& [what, end] : endings) {
        for (const RecordNumber record : {20u, 400u}) {
            scan_to(record);
            const std::string changed = "c" + std::to_string(++changes);
            ASSERT_TRUE(take(*theirs_, record + 1));
            fake::put_and_unlock(*theirs_, {changed});
            end();
            ours_->skip(1);
            EXPECT_EQ(text(), changed) << "after " << what;
            ours_->unlock_all();
        }
        const std::string key = std::to_string(20 + changes);
        ours_->set_order(1);
        for (ours_->go_top(); text() != key; ours_->skip(1)) ASSERT_FALSE(ours_->end_of_file());
        ASSERT_TRUE(append(*theirs_, {key + "!"}));  // its neighbour
        end();
        ours_->skip(1);
        EXPECT_EQ(text(), key + "!") << "in an order, after " << what;
        ours_->unlock_all();
        ours_->set_order(0);
    }
    theirs_.reset();
    ours_.reset();
    make(0x03, {{"K", 'C', 4}}, {}, std::vector<Array>(kRecords)).reset();  // all in one block
    theirs_ = fake::open(their_engine_, file());
    ours_ = open();
    scan_to(20);
    ASSERT_TRUE(take(*theirs_, 120));
    fake::put_and_unlock(*theirs_, {"far"});
    ours_->skip(100);
    EXPECT_EQ(text(), "far") << "after a skip over many";
    scan_to(ours_->record_count());
    ASSERT_TRUE(append(*theirs_, {"new"}));
    ours_->skip(1);
    EXPECT_EQ(text(), "new") << "the count is asked at the end";
}

// ------------------------------------------------------------------- what a killed program leaves

TEST_F(LocalTest, AnEntryWhoseRecordHasAnotherKeyOrNoneIsPassedOver) {
    const auto table = make(0x03, {{"K", 'C', 4}}, {{"K", "K"}}, {{"AAAA"}, {"BBBB"}, {"BBBB"}});
    // As a program leaves it that is killed before it comes to the index.
    write_over(file(), 32 + 32 + 1, " CCCC DDDD");
    table->refresh_record();
    EXPECT_FALSE(find(*table, "AAAA"));
    EXPECT_TRUE(find(*table, "BBBB"));
    EXPECT_EQ(table->record_number(), 3u);
    fs::resize_file(file(), fs::file_size(file()) - 3);
    EXPECT_FALSE(find(*open(), "BBBB")) << "the record is cut short";
}

TEST_F(LocalTest, WhatAnAdditionLeftUncountedIsClearedByTheNextOne) {
    make(0x03, {{"K", 'C', 4}}, {{"K", "K"}}, {{"AAAA"}, {"BBBB"}, {"CCCC"}});
    write_over(file(), 4, "\x01");  // the count
    for (const char* key : {"ZZZZ", "YYYY", "XXXX"}) ASSERT_TRUE(append(*open(), {key}));
    EXPECT_TRUE(judged_right(file()));
}

// As after a lost session, when the index may have been rebuilt or changed by others meanwhile.
TEST_F(LocalTest, OfARecordWhoseKeysAreUncertainAllAreWritten) {
    for (const char* known : {"NEW SAME", "OLD SAME"}) {
        SCOPED_TRACE(known);
        make(0x03, {{"K", 'C', 4}, {"L", 'C', 4}}, {{"K", "K"}, {"L", "L"}}, {{"NEW", "SAME"}});
        const auto records = TableFile::open(file(), {});
        TableOrders orders(records->layout(), file(), {}, index::kDefaultCacheBytes);
        orders.open_structural();
        orders.end_opening();
        std::vector<Byte> there(records->layout().record_length);
        records->read(1, there);
        const auto update = [&](Bytes before, const std::optional<record::RecordView>& after) {
            KeyUpdate keys(orders, record::RecordView{before, 1}, after, KeysBefore::kSome);
            keys.lock(false);
            keys.insert([](const auto&, const auto&) { return false; });
            keys.remove();
            keys.publish();
        };
        update(there, std::nullopt);
        const std::string before = " "s + known;
        update(as_bytes(before), record::RecordView{there, 1});
        EXPECT_TRUE(judged_right(file()));
    }
}

// ----------------------------------------------------------------- other programs' ways to write

TEST_F(LocalTest, ValuesInForeignFormAreReadAndKeptAsTheyLie) {
    const Date none;
    const struct {
        std::string raw;  // N 8.2, D, L
        double number;
        Date date;
        bool logical;
    } cases[] = {
        {std::string(17, '\0'), 0, none, false},
        {"12.5\0\0\0\0"
         "00000000?"s,
         12.5, none, false},
        {"********01/02/99?", 0, none, false},
        {"        00000000 ", 0, none, false},
        {"    1.5020240229y", 1.5, Date::from_civil(2024, 2, 29), true},
        {"-.5     20240230Y", -0.5, none, true},
        {"1,5      2024 1 t", 1, none, true},
        {"+7      19000101n", 7, Date::from_civil(1900, 1, 1), false},
    };
    make(0x03, {{"N", 'N', 8, 2}, {"D", 'D', 8}, {"L", 'L', 1}, {"WIDE", 'C', 300}}, {},
         std::vector<Array>(std::size(cases)));
    const std::size_t start = 32 + 4 * 32 + 1 + 1, length = 1 + 17 + 300;
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        write_over(file(), start + i * length, cases[i].raw);
    }
    make::create_index(file(), {{"N", "N"}, {"D", "DTOS(D)"}, {"WIDE", "LEFT(WIDE,10)"}});
    auto table = open();
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto& c = cases[i];
        ASSERT_TRUE(take(*table, static_cast<RecordNumber>(i + 1)));
        const Value values[] = {table->field_get(1), table->field_get(2), table->field_get(3)};
        EXPECT_EQ(values[0].number(), c.number) << i;
        EXPECT_EQ(values[1].date(), c.date) << i;
        EXPECT_EQ(values[2].logical(), c.logical) << i;
        fake::put_and_unlock(*table, {values[0], values[1], values[2], "changed"});
        if (i == 3) continue;  // blank numbers are filled in
        EXPECT_EQ(bytes_of(file()).substr(start + i * length, 25), c.raw + "changed ") << i;
    }
    table.reset();
    EXPECT_TRUE(judged_right(file()));
}

TEST_F(LocalTest, HeadersOfOtherProgramsDoNotHinderReadingOrAdding) {
    const std::uint64_t start = 32 + 2 * 32 + 1, length = 1 + 6 + 4;
    const struct {
        const char* what;
        std::uint64_t offset;
        std::string bytes;
        std::uint64_t cut;  // from the end of the file
        RecordNumber records;
        bool adds;
    } cases[] = {
        {"no end marker", 0, "", 1, 3, true},
        {"rubbish behind the records", start + 3 * length, "rubbish and more of it", 0, 3, true},
        {"a count below the length", 4, "\2", 0, 2, true},
        {"a count above the length", 4, "\5", 0, 3, false},
        {"a record cut short", 0, "", 1 + 3, 2, false},
        {"field offsets that are rubbish", 32 + 12, "\xEE\xEE\xEE\xEE", 0, 3, true},
        {"a name in lower case, filled with blanks", 32, "k         \0"s, 0, 3, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        make(0x03, {{"K", 'C', 6}, {"N", 'N', 4}}, {}, {{"one", 1}, {"two", 1}, {"three", 1}});
        write_over(file(), c.offset, c.bytes);
        fs::resize_file(file(), fs::file_size(file()) - c.cut);
        const auto table = open();
        ASSERT_TRUE(table);
        EXPECT_EQ(table->record_count(), c.records);
        table->go_to(2);
        EXPECT_EQ(table->field_get(1).text(), "two   ");
        if (c.adds) {
            EXPECT_TRUE(append(*table, {"four", 4}));
            EXPECT_TRUE(judged_right(file()));
        } else {
            EXPECT_THROW(append(*table, {}), EngineFault);
        }
    }
}

TEST_F(LocalTest, MemosOfEveryBlockSizeAreReadAndReplacedWithoutTouchingOthers) {
    for (const int size : {0, 1, 33, 512}) {
        SCOPED_TRACE(size);
        make(0xF5, {{"M", 'M', 10}});
        const int first = (511 + std::max(size, 1)) / std::max(size, 1);
        Byte header[8] = {};
        store_be32(header, static_cast<std::uint32_t>(first));
        store_be16(header + 6, static_cast<std::uint16_t>(size));
        write_over(file(".FPT"), 0, as_text(header));
        auto table = open();
        for (const char* text : {"first", "second"}) ASSERT_TRUE(append(*table, {Memo{text}}));
        ASSERT_TRUE(take(*table, 1));
        fake::put_and_unlock(*table, {Memo{"1st"}});
        for (const char* text : {"1st", "second"}) {
            table->refresh_record();
            EXPECT_EQ(table->field_get(1).text(), text);
            table->skip(1);
        }
        table.reset();
        EXPECT_TRUE(judged_right(file()));
    }
}

// Texts that are replaced again and again take turns in the blocks that they leave.
TEST_F(LocalTest, MemoFilesDoNotGrowForEver) {
    const auto table = make(0x30, {{"M", 'M', 4}}, {}, {{Memo{"x"}}});
    const auto rewrite = [&](int times) {
        EXPECT_TRUE(take(*table, 1));
        for (int i = 0; i < times; ++i) {
            table->field_put(1, Memo{std::string(static_cast<std::size_t>(100 + i % 50), 'x')});
            table->commit();
        }
        table->unlock_all();
        return fs::file_size(file(".FPT"));
    };
    constexpr std::uintmax_t kLongest = 192;  // bytes of a text in the file, in blocks of 64
    const auto size = rewrite(300);
    std::this_thread::sleep_for(MemoFile::kTextStays + std::chrono::milliseconds(50));
    // On a slow machine some blocks have been used again already, so fewer are free.
    EXPECT_EQ(rewrite(static_cast<int>(size / kLongest * 4 / 5)), size);
}

// Other programs leave deleted records behind that name a live record's text.
TEST_F(LocalTest, ATextOfBeforeIsNotWrittenOverByALaterOne) {
    make(0x30, {{"M", 'M', 4}}, {}, {{Memo{"live"}}, {Memo{"gone"}}});
    const std::string header_and_first = bytes_of(file()).substr(0, 328 + 5);
    write_over(file(), 328 + 5, "*" + header_and_first.substr(328 + 1));
    const auto table = open();
    ASSERT_TRUE(take(*table, 2));
    fake::put_and_unlock(*table, {Memo{"recycled"}});
    std::this_thread::sleep_for(MemoFile::kTextStays + std::chrono::milliseconds(50));
    ASSERT_TRUE(append(*table, {Memo{"another"}}));
    table->go_to(1);
    EXPECT_EQ(table->field_get(1).text(), "live");
    // A header that sends the next text over the first one is believed by nobody.
    write_over(file(".FPT"), 0, "\0\0\0\x08"s);
    EXPECT_THROW(static_cast<void>(append(*table, {Memo{"third"}})), EngineFault);
    table->abandon_changes();
    table->go_to(1);
    EXPECT_EQ(table->field_get(1).text(), "live");
}

TEST_F(LocalTest, OlderMemoFilesAreReadAndNotWritten) {
    const std::string text = "a text of the older kind";
    const struct {
        std::string version, header, block;
    } cases[] = {{"\x83", std::string(512, '\0'), text + "\x1A\x1A"},
                 {"\x8B", std::string(20, '\0') + "\0\2"s + std::string(490, '\0'),
                  "\xFF\xFF\x08\0"s + static_cast<char>(text.size() + 8) + "\0\0\0"s + text}};
    for (const auto& c : cases) {
        make(0x03, {{"M", 'M', 10}}, {}, {{}});
        write_over(file(), 0, c.version);
        write_over(file(), 32 + 32 + 1 + 1, "         1");
        std::ofstream(file(".DBT"), std::ios::binary) << c.header << c.block;
        const auto table = open();
        ASSERT_TRUE(take(*table, 1));
        EXPECT_EQ(table->field_get(1).text(), text);
        table->field_put(1, Memo{"new"});
        EXPECT_THROW(table->commit(), EngineFault);
        table->abandon_changes();
    }
}

}  // namespace
}  // namespace brenik::local
