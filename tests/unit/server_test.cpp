// Which server a session uses, and which engine: with engines that answer as the test says.

#include <gtest/gtest.h>

#include <deque>

#include "BrenikDB/start_up.h"
#include "data/ads.h"
#include "data/net_use.h"
#include "file_bytes.h"
#include "practice.h"
#include "refused.h"

namespace brenik {
namespace {

using fake::Rows;
using Numbers = std::vector<int>;

// Records what it is asked to do. Answers with the numbers given, then with 0.
class ScriptedEngine : public local::LocalEngine {
  public:
    void begin_call() override { calls += "("; }
    void end_call() noexcept override { calls += ")"; }
    int set_server_type(int type) override {
        calls += std::to_string(type);
        return next(statuses);
    }
    int server_loaded(const std::string&) override { return next(loaded); }
    int close_all_tables() override {
        calls += "closed";
        return LocalEngine::close_all_tables();
    }

    std::deque<int> statuses;
    std::deque<int> loaded;
    std::string calls;

  private:
    static int next(std::deque<int>& answers) {
        if (answers.empty()) return 0;
        const int first = answers.front();
        answers.pop_front();
        return first;
    }
};

TEST(Server, IsCheckedStepByStep) {
    const fake::Practice practice;
    const std::string folder = practice.data_path();
    const std::string note =
        ": Note: The remote database server is not yet installed or cannot access this "
        "directory\r\n  " +
        folder +
        "\r\n\r\nPlease verify that it is installed and loaded on your server.\r\n"
        "For now, you will be using the Local Server.\r\n\r\n";
    const std::string none = ": Error: No Data Server is loaded!\r\n" + folder + "\r\n";
    const std::string dir = "\r\nDir = " + folder + "\r\n";
    using Texts = std::vector<std::string>;
    const Rows<int, Numbers, Numbers, int, std::string, Texts, std::string> cases = {
        {2, {0}, {2}, 2, "2", {}, ""},
        {2, {7}, {2}, 2, "2", {}, ""},
        {2, {0}, {1, 1}, 1, "211", {note}, "JON  Server not found 1  nConnect: 0" + dir},
        {2,
         {42, 0, 43},
         {0, 1},
         1,
         "211",
         {note + "ADS Error: 42", ": ADS Error: 43"},
         "JON  Server not found 0  nConnect: 42" + dir},
        {2,
         {42, 0, 43},
         {0, 0},
         0,
         "211",
         {note + "ADS Error: 42", none + "        43,           0"},
         "JON  Server not found 0  nConnect: 42" + dir},
        {1, {0, 5}, {0, 2}, 2, "11", {": ADS Error: 5"}, ""},
        {1, {0, 0}, {1, 0}, 0, "11", {none + "         0,           0"}, ""},
        {0, {0}, {0}, 0, "0", {}, ""}};
    const std::string log = practice.path("lawtemp/DataServer.log");
    for (const auto& [wanted, statuses, loaded, answer, types, boxes, lines] : cases) {
        fake::Workstation station(practice);
        ScriptedEngine engine;
        engine.statuses.assign(statuses.begin(), statuses.end());
        engine.loaded.assign(loaded.begin(), loaded.end());
        station.session.areas.set_engine(engine);
        std::filesystem::remove(log);
        EXPECT_EQ(CHECKSERVER(station.session, wanted), answer);
        EXPECT_EQ(engine.calls, types);
        EXPECT_EQ(station.ui.boxes, boxes);
        EXPECT_EQ(station.ui.waits, wanted == 2 ? 1 : 0);
        EXPECT_EQ(bytes_of(log), lines);
    }
}

// A call of the host is one for both engines, except while a message is shown. Each engine's tables
// are closed before the other one is used. An engine that was used before is used again.
TEST(Server, ChangesWithTheEngineOfAStart) {
    const fake::Practice practice;
    std::vector<ScriptedEngine*> made;
    EngineChoice choice;
    choice.make = [&made] {
        auto engine = std::make_unique<ScriptedEngine>();
        made.push_back(engine.get());
        return engine;
    };
    fake::Clock clock;
    fake::UserInterface ui;
    EngineSettings asked;
    Session session(
        [&](const EngineSettings& settings) {
            asked = settings;
            return choice;
        },
        clock, ui);
    const auto start = [&](EngineKind kind) {
        choice.kind = kind;
        const WorkAreas::HostCall call(session.areas);
        return StartUp(session, practice.data_path(), false);
    };
    std::ofstream(practice.path("LAWSYS.INI")) << "[main]\nengine=Advantage\nnServerType=2.0\n";
    for (const EngineKind kind :
         {EngineKind::kEmbedded, EngineKind::kClient, EngineKind::kClient, EngineKind::kEmbedded}) {
        EXPECT_EQ(start(kind), 1);
        EXPECT_EQ(asked.engine + "," + std::to_string(asked.server_type), "Advantage,2.000000");
    }
    ASSERT_EQ(made.size(), 2U);
    EXPECT_EQ(made[0]->calls, "(12)(11)(0)(closed)(12)(11)(0)");
    EXPECT_EQ(made[1]->calls, "(12)(11)(0)(12)(11)(0)(closed)");
    EXPECT_EQ(ADSSETSERVERTYPE(session, std::nullopt), 999999);
    EXPECT_TRUE(refused([&] { ADSREFRESHRECORD(session); }, FaultCode::kEmptyWorkArea));
    session.areas.require_driver("ads");
    EXPECT_TRUE(
        refused([&] { session.areas.require_driver("NTX"); }, FaultCode::kUnknownName, "NTX"));
}

}  // namespace
}  // namespace brenik
