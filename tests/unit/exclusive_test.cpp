// Exclusive use for maintenance, with another workstation that holds what is wanted.

#include <gtest/gtest.h>

#include <fstream>
#include <utility>

#include "data/close_all.h"
#include "data/exclusive.h"
#include "data/net_use.h"
#include "practice.h"

namespace brenik {
namespace {

class ExclusiveUse : public testing::Test {
  protected:
    static std::vector<fake::Column> columns(const char* tenth) {
        std::vector<fake::Column> result(10, {"SAME", 'C', 2});
        result.back().name = tenth;
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
    std::size_t take_boxes() { return std::exchange(mine_.ui.boxes, {}).size(); }

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

    areas().close();
    other_.open(kSystemArea, "LAWSYS");
    for (const bool was_open : {false, true}) {
        if (was_open) mine_.open(kSystemArea, "LAWSYS");
        EXPECT_FALSE(GET_EXCLUSIVE(mine_.session));
        EXPECT_EQ(take_boxes(), 1U);
        EXPECT_EQ(mine_.ui.waits, 0) << "a single attempt";
        EXPECT_EQ(areas().used(), was_open);
    }
}

TEST_F(ExclusiveUse, ClosesEverythingElseOrNothing) {
    const auto close = [this](bool exclusive, bool quiet = false) {
        mine_.open(kNamesArea, "LAW1");
        mine_.open(kSystemArea, "LAWSYS");
        return CLOSEMOST(mine_.session, exclusive, quiet);
    };
    for (const bool exclusive : {true, false}) {
        ran_.clear();
        EXPECT_TRUE(close(exclusive, !exclusive));
        EXPECT_EQ(ran_, exclusive ? " /CLOSEBRENIK" : "");
        EXPECT_TRUE(!areas().used(kNamesArea) && areas().used(kSystemArea));
        EXPECT_EQ(can_share_system_table(), !exclusive);
    }
    other_.open(kSystemArea, "LAWSYS");
    for (const bool shared_use : {true, false}) {
        (*mine_.session.variables.PUBLICVARS)[1] = shared_use;
        EXPECT_FALSE(close(true));
        EXPECT_TRUE(areas().used(kNamesArea));
        EXPECT_EQ(areas().used(kSystemArea), shared_use) << "opened again as the setting says";
        EXPECT_EQ(take_boxes(), 1U);
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

TEST_F(ExclusiveUse, ComparesTheTenthFields) {
    practice_.make("OTHER", columns("TENTHS"));
    mine_.open(30, "OTHER", "NEWSYS");
    areas().select(kNamesArea);
    EXPECT_TRUE(SAMELAXSYS(mine_.session));
    EXPECT_EQ(areas().current(), kNamesArea);
    EXPECT_EQ(areas().area_of("LAWSYS"), 0) << "opened only for the comparison";
    practice_.make("LAWSYS", columns("TENTH2"));
    EXPECT_FALSE(SAMELAXSYS(mine_.session));
}

TEST_F(ExclusiveUse, OpensBesideWhatIsOpen) {
    mine_.open(kNamesArea, "LAW1");
    EXPECT_TRUE(NET_USE(mine_.session, "lawsys", {.where = OpenIn::kNewArea}));
    EXPECT_EQ(areas().current(), 2);
    std::ofstream(practice_.path("BAD.DBF")) << "no table";
    areas().select(kNamesArea);
    EXPECT_FALSE(NET_USE(mine_.session, "bad", {.where = OpenIn::kNewArea}));
    EXPECT_TRUE(areas().used(kNamesArea) && areas().used(2)) << "a fault closes only its own area";
    EXPECT_EQ(mine_.ui.waits, 0) << "and is not tried again";
}

}  // namespace
}  // namespace brenik
