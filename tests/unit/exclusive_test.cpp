// Exclusive use for maintenance, with another workstation that holds what is wanted.

#include <gtest/gtest.h>

#include <fstream>
#include <utility>

#include "BrenikDB/lookup.h"
#include "c_source/retries.h"
#include "data/close_all.h"
#include "data/companion.h"
#include "data/exclusive.h"
#include "data/net_use.h"
#include "file_bytes.h"
#include "fwp/trace_log.h"
#include "practice.h"

namespace brenik {
namespace {

using Boxes = std::vector<std::string>;

class ExclusiveUse : public testing::Test {
  protected:
    // Nine fields, and perhaps a tenth.
    static std::vector<fake::Column> columns(const char* tenth) {
        std::vector<fake::Column> result(9, {"SAME", 'C', 2});
        if (tenth != nullptr) result.push_back({tenth, 'C', 2});
        return result;
    }

    ExclusiveUse() {
        practice_.make("LAWSYS", columns("TENTH"));
        practice_.make("LAW1", {{"LAST", 'C', 8}, {"FIRST", 'C', 8}}, {{"LAST", "LAST"}});
        mine_.session.companion = {.is_running = [] { return true; },
                                   .run = [this](const std::string& line) { ran_ += line; }};
    }

    WorkAreas& areas() { return mine_.session.areas; }
    bool can_share_system_table() {
        return fake::open(other_.engine, practice_.path("LAWSYS.DBF")) != nullptr;
    }
    Boxes take_boxes() { return std::exchange(mine_.ui.boxes, {}); }

    fake::Practice practice_;
    fake::Workstation mine_{practice_};
    fake::Workstation other_{practice_};
    std::string ran_;
};

TEST_F(ExclusiveUse, HasTheSystemTableOrGivesItBack) {
    mine_.open(kSystemArea, "LAWSYS");
    areas().select(kNamesArea);
    EXPECT_TRUE(GET_EXCLUSIVE(mine_.session));
    EXPECT_EQ(ran_, " /CLOSEBRENIK");
    EXPECT_EQ(areas().current(), kSystemArea);
    EXPECT_FALSE(can_share_system_table());
    EXPECT_EQ(take_boxes(), Boxes{});

    areas().close();
    other_.open(kSystemArea, "LAWSYS");
    const Boxes warning{
        "Sharing Violation: Warning\r\nThis operation must have exclusive control of files and "
        "someone else is using Brenik.\r\nPlease have them exit Brenik and Retry"};
    for (const bool was_open : {false, true}) {
        if (was_open) mine_.open(kSystemArea, "LAWSYS");
        EXPECT_FALSE(GET_EXCLUSIVE(mine_.session));
        EXPECT_EQ(take_boxes(), warning);
        EXPECT_EQ(mine_.ui.waits, 0) << "a single attempt";
        EXPECT_EQ(areas().used(), was_open);
        EXPECT_EQ(areas().alias(), was_open ? "LAWSYS" : "");
    }
}

TEST_F(ExclusiveUse, ClosesEverythingElse) {
    for (const bool exclusive : {true, false}) {
        mine_.open(kNamesArea, "LAW1");
        mine_.open(kSystemArea, "LAWSYS");
        ran_.clear();
        EXPECT_TRUE(CLOSEMOST(mine_.session, exclusive, !exclusive));
        EXPECT_EQ(ran_, exclusive ? " /CLOSEBRENIK" : "");
        EXPECT_TRUE(!areas().used(kNamesArea) && areas().used(kSystemArea));
        EXPECT_EQ(areas().current(), kSystemArea);
        EXPECT_EQ(can_share_system_table(), !exclusive);
    }
}

TEST_F(ExclusiveUse, ClosesTheRestWhereATableFails) {
    practice_.make("ONE", {{"K", 'C', 1}}, {{.name = "K", .key = "K", .candidate = true}},
                   {{"A"}, {"B"}});
    mine_.open(kNamesArea, "LAW1");
    mine_.add({"Doe"});
    for (const int area : {30, kNamesArea, 31}) {
        brenik::Table& table = mine_.open(area, area == kNamesArea ? "LAW1" : "ONE");
        ASSERT_TRUE(fake::take(table, area == 31 ? 1 : table.record_count()));
        table.field_put(1, area == 31 ? "B" : "A");
    }
    EXPECT_EQ(mine_.engine.write_all_records(), static_cast<int>(FaultCode::kDuplicateKey));
    EXPECT_NE(mine_.engine.last_error().find("ONE"), std::string::npos);
    CLOSEALL(mine_.session);
    EXPECT_FALSE(areas().used(30) || areas().used(kNamesArea) || areas().used(31));
    EXPECT_TRUE(fake::open(areas().engine(), areas().path_of("ONE"))->lock_table());
    other_.open(kNamesArea, "LAW1").go_to(1);
    EXPECT_EQ(other_.text(kNamesArea, "LAST"), "A       ") << "written all the same";
}

TEST_F(ExclusiveUse, ClosesNothingWhileSomebodyElseUsesTheSystemTable) {
    other_.open(kSystemArea, "LAWSYS");
    for (const bool shared_use : {true, false}) {
        mine_.open(kNamesArea, "LAW1");
        mine_.open(kSystemArea, "LAWSYS");
        (*mine_.session.variables.PUBLICVARS)[1] = shared_use;
        EXPECT_FALSE(CLOSEMOST(mine_.session));
        EXPECT_TRUE(areas().used(kNamesArea));
        EXPECT_EQ(areas().used(kSystemArea), shared_use) << "opened again as the setting says";
        EXPECT_EQ(take_boxes(), Boxes{": Unable to open LAWSYS.DBF exclusively.\r\n"
                                      "Someone else on the network is in LAW."});
    }
    other_.session.areas.close();
    other_.open(kSystemArea, "LAWSYS", {}, TableSharing::kExclusive);
    EXPECT_FALSE(CLOSEMOST(mine_.session, false));
    EXPECT_FALSE(areas().used(kNamesArea)) << "closed before the system table was missed";
    EXPECT_EQ(take_boxes(), Boxes{": Unable to re-open LAWSYS.DBF"});
}

TEST_F(ExclusiveUse, ComparesTheTenthFields) {
    for (const char* tenth : {static_cast<const char*>(nullptr), "TENTHS", "TENTH"}) {
        areas().select(30);
        areas().close();
        practice_.make("OTHER", columns(tenth));
        mine_.open(30, "OTHER", "NEWSYS");
        areas().select(kNamesArea);
        EXPECT_EQ(SAMELAXSYS(mine_.session), tenth != nullptr);
        EXPECT_EQ(areas().current(), kNamesArea);
        EXPECT_EQ(areas().area_of("LAWSYS"), 0) << "opened only for the comparison";
    }
    mine_.open(kSystemArea, "LAWSYS");
    EXPECT_TRUE(SAMELAXSYS(mine_.session));
    EXPECT_TRUE(areas().used(kSystemArea));
    areas().close();
    other_.open(kSystemArea, "LAWSYS", {}, TableSharing::kExclusive);
    EXPECT_FALSE(SAMELAXSYS(mine_.session));
    EXPECT_EQ(areas().current(), kSystemArea);
    EXPECT_EQ(take_boxes(), Boxes{": Unable to open Lawsys.dbf."});
}

TEST_F(ExclusiveUse, OpensBesideWhatIsOpen) {
    mine_.open(kNamesArea, "LAW1");
    EXPECT_TRUE(NET_USE(mine_.session, "lawsys", {.where = OpenIn::kNewArea}));
    EXPECT_EQ(areas().current(), 2);
    std::ofstream(practice_.path("BAD.DBF")) << "no table";
    areas().select(kNamesArea);
    EXPECT_FALSE(NET_USE(mine_.session, "bad", {.where = OpenIn::kNewArea}));
    EXPECT_TRUE(areas().used(kNamesArea) && areas().used(2)) << "a fault closes only its own area";
}

TEST_F(ExclusiveUse, NamesARecordObject) {
    mine_.open(kNamesArea, "LAW1", "Names");
    mine_.add({"Doe", "Jane"});
    BufferedRecord record(mine_.session, kNamesArea);
    EXPECT_EQ(LASTFIRST(record, 12), "Doe, Jane   ");
    EXPECT_EQ(LASTFIRST(mine_.session), LASTFIRST(record));
    record.assign("FIRST", "");
    EXPECT_EQ(LASTFIRST(record, 2), "Do");
    areas().table("test").go_to(0);
    EXPECT_EQ(LASTFIRST(BufferedRecord(mine_.session, kNamesArea), 4), "    ");
}

TEST_F(ExclusiveUse, TracesTheCallersOnlyWhenAsked) {
    const std::string path = practice_.path("Trace.Log");
    std::ofstream{path};
    const CallSite host{"Host", 7};
    const CallSite start{"StartUp", 123456, &host};
    TRACELOG(mine_.session, "Net_Use", {"x", Value()}, 4711, &start);
    TRACELOG(mine_.session, "Net_Use", {Value()}, 4711, &start);
    const std::string heading = "[NET_USE] ( 4711) Called from: \r\n", margin(30, ' ');
    EXPECT_EQ(bytes_of(path), heading + margin + "STARTUP(*****)\r\n" + margin + "HOST(    7)\r\n" +
                                  ">>>x<<<\r\n>>>NIL<<<\r\n\r\n" + heading + ">>>NIL<<<\r\n\r\n");
}

}  // namespace
}  // namespace brenik
