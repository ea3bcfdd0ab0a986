// Exclusive use for maintenance, with another workstation that holds what is wanted; the second
// variant of NET_USE; and what the waits cost in real time.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "BrenikDB/lookup.h"
#include "c_source/Data.h"
#include "data/companion.h"
#include "data/exclusive.h"
#include "data/net_use.h"
#include "environment.h"
#include "fwp/trace_log.h"
#include "practice.h"

namespace brenik {
namespace {

class Maintenance : public testing::Test {
  protected:
    static std::vector<fake::Column> columns(std::size_t count) {
        static constexpr const char* kNames[] = {"A", "B", "C", "D", "E",
                                                 "F", "G", "H", "I", "TENTH"};
        std::vector<fake::Column> result;
        for (std::size_t i = 0; i < count; ++i) result.push_back({kNames[i], 'C', 2});
        return result;
    }

    Maintenance() {
        practice_.make("LAWSYS", columns(10));
        practice_.make("LAW1", {{"LAST", 'C', 8}, {"FIRST", 'C', 8}}, {{"LAST", "LAST"}});
        mine_.session.companion = {.is_running = [] { return true; },
                                   .run = [this](const std::string& line) { ran_ += line; }};
    }

    WorkAreas& areas() { return mine_.session.areas; }
    bool can_share_system_table() {
        const bool shared =
            other_.engine.open(practice_.path("LAWSYS.DBF"), TableSharing::kShared) != nullptr;
        return shared;
    }

    fake::Practice practice_;
    fake::Workstation mine_{practice_};
    fake::Workstation other_{practice_};
    std::string ran_;
};

TEST_F(Maintenance, HasTheSystemTableWhenNobodyElseDoes) {
    mine_.open(kSystemArea, "LAWSYS");
    areas().select(kNamesArea);
    EXPECT_TRUE(GET_EXCLUSIVE(mine_.session));
    EXPECT_EQ(ran_, " /CLOSEBRENIK");
    EXPECT_EQ(areas().current(), kSystemArea);
    EXPECT_FALSE(can_share_system_table());
    EXPECT_TRUE(mine_.ui.boxes.empty());
}

TEST_F(Maintenance, GivesTheSystemTableBackWhenSomebodyElseUsesIt) {
    other_.open(kSystemArea, "LAWSYS");
    const std::string notice =
        "Sharing Violation: Warning\r\nThis operation must have exclusive control of files and "
        "someone else is using Brenik.\r\nPlease have them exit Brenik and Retry";
    for (const bool was_open : {true, false}) {
        mine_.ui.boxes.clear();
        if (was_open) mine_.open(kSystemArea, "LAWSYS");
        if (!was_open) areas().close();
        EXPECT_FALSE(GET_EXCLUSIVE(mine_.session));
        EXPECT_EQ(mine_.ui.boxes, std::vector<std::string>{notice});
        EXPECT_EQ(mine_.ui.waits, 0) << "a single attempt";
        EXPECT_EQ(areas().used(), was_open);
        EXPECT_EQ(areas().alias(), was_open ? "LAWSYS" : "");
    }
}

TEST_F(Maintenance, ClosesEverythingElse) {
    for (const bool exclusive : {true, false}) {
        mine_.open(kNamesArea, "LAW1");
        mine_.open(kSystemArea, "LAWSYS");
        ran_.clear();
        EXPECT_TRUE(CLOSEMOST(mine_.session, exclusive, !exclusive));
        EXPECT_EQ(ran_, exclusive ? " /CLOSEBRENIK" : "");
        EXPECT_FALSE(areas().used(kNamesArea));
        EXPECT_TRUE(areas().used(kSystemArea));
        EXPECT_EQ(areas().current(), kSystemArea);
        EXPECT_EQ(can_share_system_table(), !exclusive);
    }
}

TEST_F(Maintenance, ClosesNothingWhileSomebodyElseUsesTheSystemTable) {
    other_.open(kSystemArea, "LAWSYS");
    for (const bool shared_use : {true, false}) {
        mine_.open(kNamesArea, "LAW1");
        mine_.open(kSystemArea, "LAWSYS");
        mine_.ui.boxes.clear();
        (*mine_.session.variables.PUBLICVARS)[1] = shared_use;
        EXPECT_FALSE(CLOSEMOST(mine_.session));
        EXPECT_TRUE(areas().used(kNamesArea));
        EXPECT_EQ(areas().used(kSystemArea), shared_use) << "opened again as the setting says";
        EXPECT_EQ(mine_.ui.boxes,
                  std::vector<std::string>{": Unable to open LAWSYS.DBF exclusively.\r\n"
                                           "Someone else on the network is in LAW."});
    }
    other_.session.areas.close();
    other_.open(kSystemArea, "LAWSYS", {}, TableSharing::kExclusive);
    mine_.ui.boxes.clear();
    EXPECT_FALSE(CLOSEMOST(mine_.session, false));
    EXPECT_FALSE(areas().used(kNamesArea)) << "closed before the system table was missed";
    EXPECT_EQ(mine_.ui.boxes, std::vector<std::string>{": Unable to re-open LAWSYS.DBF"});
}

TEST_F(Maintenance, ComparesTheTenthFields) {
    practice_.make("SAME", columns(10));
    practice_.make("SHORT", columns(9));
    practice_.make("LONGER", [] {
        auto longer = columns(10);
        longer.back().name = "TENTHS";
        return longer;
    }());
    const struct {
        const char* file;
        bool same;
    } cases[] = {{"SAME", true}, {"SHORT", false}, {"LONGER", true}};
    for (const auto& c : cases) {
        mine_.open(30, c.file, "NEWSYS");
        areas().select(kNamesArea);
        EXPECT_EQ(SAMELAXSYS(mine_.session), c.same) << c.file;
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
    EXPECT_EQ(mine_.ui.boxes, std::vector<std::string>{": Unable to open Lawsys.dbf."});
}

TEST_F(Maintenance, OpensBesideWhatIsOpen) {
    mine_.open(kNamesArea, "LAW1");
    EXPECT_TRUE(NET_USE(mine_.session, "lawsys", {.where = OpenIn::kNewArea}));
    EXPECT_EQ(areas().current(), 2);
    std::ofstream(practice_.path("BAD.DBF")) << "no table";
    areas().select(kNamesArea);
    EXPECT_FALSE(NET_USE(mine_.session, "bad", {.where = OpenIn::kNewArea}));
    EXPECT_TRUE(areas().used(kNamesArea) && areas().used(2)) << "a fault closes only its own area";
}

TEST_F(Maintenance, OpensInTheOlderWay) {
    areas().select(kNamesArea);
    EXPECT_TRUE(second_variant::NET_USE(mine_.session, "law1")) << "in the default folder";
    const std::string path = practice_.path("LAW1.DBF");
    EXPECT_TRUE(second_variant::NET_USE(mine_.session, path, {.attach_index = true}));
    EXPECT_EQ(areas().table("test").order_count(), 1U);
    other_.open(kNamesArea, "LAW1");
    EXPECT_FALSE(second_variant::NET_USE(mine_.session, path, {.exclusive = true, .seconds = 2}));
    EXPECT_EQ(mine_.ui.waits, 0) << "the cursor stays as it is";
}

TEST_F(Maintenance, NamesARecordObject) {
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

TEST_F(Maintenance, TracesTheCallersOnlyWhenAsked) {
    const std::string path = practice_.path("Trace.Log");
    std::ofstream{path};
    const CallSite host{"Host", 7};
    const CallSite start{"StartUp", 123456, &host};
    const auto here = std::source_location::current();
    TRACELOG(mine_.session, "Net_Use", {"x", Value()}, here, &start);
    TRACELOG(mine_.session, "Net_Use", {Value()}, here, &start);
    std::ostringstream log;
    log << std::ifstream(path, std::ios::binary).rdbuf();
    const std::string heading = "[NET_USE] (" +
                                std::string(5 - std::to_string(here.line()).size(), ' ') +
                                std::to_string(here.line()) + ") Called from: \r\n";
    EXPECT_EQ(log.str(), heading + std::string(30, ' ') + "STARTUP(*****)\r\n" +
                             std::string(30, ' ') + "HOST(    7)\r\n>>>x<<<\r\n>>>NIL<<<\r\n\r\n" +
                             heading + ">>>NIL<<<\r\n\r\n");
}

TEST_F(Maintenance, WaitsInRealTime) {
    set_variable("BRENIK_UI", "none");
    local::LocalEngine engine;
    const auto ui = platform::make_user_interface();
    Session real{engine, platform::system_clock(), *ui};
    real.areas.open(practice_.path("LAW1.DBF"), {}, TableSharing::kShared);
    real.areas.append_blank(false);
    other_.open(kNamesArea, "LAW1").go_top();
    const auto seconds_of = [](auto action) {
        const auto start = std::chrono::steady_clock::now();
        action();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    Session waiting{other_.engine, platform::system_clock(), *ui};
    waiting.areas.open(practice_.path("LAW1.DBF"), {}, TableSharing::kShared);
    waiting.areas.table("test").go_to(1);
    EXPECT_NEAR(seconds_of([&] { EXPECT_FALSE(REC_LOCK(waiting, 0.5)); }), 0.5, 0.2);
    EXPECT_NEAR(seconds_of([&] {
                    EXPECT_FALSE(NET_USE(waiting, practice_.path("LAW1.DBF"),
                                         {.exclusive = true, .seconds = 1}));
                }),
                1, 0.3);
}

}  // namespace
}  // namespace brenik
