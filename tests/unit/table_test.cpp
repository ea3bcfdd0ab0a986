// The embedded engine's tables, judged by what lies on disk.
//
// Tables written by another engine are read and then changed; an independent checker (a script that
// shares no code with the engine) says whether table, memos and every tag still agree.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include "checker.h"
#include "engine/local/create.h"
#include "engine/local/local_engine.h"
#include "engine/local/memo_file.h"
#include "engine/local/table_file.h"
#include "temporary_folder.h"
#include "util/runtime.h"

namespace brenik::local {
namespace {

namespace fs = std::filesystem;

class TableTest : public testing::Test {
  protected:
    std::string copy_of(const std::string& fixture) {
        for (const char* extension : {".DBF", ".CDX", ".FPT"}) {
            const fs::path from = fs::path(BRENIK_TEST_DATA) / "fixtures" / (fixture + extension);
            if (!fs::exists(from)) continue;
            fs::copy_file(from, folder_ / from.filename());
            fs::permissions(folder_ / from.filename(), fs::perms::owner_all);
        }
        return path(fixture);
    }
    std::string path(const std::string& name) const { return (folder_ / (name + ".DBF")).string(); }

    std::unique_ptr<Table> open(const std::string& file,
                                TableSharing sharing = TableSharing::kShared) {
        return engine_.open(file, sharing);
    }

    // Creates a table of one generation with an index and opens it.
    std::unique_ptr<Table> make(const std::string& name, std::uint8_t version,
                                std::vector<Field> fields, const std::vector<TagDefinition>& tags) {
        TableLayout layout;
        layout.version = version;
        layout.fields = std::move(fields);
        create_table(path(name), layout);
        if (!tags.empty()) create_index(path(name), tags);
        return open(path(name));
    }

    TemporaryFolder folder_;
    LocalEngine engine_;
};

Field field(const char* name, char type, std::uint32_t width, std::uint32_t decimals = 0,
            std::uint8_t flags = 0) {
    Field made;
    made.name = name;
    made.type = type;
    made.width = width;
    made.decimals = decimals;
    made.flags = flags;
    return made;
}

std::uint32_t crc32(std::string_view bytes) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (const char c : bytes) {
        crc ^= static_cast<std::uint8_t>(c);
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (0xEDB88320 & (0 - (crc & 1)));
    }
    return ~crc;
}

std::vector<RecordNumber> walk(Table& table, bool forward = true) {
    std::vector<RecordNumber> records;
    if (forward) {
        for (table.go_top(); !table.end_of_file(); table.skip(1)) {
            records.push_back(table.record_number());
        }
    } else {
        for (table.go_bottom(); !table.beginning_of_file(); table.skip(-1)) {
            records.push_back(table.record_number());
        }
        std::reverse(records.begin(), records.end());
    }
    return records;
}

std::size_t position_of(const Table& table, const std::string& name) {
    for (std::size_t i = 0; i < table.fields().size(); ++i) {
        if (table.fields()[i].name == name) return i + 1;
    }
    return 0;
}

bool append(Table& table, const std::vector<Value>& values) {
    if (!table.append_blank(false)) return false;
    for (std::size_t i = 0; i < values.size(); ++i) table.field_put(i + 1, values[i]);
    table.unlock_all();
    return true;
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
    const std::string file = copy_of(GetParam());
    const auto table = open(file);
    ASSERT_TRUE(table);
    const auto records = TableFile::open(file, platform::Sharing::kShared);
    std::ifstream expected(std::string(BRENIK_TEST_DATA) + "/fixtures/" + GetParam() +
                           ".expected.txt");
    std::string line, tag;
    std::map<std::string, std::vector<RecordNumber>> orders;
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
    const auto number = [&](int limit) { return static_cast<int>(random() % limit); };
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
    const std::string file = copy_of(GetParam());
    std::mt19937 random(20261);
    {
        const auto table = open(file);
        ASSERT_TRUE(table);
        for (int step = 0; step < 700; ++step) {
            const RecordNumber count = table->record_count();
            if (count == 0 || random() % 4 == 0) {
                ASSERT_TRUE(table->append_blank(false));
            } else {
                table->go_to(static_cast<RecordNumber>(1 + random() % count));
                ASSERT_TRUE(table->lock_record(table->record_number()));
                if (random() % 4 == 0) {
                    table->deleted() ? table->recall() : table->mark_deleted();
                }
            }
            for (std::size_t i = 1; i <= table->fields().size(); ++i) {
                if (random() % 2 != 0)
                    table->field_put(i, random_value(table->fields()[i - 1], random));
            }
            table->unlock_all();
        }
        for (std::size_t order = 1; order <= table->order_count(); ++order) {
            table->set_order(order);
            EXPECT_EQ(walk(*table), walk(*table, false)) << table->order_name(order);
        }
    }
    EXPECT_TRUE(judged_right(file, "--lax-unique"));
}

INSTANTIATE_TEST_SUITE_P(WrittenElsewhere, FixtureTest,
                         testing::Values("NUMKEYS", "CHARKEYS", "UNIQUES", "FORTAGS", "MEMO64",
                                         "EMPTY"));

// ------------------------------------------------------------------------------------- fields

TEST_F(TableTest, EveryFieldTypeKeepsItsValuesAndRefusesUnsuitableOnes) {
    const std::string now = "20240229120000500";
    const std::string binary("a\0b\x1a", 4);
    {
        const auto table = make(
            "TYPES", 0x32,
            {field("WIDE", 'C', 300), field("N", 'N', 6, 2), field("D", 'D', 8), field("L", 'L', 1),
             field("M", 'M', 4), field("I", 'I', 4), field("B", 'B', 8, 3), field("Y", 'Y', 8, 4),
             field("T", 'T', 8), field("V", 'V', 20, 0, 0x02), field("NULLC", 'C', 5, 0, 0x02)},
            {{"I", "I"}, {"T", "T"}, {"NULLC", "NULLC"}, {"Y", "Y"}});
        ASSERT_TRUE(append(*table, {std::string(300, 'x'), Number{-1.005}, Date(2451545), true,
                                    Memo{binary}, Number{-2147483648.0}, Number{0.125},
                                    Number{-12.3456}, now, "short", Value()}));
        EXPECT_EQ(table->field_get(1).text(), std::string(300, 'x'));
        EXPECT_EQ(number_text(table->field_get(2).number_form()), " -1.01");
        EXPECT_EQ(table->field_get(3).date(), Date(2451545));
        EXPECT_TRUE(table->field_get(4).logical());
        EXPECT_EQ(table->field_get(5).text(), binary);
        EXPECT_EQ(table->field_get(6).number(), -2147483648.0);
        EXPECT_EQ(table->field_get(7).number(), 0.125);
        EXPECT_EQ(table->field_get(8).number(), -12.3456);
        EXPECT_EQ(table->field_get(9).text(), now);
        EXPECT_EQ(table->field_get(10).text(), "short");
        EXPECT_TRUE(table->field_get(11).is_nil());

        ASSERT_TRUE(table->lock_record(1));
        table->field_put(2, Number{123456});
        EXPECT_EQ(table->field_get(2).number(), 0) << "a number that does not fit is asterisks";
        const std::vector<std::pair<std::size_t, Value>> unsuitable = {
            {2, "text"}, {3, 5}, {4, "T"}, {6, Number{3e9}}, {8, Number{1e300}}, {9, "tomorrow"}};
        for (const auto& [position, value] : unsuitable) {
            const Value before = table->field_get(position);
            EXPECT_THROW(table->field_put(position, value), EngineFault) << position;
            EXPECT_TRUE(table->field_get(position).exactly_equals(before)) << position;
        }
    }
    EXPECT_TRUE(judged_right(path("TYPES")));
}

// ------------------------------------------------------------------- orders, filters and scopes

TEST_F(TableTest, NavigationHonoursOrderScopeFilterAndDeletion) {
    const auto table =
        make("NAV", 0x03, {field("K", 'C', 4), field("N", 'N', 4)},
             {{"UP", "K"}, {"DOWN", "K", "", false, false, true}, {"SOME", "N", "N>2"}});
    for (const auto& [key, number] : std::vector<std::pair<const char*, int>>{
             {"B", 1}, {"D", 2}, {"A", 3}, {"D", 4}, {"C", 5}}) {
        ASSERT_TRUE(append(*table, {key, number}));
    }
    using Order = std::vector<RecordNumber>;
    const auto in_order = [&](const char* name) { return table->set_order(name), walk(*table); };
    EXPECT_EQ(in_order("up"), (Order{3, 1, 5, 2, 4}));
    EXPECT_EQ(in_order("DOWN"), (Order{4, 2, 5, 1, 3}));
    EXPECT_EQ(in_order("SOME"), (Order{3, 4, 5}));
    EXPECT_FALSE(table->set_order("NONE"));

    struct Case {
        const char* order;
        const char* key;
        SeekMode mode;
        SeekEnd end;
        bool found;
        RecordNumber record;
    };
    for (const Case& c : {Case{"UP", "D", SeekMode::kHard, SeekEnd::kFirst, true, 2},
                          Case{"UP", "D", SeekMode::kHard, SeekEnd::kLast, true, 4},
                          Case{"UP", "", SeekMode::kHard, SeekEnd::kFirst, true, 3},
                          Case{"UP", "BB", SeekMode::kSoft, SeekEnd::kFirst, false, 5},
                          Case{"UP", "BB", SeekMode::kHard, SeekEnd::kFirst, false, 6},
                          Case{"UP", "E", SeekMode::kSoft, SeekEnd::kFirst, false, 6},
                          Case{"DOWN", "D", SeekMode::kHard, SeekEnd::kFirst, true, 4},
                          Case{"DOWN", "D", SeekMode::kHard, SeekEnd::kLast, true, 2},
                          Case{"DOWN", "CC", SeekMode::kSoft, SeekEnd::kFirst, false, 5}}) {
        table->set_order(c.order);
        EXPECT_EQ(table->seek(c.key, c.mode, c.end), c.found) << c.order << c.key;
        EXPECT_EQ(table->record_number(), c.record) << c.order << c.key;
    }
    table->set_order("UP");
    table->set_scope(ScopeEnd::kTop, "B");
    table->set_scope(ScopeEnd::kBottom, "C");
    EXPECT_EQ(walk(*table), (Order{1, 5}));
    table->set_scope(ScopeEnd::kTop, Value());
    table->set_scope(ScopeEnd::kBottom, Value());
    table->set_filter("N <> 5");
    EXPECT_EQ(walk(*table, false), (Order{3, 1, 2, 4}));
    table->set_filter("");
    table->go_to(2);
    ASSERT_TRUE(table->lock_record(2));
    table->mark_deleted();
    table->unlock_all();
    engine_.set_deleted_hidden(true);
    EXPECT_EQ(walk(*table), (Order{3, 1, 5, 4}));
    EXPECT_TRUE(table->seek("D", SeekMode::kHard, SeekEnd::kFirst));
    EXPECT_EQ(table->record_number(), 4u);
}

TEST_F(TableTest, CandidateKeyIsRefusedTwiceAndLeavesNoSecondLiveRecord) {
    {
        const auto table = make("CAND", 0x30, {field("K", 'C', 4), field("M", 'M', 4)},
                                {{"K", "K", "", false, true}, {"LIVE", "K", "!DELETED()"}});
        ASSERT_TRUE(append(*table, {"one"}));
        EXPECT_THROW(append(*table, {"one"}), EngineFault);
        table->abandon_changes();
        table->unlock_all();
        ASSERT_TRUE(append(*table, {"two", Memo{"as it was"}}));
        ASSERT_TRUE(table->lock_record(3));
        table->field_put(2, Memo{"changed"});
        table->field_put(1, "one");
        EXPECT_THROW(table->commit(), EngineFault);
        table->abandon_changes();
        EXPECT_EQ(table->field_get(2).text(), "as it was") << "a refused change leaves the memo";
        table->go_to(1);
        EXPECT_FALSE(table->deleted());
        table->go_to(2);
        EXPECT_TRUE(table->end_of_file() || table->deleted());
    }
}

// ------------------------------------------------------------------------------------ sharing

TEST_F(TableTest, LocksAndExclusiveOpensExcludeOthersAndCachesFollowThem) {
    const auto mine = make("SHARED", 0x03, {field("K", 'C', 6)}, {{"K", "K"}});
    ASSERT_TRUE(append(*mine, {"first"}));
    EXPECT_FALSE(open(path("SHARED"), TableSharing::kExclusive));
    const auto other = open(path("SHARED"));
    ASSERT_TRUE(other);

    ASSERT_TRUE(mine->lock_record(1));
    EXPECT_FALSE(other->lock_record(1));
    EXPECT_FALSE(other->lock_table());
    mine->go_to(1);
    mine->field_put(1, "moved");
    mine->unlock_record(1);
    EXPECT_FALSE(other->seek("first", SeekMode::kHard, SeekEnd::kFirst));
    EXPECT_TRUE(other->seek("moved", SeekMode::kHard, SeekEnd::kFirst));

    EXPECT_THROW(other->field_put(1, "unlocked"), EngineFault);
    ASSERT_TRUE(other->lock_table());
    EXPECT_FALSE(mine->append_blank(false)) << "the whole table is somebody else's";
    ASSERT_TRUE(append(*other, {"second"}));
    ASSERT_TRUE(append(*mine, {"third"}));
    EXPECT_EQ(walk(*mine), (std::vector<RecordNumber>{1, 2, 3}));
    EXPECT_EQ(other->record_count(), 3u);
}

TEST_F(TableTest, AnEntryWhoseRecordHasAnotherKeyIsPassedOver) {
    const auto table = make("STRAY", 0x03, {field("K", 'C', 4)}, {{"K", "K"}});
    for (const char* key : {"AAAA", "BBBB", "BBBB"}) ASSERT_TRUE(append(*table, {key}));
    std::fstream file(path("STRAY"), std::ios::in | std::ios::out | std::ios::binary);
    const std::streamoff first = 32 + 32 + 1;
    file.seekp(first + 1) << "CCCC";  // as a program leaves it that is killed before the index
    file.seekp(first + 5 + 1) << "DDDD";
    file.close();
    table->refresh_record();
    EXPECT_FALSE(table->seek("AAAA", SeekMode::kHard, SeekEnd::kFirst));
    EXPECT_TRUE(table->seek("BBBB", SeekMode::kHard, SeekEnd::kFirst));
    EXPECT_EQ(table->record_number(), 3u);
}

// ----------------------------------------------------------------- other programs' ways to write

void write_over(const fs::path& file, std::uint64_t offset, std::string_view bytes) {
    std::fstream open(file, std::ios::in | std::ios::out | std::ios::binary);
    open.seekp(static_cast<std::streamoff>(offset));
    open.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string bytes_of(const fs::path& file) {
    std::stringstream all;
    all << std::ifstream(file, std::ios::binary).rdbuf();
    return all.str();
}

TEST_F(TableTest, ValuesInForeignFormAreReadAndKeptAsTheyLie) {
    using namespace std::string_literals;
    const Date none;
    const struct {
        std::string raw;  // N 8.2, D, L
        double number;
        Date date;
        bool logical;
    } cases[] = {
        {"\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"s, 0, none, false},
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
    {
        const auto table =
            make("FOREIGN", 0x03,
                 {field("N", 'N', 8, 2), field("D", 'D', 8), field("L", 'L', 1),
                  field("WIDE", 'C', 300)},
                 {{"N", "N"}, {"D", "DTOS(D)"}, {"L", "L"}, {"WIDE", "LEFT(WIDE,10)"}});
        for (std::size_t i = 0; i < std::size(cases); ++i) ASSERT_TRUE(append(*table, {}));
    }
    const std::uint64_t start = 32 + 4 * 32 + 1, length = 1 + 17 + 300;
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        write_over(path("FOREIGN"), start + i * length + 1, cases[i].raw);
    }
    create_index(path("FOREIGN"), {{"N", "N"}, {"D", "DTOS(D)"}, {"WIDE", "LEFT(WIDE,10)"}});
    {
        const auto table = open(path("FOREIGN"));
        for (std::size_t i = 0; i < std::size(cases); ++i) {
            const auto record = static_cast<RecordNumber>(i + 1);
            table->go_to(record);
            EXPECT_EQ(table->field_get(1).number(), cases[i].number) << i;
            EXPECT_EQ(table->field_get(2).date(), cases[i].date) << i;
            EXPECT_EQ(table->field_get(3).logical(), cases[i].logical) << i;
            ASSERT_TRUE(table->lock_record(record));
            for (std::size_t column = 1; column <= 3; ++column) {
                table->field_put(column, table->field_get(column));
            }
            table->field_put(4, "changed " + std::string(280, 'x'));
            table->unlock_all();
            const std::string now =
                bytes_of(path("FOREIGN"))
                    .substr(static_cast<std::size_t>(start + i * length + 1), 25);
            if (i == 3) continue;  // blank numbers are filled in
            EXPECT_EQ(now, cases[i].raw + "changed ") << i;
        }
    }
    EXPECT_TRUE(judged_right(path("FOREIGN")));
}

TEST_F(TableTest, HeadersOfOtherProgramsDoNotHinderReadingOrAdding) {
    using namespace std::string_literals;
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
        make("HEADER", 0x03, {field("K", 'C', 6), field("N", 'N', 4)}, {}).reset();
        for (const char* key : {"one", "two", "three"}) {
            ASSERT_TRUE(append(*open(path("HEADER")), {key, 1}));
        }
        write_over(path("HEADER"), c.offset, c.bytes);
        fs::resize_file(path("HEADER"), fs::file_size(path("HEADER")) - c.cut);
        const auto table = open(path("HEADER"));
        ASSERT_TRUE(table) << c.what;
        EXPECT_EQ(table->record_count(), c.records) << c.what;
        table->go_to(2);
        EXPECT_EQ(table->field_get(position_of(*table, "K")).text(), "two   ") << c.what;
        bool added = false;
        try {
            added = append(*table, {"four", 4});
        } catch (const EngineFault&) {
        }
        EXPECT_EQ(added, c.adds) << c.what;
        EXPECT_TRUE(!added || judged_right(path("HEADER"))) << c.what;
    }
}

TEST_F(TableTest, MemosOfEveryBlockSizeAreReadAndReplacedWithoutTouchingOthers) {
    for (const int size : {0, 1, 33, 64, 512}) {
        make("MEMO", 0xF5, {field("M", 'M', 10)}, {}).reset();
        std::array<Byte, 8> header{};
        const int first = (511 + std::max(size, 1)) / std::max(size, 1);
        store_be32(header.data(), static_cast<std::uint32_t>(first));
        store_be16(header.data() + 6, static_cast<std::uint16_t>(size));
        write_over(folder_ / "MEMO.FPT", 0, as_text(header));
        {
            const auto table = open(path("MEMO"));
            for (const char* text : {"first", "second"}) {
                ASSERT_TRUE(append(*table, {Memo{text}}));
            }
            const std::string before = bytes_of(folder_ / "MEMO.FPT");
            ASSERT_TRUE(table->lock_record(1));
            table->go_to(1);
            table->field_put(1, Memo{"1st"});
            table->unlock_all();
            EXPECT_EQ(bytes_of(folder_ / "MEMO.FPT").substr(8, before.size() - 8), before.substr(8))
                << "a shorter text is not written over the old one";
            table->refresh_record();
            EXPECT_EQ(table->field_get(1).text(), "1st") << size;
            table->go_to(2);
            EXPECT_EQ(table->field_get(1).text(), "second") << size;
        }
        EXPECT_TRUE(judged_right(path("MEMO"))) << size;
    }
}

// Texts that are replaced again and again take turns in the blocks that they leave.
TEST_F(TableTest, MemoFilesDoNotGrowForEver) {
    const auto table = make("TURNS", 0x30, {field("M", 'M', 4)}, {});
    ASSERT_TRUE(append(*table, {Memo{"x"}}));
    const auto rewrite = [&](int times) {
        ASSERT_TRUE(table->lock_record(1));
        for (int i = 0; i < times; ++i) {
            table->field_put(1, Memo{std::string(static_cast<std::size_t>(100 + i % 50), 'x')});
            table->commit();
        }
        table->unlock_all();
    };
    rewrite(300);
    const auto size = fs::file_size(folder_ / "TURNS.FPT");
    std::this_thread::sleep_for(MemoFile::kTextStays + std::chrono::milliseconds(50));
    rewrite(250);
    EXPECT_EQ(fs::file_size(folder_ / "TURNS.FPT"), size);
}

TEST_F(TableTest, OlderMemoFilesAreReadAndNotWritten) {
    using namespace std::string_literals;
    const std::string text = "a text of the older kind";
    const struct {
        std::uint8_t version;
        std::string header, block;
    } cases[] = {{0x83, std::string(512, '\0'), text + "\x1A\x1A"},
                 {0x8B, std::string(20, '\0') + "\0\2"s + std::string(490, '\0'),
                  "\xFF\xFF\x08\0"s + static_cast<char>(text.size() + 8) + "\0\0\0"s + text}};
    for (const auto& c : cases) {
        make("OLDER", 0x03, {field("M", 'M', 10)}, {}).reset();
        ASSERT_TRUE(append(*open(path("OLDER")), {}));
        write_over(path("OLDER"), 0, {reinterpret_cast<const char*>(&c.version), 1});
        write_over(path("OLDER"), 32 + 32 + 1 + 1, "         1");
        std::ofstream(folder_ / "OLDER.DBT", std::ios::binary) << c.header << c.block;
        const auto table = open(path("OLDER"));
        ASSERT_TRUE(table);
        table->go_to(1);
        EXPECT_EQ(table->field_get(1).text(), text);
        ASSERT_TRUE(table->lock_record(1));
        table->field_put(1, Memo{"new"});
        EXPECT_THROW(table->commit(), EngineFault);
        table->abandon_changes();
    }
}

TEST_F(TableTest, AnIndexOfAnotherNameIsAttachedAndMaintained) {
    make("PLAIN", 0x03, {field("K", 'C', 4)}, {{"K", "K"}}).reset();
    fs::rename(folder_ / "PLAIN.CDX", folder_ / "OTHER.CDX");
    const auto plain = [&] {
        write_over(path("PLAIN"), 28, std::string(1, '\0'));  // no structural index
        return open(path("PLAIN"));
    };
    {
        const auto table = plain();
        ASSERT_TRUE(table);
        EXPECT_EQ(table->order_count(), 0u);
        EXPECT_FALSE(table->add_orders("MISSING"));
        ASSERT_TRUE(table->add_orders("OTHER"));
        for (const char* key : {"b", "c", "a"}) ASSERT_TRUE(append(*table, {key}));
        EXPECT_EQ(walk(*table), (std::vector<RecordNumber>{3, 1, 2}));
        table->clear_orders();
        ASSERT_TRUE(table->add_orders("other.cdx"));
        EXPECT_TRUE(table->seek("c", SeekMode::kHard, SeekEnd::kFirst));
    }
    fs::rename(folder_ / "OTHER.CDX", folder_ / "PLAIN.CDX");
    write_over(path("PLAIN"), 28, "\1");
    EXPECT_TRUE(judged_right(path("PLAIN")));
}

// ------------------------------------------------------------------------------- what is refused

// Bytes put over a file of a fixture: at an offset, counted from the first place where `anchor` is
// found behind the header.
struct Damage {
    const char* what;
    const char* fixture;
    const char* extension;
    std::string anchor;
    std::ptrdiff_t offset;
    std::string bytes;
    const char* reason;
};

void inflict(const Damage& damage, const fs::path& target) {
    std::fstream file(target, std::ios::in | std::ios::out | std::ios::binary);
    std::stringstream all;
    all << file.rdbuf();
    const std::size_t anchor = damage.anchor.empty() ? 0 : all.str().find(damage.anchor, 1024);
    ASSERT_NE(anchor, std::string::npos) << damage.what;
    file.clear();
    file.seekp(static_cast<std::streamoff>(anchor) + damage.offset);
    file << damage.bytes;
}

TEST_F(TableTest, FilesBeyondTheEngineAreRefusedWithAReason) {
    using namespace std::string_literals;
    const std::vector<Damage> damages = {
        {"version", "EMPTY", ".DBF", "", 0, "\x8C", "version"},
        {"encrypted", "EMPTY", ".DBF", "", 15, "\1", "encrypted"},
        {"header length 1", "EMPTY", ".DBF", "", 8, "\1\0"s, "header"},
        {"header length past the file", "EMPTY", ".DBF", "", 8, "\xFF\xFF", "header"},
        {"record length 0", "EMPTY", ".DBF", "", 10, "\0\0"s, "record length"},
        {"record length too large", "EMPTY", ".DBF", "", 10, "\xFF\x7F", "record length"},
        {"field type", "EMPTY", ".DBF", "", 32 + 11, "?", "cannot be of type"},
        {"field width", "EMPTY", ".DBF", "", 32 + 16, "\xFF", "record length"},
        {"nameless field", "EMPTY", ".DBF", "", 32, "\0"s, "name"},
        {"directory outside the file", "EMPTY", ".CDX", "", 0, "\0\0\0\x70"s, "CDX"},
        {"directory off a page border", "EMPTY", ".CDX", "", 0, "\1\4", "CDX"},
        {"another collation", "FORTAGS", ".CDX", "UPPER(NAME)", 494 - 512, "DUTCH", "DUTCH"},
        {"unknown function", "FORTAGS", ".CDX", "UPPER(NAME)", 0, "SOUND", "SOUND"},
        {"condition that is not logical", "FORTAGS", ".CDX", "AGE>900", 0, "AGE+900", "logical"},
        {"field of another table", "FORTAGS", ".CDX", "UPPER(NAME)", 6, "FACE", "FACE"},
    };
    for (const Damage& damage : damages) {
        const std::string file = copy_of(damage.fixture);
        inflict(damage, folder_ / (std::string(damage.fixture) + damage.extension));
        try {
            open(file);
            ADD_FAILURE() << damage.what << " was accepted";
        } catch (const EngineFault& fault) {
            EXPECT_NE(std::string(fault.what()).find(damage.reason), std::string::npos)
                << damage.what << ": " << fault.what();
        }
        for (const auto& entry : fs::directory_iterator(folder_)) fs::remove(entry.path());
    }
}

TEST_F(TableTest, ATableCutShortIsReadAsFarAsItGoesAndNotAddedTo) {
    const std::string file = copy_of("UNIQUES");
    fs::resize_file(file, fs::file_size(file) - 100 * 22);
    const auto table = open(file);
    ASSERT_TRUE(table);
    EXPECT_LE(table->record_count(), 800u);
    table->set_order("KALL");
    EXPECT_EQ(walk(*table).size(), table->record_count());
    EXPECT_THROW(static_cast<void>(table->append_blank(false)), EngineFault);
}

}  // namespace
}  // namespace brenik::local
