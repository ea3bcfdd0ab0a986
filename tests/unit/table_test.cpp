// The embedded engine's tables, judged by what lies on disk.
//
// Tables written by another engine are read and then changed; an independent checker (a script that
// shares no code with the engine) says whether table, memos and every tag still agree.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>

#include "checker.h"
#include "engine/local/create.h"
#include "engine/local/local_engine.h"
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
