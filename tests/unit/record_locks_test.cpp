// How often and how long the library waits for what others hold, and what the exports hand back.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "BrenikDB/process_session.h"
#include "BrenikDB/registry.h"
#include "RSData/journal.h"
#include "brenikdb.h"
#include "c_source/retries.h"
#include "data/add_rec.h"
#include "data/net_use.h"
#include "fake_engine.h"

namespace brenik {
namespace {

using fake::Rows;

class Retries : public testing::Test {
  protected:
    Retries() {
        session_.areas.open("names", "Names", TableSharing::kShared);
        engine_.opened.clear();
    }

    fake::Script& names() { return engine_.tables["names"]; }
    // Opens a table with its index, after so many refusals.
    template <class Routine>
    bool open(Routine routine, const std::string& path, int refusals, const fake::Script& script) {
        engine_.refusals = refusals;
        engine_.opened.clear();
        engine_.tables[path] = script;
        ui_ = {};
        return routine(session_, path, NetUse{.attach_index = true});
    }

    fake::Engine engine_;
    fake::Clock clock_;
    fake::UserInterface ui_;
    Session session_{engine_, clock_, ui_};
};

TEST_F(Retries, FollowTheSecondsGiven) {
    using Attempt = bool (*)(Session&, double);
    const Attempt append = [](Session& session, double seconds) {
        return ADD_REC(session, {.seconds = seconds});
    };
    const Rows<double, int, bool, int, std::size_t> cases = {
        {5, 0, true, 1, 0},     {5, 1, true, 2, 0},      {5, 3, true, 4, 2},
        {5, 10, true, 11, 9},   {5, -1, false, 11, 10},  {-1, -1, false, 1, 0},
        {1.2, -1, false, 4, 3}, {0, 200, true, 201, 199}};
    for (const Attempt attempt : {Attempt{REC_LOCK}, Attempt{FIL_LOCK}, append}) {
        for (const auto& [seconds, refusals, done, attempts, notices] : cases) {
            if (attempt == append && seconds == 0) continue;
            names() = {.refusals = refusals};
            ui_ = {};
            EXPECT_EQ(attempt(session_, seconds), done) << seconds;
            EXPECT_EQ(names().attempts, attempts) << seconds;
            EXPECT_EQ(ui_.notices.size(), notices) << seconds;
            EXPECT_EQ(ui_.waited_ms, 500 * static_cast<int>(notices));
        }
    }
    names() = {.refusals = -1};
    EXPECT_FALSE(append(session_, 0));
    EXPECT_EQ(names().attempts, 1) << "an append without time is not tried again";
    ui_ = {};
    for (const Attempt attempt : {Attempt{REC_LOCK}, Attempt{FIL_LOCK}, append}) {
        EXPECT_FALSE(attempt(session_, 0.5));
    }
    const std::vector<std::string> expected{
        "Record Locking: Names ( record 7) is locked by another user or program. Retrying...",
        "File Locking: Names is locked by another user. Retrying...",
        "Append record: Names is locked by another user. Retrying..."};
    EXPECT_EQ(ui_.notices, expected);
}

TEST_F(Retries, OfAnOpenAreASecondApart) {
    const Rows<double, int, bool, std::size_t, int> cases = {
        {5, -1, false, 6, 5}, {-1, -1, false, 1, 0}, {5, 3, true, 4, 2}, {0, 40, true, 41, 39}};
    for (const auto& [seconds, refusals, opened, opens, waits] : cases) {
        engine_.refusals = refusals;
        engine_.opened.clear();
        ui_ = {};
        const double start = clock_.now_;
        EXPECT_EQ(NET_USE(session_, "x:law1  ", {.seconds = seconds}), opened);
        EXPECT_EQ(engine_.opened, std::vector<std::string>(opens, "x:law1"));
        EXPECT_EQ(ui_.waits, waits);
        EXPECT_NEAR(clock_.now_ - start, waits, 0.1 + 0.2 * waits);
        EXPECT_EQ(session_.areas.used(), opened);
    }
}

TEST_F(Retries, OfAnOpenAttachTheIndexInTheirOwnWay) {
    using Texts = std::vector<std::string>;
    const std::string table = testing::TempDir() + "orders_test.dbf";
    const std::string index = testing::TempDir() + "orders_test.CDX";
    std::ofstream(index) << "x";
    // The second variant asks whether there is an order, of which these tables have none.
    const Rows<int, bool, Texts, Texts> cases = {{0, false, {index}, {index}},
                                                 {0, true, {}, {index}},
                                                 {2, false, {table}, {table}},
                                                 {2, true, {table}, {table}}};
    for (const auto& [refusals, automatic, added, added_by_second] : cases) {
        EXPECT_TRUE(open(NET_USE, table, refusals, {.automatic_orders = automatic}));
        EXPECT_EQ(engine_.tables[table].orders_added, added) << refusals << automatic;
        const auto second = second_variant::NET_USE;
        EXPECT_TRUE(open(second, table, refusals, {.automatic_orders = automatic}));
        EXPECT_EQ(engine_.tables[table].orders_added, added_by_second) << refusals << automatic;
        EXPECT_EQ(ui_.waits, 0) << "the second variant leaves the cursor as it is";
    }
    // An index that stays held is as if the table were; what is damaged is not tried again.
    const auto damaged = []() -> bool { throw EngineFault(FaultCode::kDamagedFile, "", "bad"); };
    const auto tries = [&](const std::function<bool()>& attach) {
        EXPECT_FALSE(open(NET_USE, table, 0, {.attach = attach}));
        EXPECT_TRUE(session_.areas.network_error() && !session_.areas.used());
        return engine_.opened.size();
    };
    EXPECT_EQ(tries([] { return false; }), 6U);
    EXPECT_EQ(tries(damaged), 1U);
    engine_.damaged = true;
    EXPECT_EQ(tries({}), 1U);
    std::remove(index.c_str());
}

// What stands in for the process's session and for whichever operation is called.
Session* g_session = nullptr;
Operation g_operation = nullptr;

class Exports : public Retries {
  protected:
    Exports() { g_session = &session_; }
};

TEST_F(Exports, ReadAndWriteTheHostsIntegerButNoTextOfAMissingOperation) {
    g_operation = nullptr;
    int number = 5;
    EXPECT_EQ(BrenikEditBegin(3, 1, &number), 11U);
    EXPECT_EQ(number, 3);
    char text[10] = "ABCDEFG";
    EXPECT_EQ(BrenikAddEnd(3, text), 11U);
    EXPECT_EQ(BrenikGetU_ID(1, "key", text), 11U);
    EXPECT_EQ(BrenikGetMyFirm(text), 11U);
    EXPECT_STREQ(text, "ABCDEFG");
}

TEST_F(Exports, StopFaultsAndReleaseWhatTheCallHeld) {
    names() = {.fields = {{"ID", 'C', 7, 0}}, .record = {""}, .put_fails = true};
    g_operation = [](Session& session, std::span<Value>) {
        Table& names = session.areas.table("test");
        static_cast<void>(names.lock_record(1));
        names.field_put(1, "x");
        return Value(0);
    };
    EXPECT_EQ(BrenikEditEnd(1, 0), 14U);
    EXPECT_FALSE(names().locked);
    EXPECT_TRUE(names().abandoned);
    g_operation = [](Session&, std::span<Value>) -> Value { throw std::bad_alloc(); };
    EXPECT_EQ(BrenikShutDown(), 14U);
    EXPECT_EQ(BrenikInitialize(nullptr, 0, 0), 14U);
}

}  // namespace

// In place of the library's own.
Session& process_session() { return *g_session; }
Operation find_operation(std::string_view) { return g_operation; }

}  // namespace brenik
