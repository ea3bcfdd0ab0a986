// How often and how long the library waits for what others hold, and what the exports hand back.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "BrenikDB/process_session.h"
#include "BrenikDB/registry.h"
#include "RSData/journal.h"
#include "brenikdb.h"
#include "c_source/Data.h"
#include "data/add_rec.h"
#include "data/net_use.h"
#include "fake_engine.h"

namespace brenik {
namespace {

class Retries : public testing::Test {
  protected:
    Retries() {
        session_.areas.open("names", "Names", TableSharing::kShared);
        engine_.opened.clear();
    }

    fake::Script& names() { return engine_.tables["names"]; }

    fake::Engine engine_;
    fake::Clock clock_;
    fake::UserInterface ui_;
    Session session_{engine_, clock_, ui_};
};

TEST_F(Retries, FollowTheSecondsGiven) {
    using Attempt = bool (*)(Session&, double);
    const Attempt locks[] = {REC_LOCK, FIL_LOCK};
    const Attempt append = [](Session& session, double seconds) {
        return ADD_REC(session, {.seconds = seconds});
    };
    const struct {
        double seconds;
        int refusals;
        bool done;
        int attempts;
        std::size_t notices;
        bool append = false;
    } cases[] = {
        {5, 0, true, 1, 0},         {5, 1, true, 2, 0},           {5, 10, true, 11, 9},
        {5, -1, false, 11, 10},     {-1, -1, false, 1, 0},        {1.2, -1, false, 4, 3},
        {0, 200, true, 201, 199},   {5, -1, false, 11, 10, true}, {5, 3, true, 4, 2, true},
        {0, -1, false, 1, 0, true},
    };
    for (const auto& c : cases) {
        for (const Attempt lock : locks) {
            names() = {.refusals = c.refusals};
            ui_ = {};
            EXPECT_EQ((c.append ? append : lock)(session_, c.seconds), c.done) << c.seconds;
            EXPECT_EQ(names().attempts, c.attempts) << c.seconds;
            EXPECT_EQ(ui_.notices.size(), c.notices) << c.seconds;
            EXPECT_TRUE(c.append || ui_.waited_ms == 500 * static_cast<int>(c.notices));
        }
    }
}

TEST_F(Retries, NameTheTableInTheirNotice) {
    names().refusals = -1;
    EXPECT_FALSE(REC_LOCK(session_, 0.5));
    EXPECT_FALSE(FIL_LOCK(session_, 0.5));
    EXPECT_FALSE(ADD_REC(session_, {.seconds = 0.5}));
    const std::vector<std::string> expected{
        "Record Locking: Names ( record 7) is locked by another user or program. Retrying...",
        "File Locking: Names is locked by another user. Retrying...",
        "Append record: Names is locked by another user. Retrying...",
    };
    EXPECT_EQ(ui_.notices, expected);
}

TEST_F(Retries, OfALockedCounterLeaveTheTableAlone) {
    names() = {.fields = {{"U_ID", 'C', 7, 0}}, .record = {"       "}};
    engine_.tables["system"].refusals = -1;
    session_.areas.select(kSystemArea);
    session_.areas.open("system", {}, TableSharing::kShared);
    session_.areas.select(kNamesArea);
    EXPECT_FALSE(ADD_REC(session_));
    EXPECT_EQ(engine_.tables["system"].attempts, 11);
    EXPECT_EQ(names().attempts, 0);
    EXPECT_EQ(session_.areas.current(), kNamesArea);
}

TEST_F(Retries, OfAnOpenAreASecondApart) {
    const struct {
        double seconds;
        int refusals;
        bool opened;
        std::size_t opens;
        int waits;
    } cases[] = {
        {5, -1, false, 6, 5}, {-1, -1, false, 1, 0}, {5, 3, true, 4, 2}, {0, 40, true, 41, 39}};
    for (const auto& c : cases) {
        engine_.refusals = c.refusals;
        engine_.opened.clear();
        ui_ = {};
        const double start = clock_.now_;
        EXPECT_EQ(NET_USE(session_, "x:law1  ", {.seconds = c.seconds}), c.opened);
        EXPECT_EQ(engine_.opened.size(), c.opens);
        EXPECT_EQ(engine_.opened.back(), "x:law1");
        EXPECT_EQ(ui_.waits, c.waits);
        EXPECT_NEAR(clock_.now_ - start, c.waits, 0.1 + 0.2 * c.waits);
        EXPECT_EQ(session_.areas.used(), c.opened);
    }
}

TEST_F(Retries, DoNotFollowADamagedFile) {
    engine_.damaged = true;
    EXPECT_FALSE(NET_USE(session_, "x:law1"));
    EXPECT_EQ(engine_.opened.size(), 1U);
    EXPECT_TRUE(session_.areas.network_error() && !session_.areas.used());
}

TEST_F(Retries, OfAnOpenAttachTheIndexInTheirOwnWay) {
    const std::string table = testing::TempDir() + "orders_test.dbf";
    const std::string index = testing::TempDir() + "orders_test.CDX";
    std::ofstream(index) << "x";
    const struct {
        int refusals;
        bool automatic;
        std::vector<std::string> added;
    } cases[] = {{0, false, {index}}, {0, true, {}}, {2, false, {table}}, {2, true, {table}}};
    for (const auto& c : cases) {
        engine_.refusals = c.refusals;
        engine_.opened.clear();
        engine_.tables[table] = {.automatic_orders = c.automatic};
        EXPECT_TRUE(NET_USE(session_, table, {.attach_index = true}));
        EXPECT_EQ(engine_.tables[table].orders_added, c.added) << c.refusals << c.automatic;
    }
    // The second variant asks whether there is an order instead, of which these tables have none.
    for (const auto& [refusals, added] : {std::pair(0, index), std::pair(2, table)}) {
        engine_.refusals = refusals;
        engine_.opened.clear();
        engine_.tables[table] = {.automatic_orders = true};
        ui_ = {};
        EXPECT_TRUE(second_variant::NET_USE(session_, table, {.attach_index = true}));
        EXPECT_EQ(engine_.tables[table].orders_added, std::vector<std::string>{added});
        EXPECT_EQ(ui_.waits, 0);
    }
    // An index that stays held is as if the table were; a damaged one is not tried again.
    engine_.refusals = 0;
    const auto damaged = []() -> bool { throw EngineFault(FaultCode::kDamagedFile, "", "bad"); };
    for (const bool held : {true, false}) {
        engine_.opened.clear();
        engine_.tables[table].attach = held ? [] { return false; } : std::function<bool()>(damaged);
        engine_.tables[table].automatic_orders = false;
        EXPECT_FALSE(NET_USE(session_, table, {.attach_index = true}));
        EXPECT_EQ(engine_.opened.size(), held ? 6U : 1U);
        EXPECT_TRUE(session_.areas.network_error() && !session_.areas.used());
    }
    std::remove(index.c_str());
}

Session* g_session = nullptr;
Operation g_operation = nullptr;

Value fill_record(Session& session, std::span<Value>) {
    Table& names = session.areas.table("fill_record");
    static_cast<void>(names.lock_record(1));
    names.field_put(1, "x");
    return 0;
}

Value run_out_of_memory(Session&, std::span<Value>) { throw std::bad_alloc(); }

class Exports : public Retries {
  protected:
    Exports() { g_session = &session_; }
};

TEST_F(Exports, OfAMissingOperationLeaveTextAloneButWriteTheTableNumber) {
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
    g_operation = fill_record;
    EXPECT_EQ(BrenikEditEnd(1, 0), 14U);
    EXPECT_FALSE(names().locked);
    EXPECT_TRUE(names().abandoned);
    g_operation = run_out_of_memory;
    EXPECT_EQ(BrenikShutDown(), 14U);
    EXPECT_EQ(BrenikInitialize(nullptr, 0, 0), 14U);
}

}  // namespace

// In place of the library's own.
Session& process_session() { return *g_session; }
Operation find_operation(std::string_view) { return g_operation; }

}  // namespace brenik
