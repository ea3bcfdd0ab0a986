// The embedded engine's tables, judged by what lies on disk.
//
// Tables written by another engine are read and then changed; an independent checker (a script that
// shares no code with the engine) says whether table, memos and every tag still agree.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include "checker.h"
#include "engine/local/local_engine.h"
#include "engine/local/memo_file.h"
#include "engine/local/table_file.h"
#include "file_bytes.h"
#include "places.h"
#include "refused.h"
#include "tables.h"
#include "util/runtime.h"

namespace brenik::local {
namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;
using fake::append;
using Records = std::vector<RecordNumber>;

const fs::path kFixtures = fs::path(kTestData) / "fixtures";

class TableTest : public testing::Test {
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
    std::unique_ptr<Table> open() { return engine_.open(file(), TableSharing::kShared); }
    std::unique_ptr<Table> make(std::uint8_t version, const std::vector<fake::Column>& fields,
                                const std::vector<make::TagDefinition>& tags = {},
                                const std::vector<Array>& rows = {}) {
        folder_.make("T", fields, tags, rows, version);
        return open();
    }

    fake::TableFolder folder_;
    LocalEngine engine_;
};

// Makes a record current and locks it.
void take(Table& table, RecordNumber record) {
    table.go_to(record);
    ASSERT_TRUE(table.lock_record(record));
}

bool find(Table& table, const char* key) {
    return table.seek(key, SeekMode::kHard, SeekEnd::kFirst);
}

std::uint32_t crc32(std::string_view bytes) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (const char c : bytes) {
        crc ^= static_cast<std::uint8_t>(c);
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (0xEDB88320 & (0 - (crc & 1)));
    }
    return ~crc;
}

Records walk(Table& table, bool forward = true) {
    Records records;
    forward ? table.go_top() : table.go_bottom();
    while (forward ? !table.end_of_file() : !table.beginning_of_file()) {
        records.push_back(table.record_number());
        table.skip(forward ? 1 : -1);
    }
    if (!forward) std::reverse(records.begin(), records.end());
    return records;
}

std::size_t position_of(const Table& table, const std::string& name) {
    for (std::size_t i = 0; i < table.fields().size(); ++i) {
        if (table.fields()[i].name == name) return i + 1;
    }
    return 0;
}

// ------------------------------------------------------------ tables written by another engine

class FixtureTest : public TableTest, public testing::WithParamInterface<const char*> {};

void expect_record(const std::string& line, TableFile& file, Table& table) {
    std::istringstream words(line.substr(4));
    RecordNumber number = 0;
    words >> number;
    const bool deleted = line.find(" * ") != std::string::npos;
    std::string word;
    words >> word;
    if (deleted) words >> word;
    std::vector<Byte> bytes(file.layout().record_length);
    file.read(number, bytes);
    EXPECT_EQ(crc32(as_text(bytes)), std::stoul(word, nullptr, 16)) << line;
    table.go_to(number);
    EXPECT_EQ(table.deleted(), deleted) << line;
    while (words >> word) {
        const std::size_t equals = word.find('='), colon = word.find(':');
        const std::string text = table.field_get(position_of(table, word.substr(0, equals))).text();
        EXPECT_EQ(std::to_string(text.size()), word.substr(equals + 1, colon - equals - 1)) << line;
        EXPECT_EQ(crc32(text), std::stoul(word.substr(colon + 1), nullptr, 16)) << line;
    }
}

TEST_P(FixtureTest, EveryRecordMemoAndOrderIsReadAsItsWriterReadsIt) {
    const auto table = open_copy(GetParam());
    ASSERT_TRUE(table);
    const auto records = TableFile::open(file(), {});
    std::ifstream expected(kFixtures / (GetParam() + ".expected.txt"s));
    std::string line, tag;
    std::map<std::string, Records> orders;
    RecordNumber count = 0;
    while (std::getline(expected, line)) {
        if (line.starts_with("records ")) {
            count = static_cast<RecordNumber>(std::stoul(line.substr(8)));
        } else if (line.starts_with("rec ")) {
            expect_record(line, *records, *table);
        } else if (line.starts_with("tag ")) {
            tag = line.substr(4, line.find(' ', 4) - 4);
            orders[tag];
        } else {
            std::istringstream numbers(line);
            for (RecordNumber number; numbers >> number;) orders[tag].push_back(number);
        }
    }
    EXPECT_EQ(table->record_count(), count);
    ASSERT_EQ(table->order_count(), orders.size());
    for (const auto& [name, order] : orders) {
        ASSERT_TRUE(table->set_order(name));
        EXPECT_EQ(walk(*table), order) << name;
        EXPECT_EQ(walk(*table, false), order) << name << " backwards";
    }
}

Value random_value(const FieldDescription& described, std::mt19937& random) {
    const auto number = [&](int limit) {
        return static_cast<int>(random() % static_cast<unsigned>(limit));
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
            return "20240229" + std::string(number(2) == 0 ? "235959000" : "000001000");
        case 'M': {
            std::string text(static_cast<std::size_t>(number(900)), '\0');
            for (char& c : text) c = static_cast<char>(random());
            return Memo{text};
        }
        default: {
            std::string text(static_cast<std::size_t>(number(described.width + 1)), 'a');
            for (char& c : text) c = static_cast<char>('A' + number(4));
            return text;
        }
    }
}

TEST_P(FixtureTest, HundredsOfChangesLeaveNothingForTheJudgeToFind) {
    std::mt19937 random(20261);
    auto table = open_copy(GetParam());
    ASSERT_TRUE(table);
    for (int step = 0; step < 700; ++step) {
        const RecordNumber count = table->record_count();
        if (count == 0 || random() % 4 == 0) {
            ASSERT_TRUE(table->append_blank(false));
        } else {
            take(*table, static_cast<RecordNumber>(1 + random() % count));
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

// ------------------------------------------------------------------------------------- fields

TEST_F(TableTest, EveryFieldTypeKeepsItsValuesAndRefusesUnsuitableOnes) {
    const struct {
        fake::Column column;
        Value value;
        Value unsuitable = {};
    } cases[] = {
        {{"WIDE", 'C', 300}, std::string(300, 'x')},
        {{"N", 'N', 6, 2}, Number{-1.01}, "text"},
        {{"D", 'D', 8}, Date(2451545), 5},
        {{"L", 'L', 1}, true, "T"},
        {{"M", 'M', 4}, Memo{"a\0b\x1a"s}},
        {{"I", 'I', 4}, Number{-2147483648.0}, Number{3e9}},
        {{"B", 'B', 8, 3}, Number{0.125}},
        {{"Y", 'Y', 8, 4}, Number{-12.3456}, Number{1e300}},
        {{"T", 'T', 8}, "20240229120000500", "tomorrow"},
        {{"V", 'V', 20, 0, 0x02}, "short"},
        {{"NULLC", 'C', 5, 0, 0x02}, Value()},
    };
    std::vector<fake::Column> columns;
    Array values;
    for (const auto& c : cases) columns.push_back(c.column), values.push_back(c.value);
    const auto table =
        make(0x32, columns, {{"I", "I"}, {"T", "T"}, {"NULLC", "NULLC"}, {"Y", "Y"}}, {values});
    take(*table, 1);
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto& [column, value, unsuitable] = cases[i];
        EXPECT_TRUE(table->field_get(i + 1).exactly_equals(value)) << column.name;
        if (unsuitable.is_nil()) continue;
        EXPECT_THROW(table->field_put(i + 1, unsuitable), EngineFault) << column.name;
        EXPECT_TRUE(table->field_get(i + 1).exactly_equals(value)) << column.name;
    }
    EXPECT_TRUE(judged_right(file()));
    table->field_put(2, Number{-1.005});
    EXPECT_EQ(table->field_get(2).number(), -1.01) << "rounded away from zero";
    table->field_put(2, Number{123456});
    EXPECT_EQ(table->field_get(2).number(), 0) << "a number that does not fit is asterisks";
}

// ------------------------------------------------------------------------------- keys and locks

TEST_F(TableTest, CandidateKeyIsRefusedTwiceAndLeavesNoSecondLiveRecord) {
    const auto table = make(0x30, {{"K", 'C', 4}, {"M", 'M', 4}},
                            {{"K", "K", "", false, true}, {"LIVE", "K", "!DELETED()"}});
    ASSERT_TRUE(append(*table, {"one"}));
    EXPECT_THROW(append(*table, {"one"}), EngineFault);
    table->abandon_changes();
    table->unlock_all();
    ASSERT_TRUE(append(*table, {"two", Memo{"as it was"}}));
    take(*table, 3);
    table->field_put(2, Memo{"changed"});
    table->field_put(1, "one");
    EXPECT_THROW(table->commit(), EngineFault);
    table->abandon_changes();
    EXPECT_EQ(table->field_get(2).text(), "as it was") << "a refused change leaves the memo";
    table->go_to(2);
    EXPECT_TRUE(table->end_of_file() || table->deleted());
}

TEST_F(TableTest, RecordsAreWrittenUnderTheirLockOnlyAndReadAnewWithIt) {
    const auto mine = make(0x03, {{"K", 'C', 6}}, {{"K", "K"}}, {{"first"}}), other = open();
    ASSERT_TRUE(mine && other);
    other->go_to(1);
    EXPECT_THROW(other->field_put(1, "unlocked"), EngineFault);
    EXPECT_EQ(other->field_get(1).text(), "first ");
    take(*mine, 1);
    fake::put_and_unlock(*mine, {"again"});
    ASSERT_TRUE(other->lock_record(1));
    EXPECT_EQ(other->field_get(1).text(), "again ");
}

TEST_F(TableTest, AnEntryWhoseRecordHasAnotherKeyOrNoneIsPassedOver) {
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

TEST_F(TableTest, WhatAdditionsLeftUncountedIsClearedByTheNextOnes) {
    constexpr std::uint64_t kCountAt = 4;
    for (const bool whole : {true, false}) {
        const auto table =
            make(0x03, {{"K", 'C', 4}},
                 {{"K", "K"}, {"LIVE", "K", "!DELETED()"}, {"GONE", "K", "DELETED()"}},
                 {{"AAAA"}, {"BBBB"}, {"CCCC"}, {"DDDD"}, {"EEEE"}});
        take(*table, 4);
        table->mark_deleted();
        table->unlock_all();
        // As a program leaves it that is killed, or a power failure.
        write_over(file(), kCountAt, "\x01");
        const auto add = [&, other = open()](const char* key) {
            if (!whole) return append(*other, {key});
            other->begin_record();
            other->field_put(1, key);
            return other->add_record(LockTry::kAtOnce) == Table::Added::kDone;
        };
        const std::string index = file(".CDX"), before = bytes_of(index);
        auto stranger =
            platform::File::open(index, platform::OpenMode::kReadWrite, platform::Sharing::kShared);
        ASSERT_TRUE(stranger.try_lock(locks::LockScheme::index().offset,
                                      locks::LockScheme::index().length));
        EXPECT_FALSE(add("ZZZZ"));
        EXPECT_EQ(bytes_of(index), before);
        stranger.unlock(locks::LockScheme::index().offset, locks::LockScheme::index().length);
        for (const char* key : {"ZZZZ", "YYYY", "XXXX", "WWWW"}) ASSERT_TRUE(add(key));
        EXPECT_TRUE(judged_right(file()));
    }
}

// ----------------------------------------------------------------- other programs' ways to write

TEST_F(TableTest, ValuesInForeignFormAreReadAndKeptAsTheyLie) {
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
        take(*table, static_cast<RecordNumber>(i + 1));
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

TEST_F(TableTest, HeadersOfOtherProgramsDoNotHinderReadingOrAdding) {
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
        {"a year counted from 1900", 1, "\x7C\1\1", 0, 3, true},
        {"an open transaction", 14, "\1", 0, 3, true},
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
        EXPECT_EQ(table->field_get(position_of(*table, "K")).text(), "two   ");
        if (c.adds) {
            EXPECT_TRUE(append(*table, {"four", 4}));
            EXPECT_TRUE(judged_right(file()));
        } else {
            EXPECT_THROW(append(*table, {}), EngineFault);
        }
    }
}

TEST_F(TableTest, MemosOfEveryBlockSizeAreReadAndReplacedWithoutTouchingOthers) {
    const std::string memos = file(".FPT");
    for (const int size : {0, 1, 33, 64, 512}) {
        SCOPED_TRACE(size);
        make(0xF5, {{"M", 'M', 10}});
        const int first = (511 + std::max(size, 1)) / std::max(size, 1);
        Byte header[8] = {};
        store_be32(header, static_cast<std::uint32_t>(first));
        store_be16(header + 6, static_cast<std::uint16_t>(size));
        write_over(memos, 0, as_text(header));
        auto table = open();
        for (const char* text : {"first", "second"}) ASSERT_TRUE(append(*table, {Memo{text}}));
        const std::string before = bytes_of(memos);
        take(*table, 1);
        fake::put_and_unlock(*table, {Memo{"1st"}});
        EXPECT_EQ(bytes_of(memos).substr(8, before.size() - 8), before.substr(8))
            << "a shorter text is not written over the old one";
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
TEST_F(TableTest, MemoFilesDoNotGrowForEver) {
    const auto table = make(0x30, {{"M", 'M', 4}}, {}, {{Memo{"x"}}});
    const auto rewrite = [&](int times) {
        take(*table, 1);
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
TEST_F(TableTest, ATextOfBeforeIsNotWrittenOverByALaterOne) {
    make(0x30, {{"M", 'M', 4}}, {}, {{Memo{"live"}}, {Memo{"gone"}}});
    const std::string header_and_first = bytes_of(file()).substr(0, 328 + 5);
    write_over(file(), 328 + 5, "*" + header_and_first.substr(328 + 1));
    const auto table = open();
    take(*table, 2);
    fake::put_and_unlock(*table, {Memo{"recycled"}});
    std::this_thread::sleep_for(MemoFile::kTextStays + std::chrono::milliseconds(50));
    ASSERT_TRUE(append(*table, {Memo{"another"}}));
    table->go_to(1);
    EXPECT_EQ(table->field_get(1).text(), "live");
}

TEST_F(TableTest, OlderMemoFilesAreReadAndNotWritten) {
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
        take(*table, 1);
        EXPECT_EQ(table->field_get(1).text(), text);
        table->field_put(1, Memo{"new"});
        EXPECT_THROW(table->commit(), EngineFault);
        table->abandon_changes();
    }
}

TEST_F(TableTest, AnIndexOfAnotherNameIsAttachedAndMaintained) {
    make(0x03, {{"K", 'C', 4}}, {{"K", "K"}});
    fs::rename(file(".CDX"), folder_.path("OTHER.CDX"));
    write_over(file(), 28, "\0"s);  // no structural index
    const auto table = open();
    EXPECT_EQ(table->order_count(), 0u);
    EXPECT_FALSE(table->add_orders("MISSING"));
    ASSERT_TRUE(table->add_orders("OTHER"));
    for (const char* key : {"b", "c", "a"}) ASSERT_TRUE(append(*table, {key}));
    EXPECT_EQ(walk(*table), (Records{3, 1, 2}));
    table->clear_orders();
    ASSERT_TRUE(table->add_orders("other.cdx"));
    EXPECT_TRUE(find(*table, "c"));
}

// ------------------------------------------------------------------------------- what is refused

TEST_F(TableTest, FilesBeyondTheEngineAreRefusedWithAReason) {
    const FaultCode damaged = FaultCode::kDamagedFile, unsupported = FaultCode::kUnsupported;
    const struct {
        std::ptrdiff_t
            offset;  // in the table or, with an anchor, from where the index has that text
        std::string bytes;
        FaultCode code;
        const char* reason;
        const char* anchor = "";
    } cases[] = {
        {0, "\x8C", unsupported, "version"},
        {15, "\1", unsupported, "encrypted"},
        {8, "\1\0"s, damaged, "header"},
        {8, "\xFF\xFF", damaged, "header"},
        {10, "\0\0"s, damaged, "record length"},
        {10, "\xFF\x7F", damaged, "record length"},
        {32 + 11, "?", damaged, "cannot be of type"},
        {32 + 16, "\xFF", damaged, "record length"},
        {32, "\0"s, damaged, "name"},
        {494 - 512, "DUTCH", unsupported, "DUTCH", "UPPER(NAME)"},
        {0, "SOUND", unsupported, "SOUND", "UPPER(NAME)"},
        {0, "AGE+900", unsupported, "logical", "AGE>900"},
        {6, "FACE", unsupported, "FACE", "UPPER(NAME)"},
    };
    for (const auto& c : cases) {
        open_copy("FORTAGS");
        const bool index = *c.anchor != '\0';
        const std::string target = file(index ? ".CDX" : ".DBF");
        const std::size_t anchor = index ? bytes_of(target).find(c.anchor, 1024) : 0;
        write_over(target, anchor + static_cast<std::size_t>(c.offset), c.bytes);
        EXPECT_TRUE(refused([&] { open(); }, c.code, c.reason)) << c.reason;
    }
}

}  // namespace
}  // namespace brenik::local
