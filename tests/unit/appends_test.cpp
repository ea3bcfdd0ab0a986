// Identifiers, recycled records, record objects and the journal, on the embedded engine.

#include <gtest/gtest.h>

#include "RSData/journal.h"
#include "RSData/stamps.h"
#include "c_source/retries.h"
#include "data/add_rec.h"
#include "data/append_blank.h"
#include "data/identifiers.h"
#include "data/scatgat.h"
#include "practice.h"

namespace brenik {
namespace {

constexpr int kUncountedArea = 8;  // identifiers without a counter

struct Station : fake::Workstation {
    explicit Station(const fake::Practice& practice) : Workstation(practice) {
        open(kSystemArea, "LAWSYS");
        set_order(open(kJournalArea, "LAWTRANS", "TRANS"), "ENTRIES");
        open(kNotesArea, "NOTES");
        open(kSecondNotesArea, "NOTES2");
        open(kUncountedArea, "UNCOUNT");
        set_order(open(kNamesArea, "LAW1"), "ID");
    }
    Table& table(int area) { return session.areas.table(area, "test"); }
    bool lock(int area, RecordNumber record) { return table(area).lock_record(record); }
    // Kind, table code and identifier of the journal's last entry.
    std::string last_entry() {
        table(kJournalArea).go_to(table(kJournalArea).record_count());
        return text(kJournalArea, "CCODE") + text(kJournalArea, "CDB") + text(kJournalArea, "U_ID");
    }
};

// Each test begins with the table of names as the current one.
class Appends : public testing::Test {
  protected:
    static const fake::Practice& with_tables(const fake::Practice& practice) {
        const std::vector<fake::Column> names{
            {"U_ID", 'C', 7}, {"LAST", 'C', 8}, {"ENTRY", 'D', 8}, {"OPERATOR", 'C', 3}};
        practice.make("LAWSYS",
                      {{"MYUDN", 'C', 2},
                       {"TRACKSYNC", 'L', 1},
                       {"TLASTDELTA", 'N', 5},
                       {"U_ID1", 'N', 9},
                       {"U_ID4", 'N', 9}},
                      {}, {{"XY", true, 0, 61, 9}});
        practice.make("LAWTRANS",
                      {{"CCODE", 'C', 1},
                       {"CDB", 'C', 2},
                       {"U_ID", 'C', 7},
                       {"CDT", 'C', 4},
                       {"CDATA", 'C', 60}},
                      {{"ENTRIES", "CDB + U_ID + CCODE"}});
        practice.make("LAW1", names,
                      {{"ID", "U_ID"}, {"DELETED", "U_ID", "DELETED()"}, {"U_ID", "U_ID"}},
                      {{"AAAAAAA", "Old", Date::from_ymd("20000101"), "ANN"}, {"BBBBBBB", "Kept"}});
        practice.make("NOTES", names, {}, {{"", "first"}, {"", "second"}});
        practice.make("NOTES2", names);
        practice.make("UNCOUNT", names);
        return practice;
    }

    WorkAreas& areas() { return station_.session.areas; }
    Table& table(int area) { return station_.table(area); }
    std::string identifier(int area) { return station_.text(area, "U_ID"); }
    RecordNumber entries() { return table(kJournalArea).record_count(); }
    void set_counter(std::int64_t number) {
        ASSERT_TRUE(station_.lock(kSystemArea, 1));
        areas().set_field(kSystemArea, "U_ID1", number);
        table(kSystemArea).unlock_all();
    }
    // Adds a name as a whole record, filled in before it reaches the file.
    bool add_name() {
        return ADD_REC(session_,
                       {.fill = [this] { areas().set_field(kNamesArea, "LAST", "Whole"); }});
    }
    void delete_record(RecordNumber record) {
        ASSERT_TRUE(fake::take(table(kNamesArea), record));
        table(kNamesArea).mark_deleted();
        table(kNamesArea).unlock_all();
    }

    fake::Practice practice_;
    Station station_{with_tables(practice_)};
    Station other_{practice_};
    Session& session_ = station_.session;
    const std::string stamp_ = RSDT(Date::from_ymd("20031127"), 3600);
};

TEST_F(Appends, GiveTheSecondNotesAnIdentifierThroughTheFirst) {
    table(kNotesArea).go_to(2);
    areas().select(kSecondNotesArea);
    ASSERT_TRUE(other_.lock(kNotesArea, 2));
    EXPECT_FALSE(ADD_REC(session_)) << "the first notes are locked";
    EXPECT_EQ(table(kSecondNotesArea).record_count(), 0U);
    EXPECT_TRUE(other_.lock(kSystemArea, 1)) << "the counter is free";
    other_.session.areas.release_all_locks();

    ASSERT_TRUE(ADD_REC(session_));
    EXPECT_TRUE(table(kSecondNotesArea).owns(1));
    EXPECT_FALSE(table(kNotesArea).owns(2)) << "the lock was borrowed";
    EXPECT_EQ(identifier(kSecondNotesArea) + identifier(kNotesArea), "       XY0000A")
        << "the first one after the counter's 9";
    EXPECT_EQ(station_.last_entry(), "A04XY0000A");
}

TEST_F(Appends, TakeTheCounterOfTheRecordObject) {
    BufferedRecord name(session_, kNamesArea);
    areas().select(kUncountedArea);
    ASSERT_TRUE(ADD_REC(session_, {.object = &name}));
    EXPECT_EQ(identifier(kUncountedArea), "XY00010");
    EXPECT_EQ(CAST(name.field("U_ID")) + CAST(name.field("operator")), "XY00010JON");
    EXPECT_EQ(station_.last_entry(), "A01XY00010");
}

TEST_F(Appends, IssueIdentifiersAlone) {
    std::string issued = "kept";
    table(kNamesArea).go_to(2);
    EXPECT_TRUE(NEXTUID(session_, issued));
    EXPECT_EQ(issued + identifier(kNamesArea), "XY00010XY00010");
    EXPECT_FALSE(table(kNamesArea).owns(2) || table(kSystemArea).owns(1));

    ASSERT_TRUE(REC_LOCK(session_) && lock_record_of(session_, kSystemArea));
    EXPECT_TRUE(NEXTUID(session_, issued,
                        {.record_locked = true, .counter_locked = true, .table = kNotesArea}));
    EXPECT_TRUE(table(kNamesArea).owns(2) && table(kSystemArea).owns(1));
    EXPECT_EQ(entries(), 0U) << "no stamp";
    EXPECT_FALSE(NEXTUID(session_, issued, {.table = kUncountedArea})) << "no counter";
    ASSERT_TRUE(other_.lock(kNamesArea, 1));
    table(kNamesArea).go_to(1);
    EXPECT_FALSE(NEXTUID(session_, issued)) << "the record is somebody else's";
    EXPECT_FALSE(table(kSystemArea).owns(1));
    EXPECT_EQ(issued, "XY0000A");
}

TEST_F(Appends, RecycleDeletedRecords) {
    delete_record(1);
    areas().engine().set_deleted_hidden(true);
    EXPECT_TRUE(APPENDBLANK(session_));
    EXPECT_EQ(table(kNamesArea).record_number(), 1U);
    EXPECT_TRUE(table(kNamesArea).owns(1) && !table(kNamesArea).deleted());
    EXPECT_EQ(station_.text(kNamesArea, "LAST") + identifier(kNamesArea), "        XY00010");
    EXPECT_EQ(station_.last_entry() + areas().order_name(), "A01XY00010ID");

    areas().engine().set_deleted_hidden(false);
    table(kNamesArea).unlock_all();
    delete_record(2);
    ASSERT_TRUE(other_.lock(kNamesArea, 2));
    EXPECT_TRUE(APPENDBLANK(session_)) << "the deleted one is somebody else's";
    EXPECT_EQ(table(kNamesArea).record_count(), 3U);
    EXPECT_TRUE(areas().engine().deleted_hidden());
}

TEST_F(Appends, AreJournalledAsTheArgumentsSay) {
    table(kNamesArea).go_to(2);
    EXPECT_TRUE(RSDEL(session_, {.workstation = "ZZ", .code_area = 12}));
    EXPECT_EQ(station_.last_entry(), "D12BBBBBBB");
    EXPECT_EQ(station_.text(kJournalArea, "CDATA").substr(0, 2), "ZZ");
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(RSDEL(session_, {.remove = true, .code_area = 12}));
    EXPECT_EQ(entries(), 2U) << "a removed entry does not count";

    const std::string never(4, '\0');
    std::string changer = "kept";
    EXPECT_EQ(RSDTOF(session_, "01", "BBBBBBB", 2, &changer) + changer, never + "kept");
    ASSERT_TRUE(REC_LOCK(session_));
    FieldChanges changes{.field_number = 2, .value = "Kept    ", .stamp = stamp_};
    EXPECT_TRUE(RSSET(session_, changes));
    EXPECT_EQ(entries(), 2U) << "the same value";
    changes.workstation = "Q";
    changes.force = true;
    EXPECT_TRUE(RSSET(session_, changes));
    EXPECT_EQ(RSDTOF(session_, "01", "BBBBBBB", 2, &changer) + changer, stamp_ + "Q ");
    EXPECT_EQ(RSDTOF(session_, "01", "BBBBBBB", 3, &changer), never);
}

TEST_F(Appends, PassOverIdentifiersThatExist) {
    constexpr std::int64_t kTooWide = 10000000000;  // fills the counter with asterisks
    const struct {
        const char* existing;
        bool in_journal;
        std::int64_t counter;
        const char* issued;
    } rows[] = {{"XY00012", false, 63, "XY00013"},
                {"XY0001A", true, 71, "XY0001B"},
                {"XY00001", false, kTooWide, "XY0001C"},
                {"XYzzzzz", false, 74, "XY0001D"},
                {"XY0001G", false, 77, "XY0001H"}};
    table(kNamesArea).set_scope(ScopeEnd::kTop, "B");
    std::string issued;
    for (int way = 0; const auto& row : rows) {
        if (row.in_journal) {
            ASSERT_TRUE(RSADD(other_.session, {.identifier = row.existing}));
        } else {
            other_.add({row.existing});
        }
        set_counter(row.counter);
        if (way++ % 3 == 1) {
            table(kNamesArea).go_to(2);
            ASSERT_TRUE(NEXTUID(session_, issued));
            EXPECT_EQ(table(kNamesArea).record_number(), 2U);
        } else {
            ASSERT_TRUE(way % 3 == 1 ? add_name() : ADD_REC(session_));
            issued = identifier(kNamesArea);
            table(kNamesArea).unlock_all();
        }
        EXPECT_EQ(issued, row.issued);
        EXPECT_EQ(areas().order_name() + CAST(table(kNamesArea).scope(ScopeEnd::kTop)), "IDB");
    }
    // Two identifiers after the counter's value are taken, so the third is issued.
    set_counter(73);
    ASSERT_TRUE(add_name());
    EXPECT_EQ(identifier(kNamesArea), "XY0001E");
}

TEST_F(Appends, EndWithTheLastIdentifier) {
    set_counter(916132831);  // five digits
    EXPECT_THROW(static_cast<void>(ADD_REC(session_)), EngineFault);
    EXPECT_TRUE(other_.lock(kSystemArea, 1)) << "the counter is free";
    EXPECT_EQ(table(kNamesArea).record_count(), 2U);
}

TEST_F(Appends, OfABatchWaitForItsEnd) {
    table(kNamesArea).go_to(2);
    ASSERT_TRUE(RSLOCK(session_));
    EXPECT_TRUE(RSDEL(session_));
    EXPECT_FALSE(RSLOCK(other_.session));
    EXPECT_FALSE(RSADD(other_.session, {.identifier = "FFFFFFF"}));
    EXPECT_FALSE(RSUNLOCK(session_));
    EXPECT_TRUE(RSADD(other_.session, {.identifier = "FFFFFFF"}));
}

}  // namespace
}  // namespace brenik
