// Relations between work areas.

#include <functional>

#include "engine/work_areas.h"
#include "engines.h"
#include "unit/refused.h"

namespace brenik {
namespace {

using Records = fake::RecordNumbers;

class RelationsTest : public EngineTest {
  protected:
    RelationsTest() {
        make("A", {{"X", 2}, {"Y", 9}, {"Z", 1}, {"Y", 3}}, {{"K", "K"}});
        make("B", {{"Y", 30}, {"X", 10}, {"Y", 20}, {"X", 40}}, {{"KN", "OLD->K+STR(N,4)"}});
        make("C", {{"Q", 10}, {"R", 20}, {"S", 30}}, {{"N", "N"}});
        areas_.set_engine(*engine_);
        for (const char* name : {"A", "B", "C"}) {
            areas_.open(path(name), {}, TableSharing::kShared, OpenIn::kNewArea);
        }
        set_order(a(), "");
    }

    Table& a() { return areas_.table(1, "test"); }
    Table& b() { return areas_.table(2, "test"); }
    RecordNumber at(int area) {
        Table& table = areas_.table(area, "test");
        return table.end_of_file() ? 0 : table.record_number();
    }
    Records walk(int area) { return fake::walk(areas_.table(area, "test")); }

    WorkAreas areas_;
};

TEST_P(RelationsTest, TargetsFollowEveryMoveThroughChains) {
    areas_.add_relation(2, {3, "N"});
    areas_.add_relation(1, {2, "K"});
    EXPECT_EQ(at(2), 2u) << "positioned at once";
    struct Case {
        const char* name;
        std::function<void()> move;
        RecordNumber b, c;
    };
    const Case cases[] = {
        {"go to", [&] { a().go_to(2); }, 3, 2},
        {"skip", [&] { a().skip(1); }, 0, 0},
        {"bottom", [&] { a().go_bottom(); }, 3, 2},
        {"top", [&] { a().go_top(); }, 2, 1},
        {"seek", [&] { set_order(a(), "K"), a().seek("Y", SeekMode::kHard, SeekEnd::kLast); }, 3,
         2},
        {"target moves alone", [&] { b().skip(1); }, 1, 3},
        {"past the end", [&] { a().go_to(0); }, 0, 0},
        {"append", [&] { a().go_top(), (void)a().append_blank(true); }, 0, 0},
        {"by record number",
         [&] {
             set_order(b(), ""), areas_.add_relation(1, {2, "N"}), a().go_to(1);
         },
         2, 1},
        {"a number that is no record", [&] { a().go_to(2); }, 0, 0},
    };
    for (const Case& c : cases) {
        c.move();
        EXPECT_EQ(at(2), c.b) << c.name;
        EXPECT_EQ(at(3), c.c) << c.name;
    }
    EXPECT_EQ(areas_.relations(1).size(), 1u) << "the second took the first one's place";
    areas_.clear_relations(1);
    a().go_to(1);
    EXPECT_EQ(at(2), 0u);
}

TEST_P(RelationsTest, ScopedTargetsShowTheirParentsRecordsOnly) {
    areas_.add_relation(1, {2, "K", true});
    const Records shown[] = {{}, {2, 4}, {3, 1}, {}, {3, 1}};
    for (RecordNumber record = 0; record < std::size(shown); ++record) {
        a().go_to(record);
        EXPECT_EQ(at(2), shown[record].empty() ? 0 : shown[record].front());
        EXPECT_EQ(walk(2), shown[record]) << record;
    }
    const Records all{2, 4, 3, 1};
    areas_.clear_relations(1);
    EXPECT_EQ(walk(2), all) << "the scopes went with the relation";
    areas_.add_relation(1, {2, "K", true});
    areas_.add_relation(1, {2, "K"});
    EXPECT_EQ(walk(2), all) << "and with one that a plain one replaces";
    areas_.add_relation(1, {2, "K", true});
    set_order(b(), "");
    areas_.clear_relations(1);
    set_order(b(), "KN");
    EXPECT_EQ(walk(2), all) << "and from an order that is not controlling any more";
}

TEST_P(RelationsTest, WhatCannotBeFollowedIsRefusedAndTheOldRelationStays) {
    areas_.add_relation(1, {2, "K"});
    areas_.add_relation(2, {3, "N"});
    const struct {
        int area;
        Relation relation;
        FaultCode code;
    } cases[] = {
        {1, {1, "K"}, FaultCode::kUnsupported},  // itself
        {3, {1, "K"}, FaultCode::kUnsupported},  // a circle
        {1, {2, "K+"}, FaultCode::kUnsupported},
        {1, {2, "B->K"}, FaultCode::kUnsupported},   // of another area
        {1, {2, "N"}, FaultCode::kUnsuitableValue},  // does not suit the order
        {1, {9, "K"}, FaultCode::kEmptyWorkArea},
        {9, {2, "K"}, FaultCode::kEmptyWorkArea},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(refused([&] { areas_.add_relation(c.area, c.relation); }, c.code)) << c.area;
    }
    ASSERT_EQ(areas_.relations(1).size(), 1u);
    EXPECT_EQ(areas_.relations(1)[0].expression, "K");
    areas_.add_relation(1, {2, "a->K"});
    a().go_to(2);
    EXPECT_EQ(at(2), 3u) << "by its own alias";
}

TEST_P(RelationsTest, ClosingEitherEndEndsTheRelation) {
    areas_.add_relation(1, {2, "K", true});
    areas_.add_relation(2, {3, "N", true});
    areas_.select(2);
    areas_.close();
    EXPECT_TRUE(areas_.relations(1).empty());
    EXPECT_EQ(walk(1).size(), 4u);
    EXPECT_EQ(walk(3).size(), 3u) << "the scopes went with the parent";
    areas_.open(path("B"), "again", TableSharing::kShared, OpenIn::kNewArea);
    EXPECT_EQ(areas_.current(), 2) << "the lowest free slot";
    areas_.add_relation(1, {2, "K", true});
    engine_->close_all_tables();
    a().go_to(1);
    areas_.clear_relations(1);
}

INSTANTIATE_TEST_SUITE_P(Engines, RelationsTest, testing::ValuesIn(kEngines), engine_name);

}  // namespace
}  // namespace brenik
