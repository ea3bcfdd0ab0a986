// How often and how long the library waits for what another workstation holds.

#include <gtest/gtest.h>

#include "c_source/retries.h"
#include "data/add_rec.h"
#include "data/net_use.h"
#include "file_bytes.h"
#include "practice.h"

namespace brenik {
namespace {

using namespace std::string_literals;
using fake::Rows;

constexpr int kForEver = -1;

class Retries : public testing::Test {
  protected:
    Retries() { practice_.make("NAMES", {{"K", 'C', 1}}, {{"K", "K"}}, {{"A"}}); }

    // Another workstation has the table open until the user has been made to wait so many times.
    void hold(int waits) {
        mine_.ui = {};
        mine_.ui.waiting = [this, waits]() mutable {
            if (--waits == 0) other_.session.areas.close();
        };
        other_.session.areas.close();
        if (waits != 0) other_.open(kNamesArea, "NAMES", {}, sharing_);
    }
    Table& names() { return mine_.session.areas.table("test"); }

    fake::Practice practice_;
    fake::Workstation mine_{practice_};
    fake::Workstation other_{practice_};
    TableSharing sharing_ = TableSharing::kExclusive;
};

TEST_F(Retries, FollowTheSecondsGiven) {
    using Attempt = bool (*)(Session&, double);
    const Attempt append = [](Session& session, double seconds) {
        return ADD_REC(session, {.seconds = seconds});
    };
    const Rows<double, int, bool, std::size_t> cases = {{5, 0, true, 0},
                                                        {5, 2, true, 2},
                                                        {5, kForEver, false, 10},
                                                        {0, 11, true, 11},
                                                        {-1, kForEver, false, 0}};
    sharing_ = TableSharing::kShared;
    mine_.open(kNamesArea, "NAMES");
    for (const Attempt attempt : {Attempt{REC_LOCK}, Attempt{FIL_LOCK}, append}) {
        for (const auto& [seconds, held, done, notices] : cases) {
            const bool tried_once = attempt == append && seconds == 0;
            hold(held);
            ASSERT_TRUE(held == 0 || other_.session.areas.table("test").lock_table());
            EXPECT_EQ(attempt(mine_.session, seconds), done && !tried_once) << seconds;
            EXPECT_EQ(mine_.ui.notices.size(), tried_once ? 0 : notices) << seconds;
            EXPECT_EQ(mine_.ui.waited_ms, 500 * static_cast<int>(mine_.ui.notices.size()));
            names().unlock_all();
        }
    }
}

TEST_F(Retries, OfAnOpenAreASecondApart) {
    const Rows<double, int, bool, int> cases = {
        {5, kForEver, false, 5}, {-1, kForEver, false, 0}, {5, 3, true, 3}, {0, 12, true, 12}};
    for (const auto& [seconds, held, opened, waits] : cases) {
        hold(held);
        const double start = mine_.clock.now_;
        EXPECT_EQ(NET_USE(mine_.session, "names  ", {.seconds = seconds}), opened);
        EXPECT_EQ(mine_.ui.waits, waits);
        EXPECT_NEAR(mine_.clock.now_ - start, waits, 0.1 + 0.2 * waits);
        EXPECT_EQ(mine_.session.areas.used(), opened);
        mine_.session.areas.close();
    }
}

TEST_F(Retries, OfAnOpenWaitForTheIndexAsForTheTable) {
    write_over(practice_.path("NAMES.DBF"), 28, "\0"s);  // so that the engine does not attach it
    auto held = platform::File::open(practice_.path("NAMES.CDX"), platform::OpenMode::kReadWrite,
                                     platform::Sharing::kExclusive);
    EXPECT_FALSE(NET_USE(mine_.session, "NAMES", {.attach_index = true}));
    EXPECT_EQ(mine_.ui.waits, 5);
    EXPECT_FALSE(mine_.session.areas.used());
    held.close();
    EXPECT_TRUE(NET_USE(mine_.session, "NAMES", {.attach_index = true}));
    EXPECT_EQ(names().order_count(), 1U);
}

}  // namespace
}  // namespace brenik
