// Identifiers, recycled records, record objects and the journal, on the embedded engine.

#include <gtest/gtest.h>

#include "RSData/journal.h"
#include "RSData/stamps.h"
#include "c_source/Data.h"
#include "data/add_rec.h"
#include "data/append_blank.h"
#include "data/identifiers.h"
#include "data/scatgat.h"
#include "practice.h"

namespace brenik {
namespace {

constexpr int kPlainArea = 6;      // a table without identifiers
constexpr int kUncountedArea = 8;  // identifiers without a counter

struct Station : fake::Workstation {
    explicit Station(const fake::Practice& practice) : Workstation(practice) {
        RSSETBASEDATE(session);
        open(kSystemArea, "LAWSYS");
        open(kJournalArea, "LAWTRANS", "TRANS").set_order("ENTRIES");
        open(kNotesArea, "NOTES");
        open(kSecondNotesArea, "NOTES2");
        open(kPlainArea, "PLAIN");
        open(kUncountedArea, "UNCOUNT");
        open(kNamesArea, "LAW1").set_order("ID");
        open(kEventsArea, "LAW2");
    }
    std::int64_t counter(const char* name) {
        session.areas.table(kSystemArea, "test").refresh_record();
        return session.areas.field(kSystemArea, name).whole();
    }
    void set_counter(const char* name, int value) {
        ASSERT_TRUE(lock_record_of(session, kSystemArea));
        session.areas.set_field(kSystemArea, name, value);
        session.areas.table(kSystemArea, "test").unlock_all();
    }
    // Kind, table code and identifier of the journal's last entry.
    std::string last_entry() {
        session.areas.table(kJournalArea, "test")
            .go_to(session.areas.table(kJournalArea, "test").record_count());
        return text(kJournalArea, "CCODE") + text(kJournalArea, "CDB") + text(kJournalArea, "U_ID");
    }
};

class Appends : public testing::Test {
  protected:
    static const fake::Practice& with_tables(const fake::Practice& practice) {
        const std::vector<fake::Column> names{
            {"U_ID", 'C', 7}, {"LAST", 'C', 8}, {"ENTRY", 'D', 8}, {"OPERATOR", 'C', 3}};
        practice.make("LAWSYS", {{"MYUDN", 'C', 2},
                                 {"TRACKSYNC", 'L', 1},
                                 {"TLASTDELTA", 'N', 5},
                                 {"RECORDNO", 'N', 8},
                                 {"U_ID1", 'N', 9},
                                 {"U_ID2", 'N', 9},
                                 {"U_ID4", 'N', 9}});
        practice.make("LAWTRANS",
                      {{"CCODE", 'C', 1},
                       {"CDB", 'C', 2},
                       {"U_ID", 'C', 7},
                       {"CDT", 'C', 4},
                       {"CDATA", 'C', 60}},
                      {{"ENTRIES", "CDB+U_ID+CCODE"}});
        practice.make("LAW1", names, {{"ID", "U_ID"}, {"DELETED", "U_ID", "DELETED()"}});
        practice.make("LAW2", {{"U_ID", 'C', 7}, {"ENTRY", 'D', 8}, {"RNO", 'N', 8}});
        practice.make("NOTES", names);
        practice.make("NOTES2", names);
        practice.make("PLAIN", {{"TEXT", 'C', 4}});
        practice.make("UNCOUNT", names);
        fake::Workstation system(practice);
        system.open(kSystemArea, "LAWSYS");
        system.add({"XY", true, 0, 99999998, 61, 0, 9});
        system.open(kNotesArea, "NOTES");
        system.add({"", "first"});
        system.add({"", "second"});
        return practice;
    }

    WorkAreas& areas() { return station_.session.areas; }
    Table& table(int area) { return areas().table(area, "test"); }
    void delete_record(RecordNumber record) {
        Table& names = table(kNamesArea);
        names.go_to(record);
        ASSERT_TRUE(names.lock_record(record));
        names.mark_deleted();
        names.unlock_all();
    }

    fake::Practice practice_;
    Station station_{with_tables(practice_)};
    Session& session_ = station_.session;
};

TEST_F(Appends, NumberEventsUpToTheLastAndBeginAgainAtZero) {
    for (const int number : {99999999, 0, 1}) {
        areas().select(kEventsArea);
        BufferedRecord object(session_, kEventsArea);
        ASSERT_TRUE(ADD_REC(session_, {.object = &object}));
        EXPECT_EQ(areas().field(kEventsArea, "RNO").whole(), number);
        EXPECT_EQ(station_.counter("RECORDNO"), number);
        EXPECT_EQ(object.field("RNO").whole(), number);
        EXPECT_EQ(object.field("ENTRY").date().to_ymd(), "20031127");
        EXPECT_EQ(station_.text(kEventsArea, "U_ID"), CAST(object.field("U_ID")));
    }
    EXPECT_EQ(station_.last_entry(), "A02XY00003");
}

TEST_F(Appends, GiveTheSecondNotesAnIdentifierThroughTheFirst) {
    table(kNotesArea).go_to(2);
    areas().select(kSecondNotesArea);
    ASSERT_TRUE(ADD_REC(session_));
    EXPECT_EQ(table(kSecondNotesArea).record_count(), 1U);
    EXPECT_TRUE(table(kSecondNotesArea).owns(1));
    EXPECT_EQ(station_.text(kSecondNotesArea, "U_ID"), "       ");
    EXPECT_EQ(station_.text(kNotesArea, "U_ID"), "XY0000A");
    EXPECT_FALSE(table(kNotesArea).owns(2)) << "the lock was borrowed";
    EXPECT_EQ(station_.counter("U_ID4"), 10);
    EXPECT_EQ(station_.last_entry(), "A04XY0000A");

    std::string identifier;
    EXPECT_TRUE(NEXTUID(session_, identifier));
    EXPECT_EQ(identifier, "XY0000B");
    EXPECT_EQ(station_.text(kNotesArea, "U_ID"), identifier);
}

TEST_F(Appends, LeaveNothingBehindWhileTheFirstNotesAreLocked) {
    Station other(practice_);
    ASSERT_TRUE(other.session.areas.table(kNotesArea, "test").lock_record(2));
    table(kNotesArea).go_to(2);
    areas().select(kSecondNotesArea);
    EXPECT_FALSE(ADD_REC(session_));
    EXPECT_EQ(table(kSecondNotesArea).record_count(), 0U);
    EXPECT_EQ(station_.counter("U_ID4"), 9);
    EXPECT_TRUE(lock_record_of(other.session, kSystemArea)) << "the counter is free";
}

TEST_F(Appends, TakeTheCounterOfTheRecordObject) {
    areas().select(kNotesArea);
    BufferedRecord note(session_, kNotesArea);
    areas().select(kUncountedArea);
    BufferedRecord name(session_, kNamesArea);
    ASSERT_TRUE(ADD_REC(session_, {.object = &name}));
    EXPECT_EQ(station_.text(kUncountedArea, "U_ID"), "XY00010");
    EXPECT_EQ(CAST(name.field("U_ID")), "XY00010");
    EXPECT_EQ(CAST(name.field("operator")), "JON");
    EXPECT_EQ(station_.last_entry(), "A01XY00010");

    areas().select(kNotesArea);
    ASSERT_TRUE(ADD_REC(session_, {.object = &note}));
    EXPECT_EQ(CAST(note.field("OPERATOR")), "   ") << "notes carry no mark";
    EXPECT_THROW(note.assign("NOSUCH", 1), EngineFault);

    areas().select(kUncountedArea);
    ASSERT_TRUE(ADD_REC(session_));
    EXPECT_EQ(station_.text(kUncountedArea, "U_ID"), "       ");
    EXPECT_TRUE(ADD_REC(session_, {.assign_identifier = false}));
    EXPECT_EQ(station_.last_entry(), "A04XY0000A");
}

TEST_F(Appends, IssueIdentifiersAlone) {
    std::string identifier = "kept";
    areas().select(kPlainArea);
    EXPECT_FALSE(NEXTUID(session_, identifier)) << "no field";
    areas().select(kNamesArea);
    station_.add({});
    station_.add({});
    const RecordNumber entries = table(kJournalArea).record_count();
    EXPECT_TRUE(NEXTUID(session_, identifier));
    EXPECT_EQ(identifier, "XY00010");
    EXPECT_EQ(station_.text(kNamesArea, "U_ID"), identifier);
    EXPECT_FALSE(table(kNamesArea).owns(2));
    EXPECT_FALSE(table(kSystemArea).owns(1));

    ASSERT_TRUE(REC_LOCK(session_) && lock_record_of(session_, kSystemArea));
    EXPECT_TRUE(NEXTUID(session_, identifier,
                        {.record_locked = true, .counter_locked = true, .table = kEventsArea}));
    EXPECT_EQ(identifier, "XY00001");
    EXPECT_TRUE(table(kNamesArea).owns(2) && table(kSystemArea).owns(1));
    EXPECT_EQ(table(kJournalArea).record_count(), entries) << "no stamp";
    EXPECT_FALSE(NEXTUID(session_, identifier, {.table = kUncountedArea})) << "no counter";
    EXPECT_FALSE(table(kSystemArea).owns(1));

    Station other(practice_);
    other.session.areas.select(kNamesArea);
    other.session.areas.table("test").go_to(1);
    ASSERT_TRUE(REC_LOCK(other.session));
    table(kNamesArea).go_to(1);
    EXPECT_FALSE(NEXTUID(session_, identifier)) << "the record is somebody else's";
    EXPECT_FALSE(table(kSystemArea).owns(1));
    EXPECT_EQ(identifier, "XY00001");
}

TEST_F(Appends, RecycleDeletedRecords) {
    areas().select(kNamesArea);
    station_.add({"AAAAAAA", "Old", Date::from_ymd("20000101"), "ANN"});
    station_.add({"BBBBBBB", "Kept"});
    delete_record(1);
    table(kNamesArea).set_order("ID");
    areas().engine().set_deleted_hidden(true);

    EXPECT_TRUE(APPENDBLANK(session_));
    EXPECT_EQ(table(kNamesArea).record_number(), 1U);
    EXPECT_FALSE(table(kNamesArea).deleted());
    EXPECT_TRUE(table(kNamesArea).owns(1));
    EXPECT_EQ(station_.text(kNamesArea, "LAST"), "        ");
    EXPECT_TRUE(areas().field(kNamesArea, "ENTRY").empty());
    EXPECT_EQ(station_.text(kNamesArea, "U_ID"), "XY00010");
    EXPECT_EQ(station_.last_entry(), "A01XY00010");
    EXPECT_EQ(areas().order_name(), "ID");

    areas().engine().set_deleted_hidden(false);
    EXPECT_TRUE(APPENDBLANK(session_)) << "nothing to recycle";
    EXPECT_EQ(table(kNamesArea).record_count(), 3U);
    EXPECT_TRUE(areas().engine().deleted_hidden());

    table(kNamesArea).unlock_all();
    delete_record(2);
    Station other(practice_);
    ASSERT_TRUE(other.session.areas.table(kNamesArea, "test").lock_record(2));
    EXPECT_TRUE(APPENDBLANK(session_)) << "the deleted one is somebody else's";
    EXPECT_EQ(table(kNamesArea).record_count(), 4U);

    areas().select(kPlainArea);
    areas().engine().set_deleted_hidden(false);
    EXPECT_TRUE(APPENDBLANK(session_)) << "no such order";
    EXPECT_EQ(table(kPlainArea).record_count(), 1U);
    EXPECT_TRUE(areas().engine().deleted_hidden());
}

TEST_F(Appends, OfTheSecondVariantOnlyAppend) {
    areas().select(kNamesArea);
    station_.add({});
    ASSERT_TRUE(REC_LOCK(session_));
    EXPECT_TRUE(second_variant::ADD_REC(session_));
    EXPECT_FALSE(table(kNamesArea).owns(1));
    EXPECT_TRUE(table(kNamesArea).owns(2));
    EXPECT_EQ(station_.text(kNamesArea, "U_ID"), "       ");
    EXPECT_EQ(table(kJournalArea).record_count(), 0U);
}

TEST_F(Appends, AreJournalledAsTheArgumentsSay) {
    const std::string stamp = RSDT(session_, Date::from_ymd("20031127"), 3600);
    areas().select(kNamesArea);
    station_.add({"CCCCCCC", "Ives"});
    EXPECT_TRUE(RSADD(session_, {.area = 123, .stamp = stamp, .identifier = "DDDDDDD"}));
    EXPECT_EQ(station_.last_entry(), "A23DDDDDDD");
    EXPECT_EQ(station_.text(kJournalArea, "CDT"), stamp);
    EXPECT_TRUE(RSADD(session_, {.identifier = "EEEEEEE", .table_code = "77"}));
    EXPECT_EQ(station_.last_entry(), "A77EEEEEEE");

    EXPECT_TRUE(RSDEL(session_, {.workstation = "ZZ", .code_area = 12}));
    EXPECT_EQ(station_.last_entry(), "D12CCCCCCC");
    EXPECT_EQ(station_.text(kJournalArea, "CDATA").substr(0, 2), "ZZ");
    EXPECT_TRUE(RSDEL(session_, {.code_area = 12}));
    EXPECT_EQ(table(kJournalArea).record_count(), 3U) << "noted once";
    EXPECT_TRUE(RSDEL(session_, {.remove = true, .code_area = 12}));
    EXPECT_TRUE(RSDEL(session_, {.remove = true, .code_area = 12}));
    EXPECT_EQ(table(kJournalArea).record_count(), 4U);
    EXPECT_FALSE(RSDEL(session_, {.identifier = " "}));
}

TEST_F(Appends, TellWhenAFieldChangedAndWhere) {
    const std::string never(4, '\0');
    const std::string stamp = RSDT(session_, Date::from_ymd("20031127"), 3600);
    areas().select(kNamesArea);
    station_.add({"CCCCCCC", "Ives"});
    ASSERT_TRUE(REC_LOCK(session_));
    std::string changer = "kept";
    EXPECT_EQ(RSDTOF(session_, "01", "CCCCCCC", 2, &changer), never) << "no entry";
    EXPECT_EQ(changer, "kept");
    EXPECT_TRUE(RSSET(session_, {.field_number = 2, .value = "Ives    ", .stamp = stamp}));
    EXPECT_EQ(table(kJournalArea).record_count(), 0U) << "the same value";
    EXPECT_TRUE(RSSET(session_, {.field_number = 2,
                                 .value = "Ives    ",
                                 .stamp = stamp,
                                 .workstation = "Q",
                                 .force = true}));
    EXPECT_EQ(RSDTOF(session_, "01", "CCCCCCC", 2, &changer), stamp);
    EXPECT_EQ(changer, "Q ");
    EXPECT_EQ(RSDTOF(session_, "01", "CCCCCCC", 3, &changer), never);
    EXPECT_EQ(changer, std::string(2, '\0'));
    EXPECT_EQ(RSDTOF(session_, "01", "CCCCCCC", 0), never);
    EXPECT_EQ(CDT2STR(session_, stamp, 1, "ignored", true), "11/27/03  1:00a");
}

TEST_F(Appends, LeaveTheCounterToOthersAfterAFault) {
    Station other(practice_);
    constexpr int kLastOfFiveDigits = 916132831;
    station_.set_counter("U_ID1", kLastOfFiveDigits);
    areas().select(kNamesArea);
    std::string identifier;
    EXPECT_THROW(static_cast<void>(ADD_REC(session_)), EngineFault);
    EXPECT_TRUE(other.session.areas.table(kSystemArea, "test").lock_record(1));
    other.session.areas.table(kSystemArea, "test").unlock_all();
    EXPECT_THROW(static_cast<void>(NEXTUID(session_, identifier)), EngineFault);
    EXPECT_TRUE(other.session.areas.table(kSystemArea, "test").lock_record(1));
    EXPECT_EQ(other.counter("U_ID1"), kLastOfFiveDigits);
}

TEST_F(Appends, OfABatchWaitForItsEnd) {
    Station other(practice_);
    areas().select(kNamesArea);
    station_.add({"CCCCCCC", "Ives"});
    ASSERT_TRUE(RSLOCK(session_));
    EXPECT_TRUE(RSDEL(session_));
    EXPECT_TRUE(RSDEL(session_, {.remove = true}));
    EXPECT_TRUE(RSDEL(session_)) << "the batch still holds the journal";
    EXPECT_FALSE(RSLOCK(other.session));
    EXPECT_TRUE(other.ui.notices.empty()) << "a batch is refused at once";
    EXPECT_FALSE(RSADD(other.session, {.identifier = "FFFFFFF"}));
    EXPECT_FALSE(RSUNLOCK(session_));
    EXPECT_TRUE(RSADD(other.session, {.identifier = "FFFFFFF"}));
}

}  // namespace
}  // namespace brenik
