// The table operations below the routines, under plain names. They act on the current work area
// unless an argument says otherwise.

#include <array>

#include "call_table.h"
#include "engine/orders.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/profile.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Arguments = CallArguments;

RecordNumber record(const Arguments& a) { return to_record_number(a.whole(0)); }

std::size_t field_place(WorkAreas& areas, const Arguments& a) {
    const std::size_t place = a.size(0);
    if (place == 0 || place > areas.table("field place").fields().size()) {
        throw CallError("argument 1 is not a field of " + areas.alias());
    }
    return place;
}

int area_argument(const WorkAreas& areas, const Arguments& a, std::size_t index) {
    return a.value(index).is_text() ? areas.area_named(a.text(index)) : a.small(index);
}

bool seek(Table& table, const Arguments& a, SeekEnd end) {
    return table.seek(a.value(0), a.logical(1, false) ? SeekMode::kSoft : SeekMode::kHard, end);
}

Relation relation(const WorkAreas& areas, const Arguments& a) {
    const auto all = areas.relations(areas.current());
    const std::size_t number = a.size(0, 1);
    return number == 0 || number > all.size() ? Relation{} : all[number - 1];
}

constexpr auto open_table = [](Session& session, Arguments& a) {
    if (const std::string driver = a.text(1, ""); !driver.empty()) {
        session.areas.require_driver(driver);
    }
    session.areas.open(a.text(2), a.optional_text(3),
                       a.logical(4, true) ? TableSharing::kShared : TableSharing::kExclusive,
                       a.logical(0, false) ? OpenIn::kNewArea : OpenIn::kCurrentArea);
};

constexpr auto deleted_visibility = [](Session& session, Arguments& a) {
    Engine& engine = session.areas.engine();
    const bool before = engine.deleted_hidden();
    if (a.given(0)) engine.set_deleted_hidden(equal_ignoring_case(a.text(0), "on"));
    return before ? "on" : "off";
};

constexpr auto set_order_focus = [](Table& table, Arguments& a) {
    std::string before(table.order_name(table.order_number()));
    if (a.value(0).kind() == ValueKind::kNumber) {
        table.set_order(a.size(0));
    } else if (a.given(0)) {
        set_order(table, a.text(0));
    }
    return before;
};

constexpr auto order_scope = [](Table& table, Arguments& a) {
    Value before = table.scope(scope_end(a));
    if (a.count() > 1) table.set_scope(scope_end(a), a.value(1));
    return before;
};

constexpr auto assign_field = [](Session& session, Arguments& a) {
    const int area = area_argument(session.areas, a, 0);
    session.areas.table(area, "field assignment by name");
    session.areas.set_field(area, a.text(1), a.value(2));
};

constexpr auto select_area = [](Session& session, Arguments& a) {
    const int area = area_argument(session.areas, a, 0);
    if (area < 1 || area > kMaxWorkArea) throw CallError("argument 1 names no work area");
    session.areas.select(area);
};

constexpr std::array kOperations{
    Routine{"add order list", "index file",
            [](WorkAreas& w, Arguments& a) { static_cast<void>(w.add_orders(a.text(0))); }},
    Routine{"alias", "", [](Session& s) { return s.areas.alias(); }},
    Routine{"append blank", "[release other locks]",
            [](WorkAreas& w, Arguments& a) { w.append_blank(a.logical(0, true)); }},
    Routine{"automatic opening setting", "",
            [](Session& s) {
                return !s.areas.used() || s.areas.table("").opened_orders_automatically();
            }},
    Routine{"beginning of file", "", [](Table& t) { return t.beginning_of_file(); }},
    Routine{"clear filter", "", [](WorkAreas& w) { w.expressions("clear filter").set_filter(""); }},
    Routine{"clear order list", "", [](Table& t) { t.clear_orders(); }},
    Routine{"clear relation", "", [](WorkAreas& w) { w.clear_relations(w.current()); }},
    Routine{"close all", "", [](Session& s) { s.areas.close_all(); }},
    Routine{"close area", "", [](WorkAreas& w) { w.close(); }},
    Routine{"commit", "", [](Table& t) { t.commit(); }},
    Routine{"delete", "", [](Table& t) { t.mark_deleted(); }},
    Routine{"deleted", "", [](Table& t) { return t.deleted(); }},
    Routine{"deleted-records visibility", "[\"on\" hides them, \"off\" shows them]",
            deleted_visibility},
    Routine{"end of file", "", [](Table& t) { return t.end_of_file(); }},
    Routine{"engine", "",
            [](Session& s) {
                const Engine& engine = s.areas.engine();
                return std::string(trim_right(engine.name() + " " + engine.version()));
            }},
    Routine{
        "evaluate", "expression",
        [](WorkAreas& w, Arguments& a) { return w.expressions("evaluate").evaluate(a.text(0)); }},
    Routine{"field assignment by name", "work area or alias, field name, value", assign_field},
    Routine{"field count", "", [](Table& t) { return t.fields().size(); }},
    Routine{"field get", "position",
            [](WorkAreas& w, Arguments& a) {
                return w.table("field get").field_get(field_place(w, a));
            }},
    Routine{"field name", "position",
            [](Table& t, Arguments& a) {
                const std::size_t place = a.size(0);
                return place == 0 || place > t.fields().size() ? "" : t.fields()[place - 1].name;
            }},
    Routine{"field position", "name",
            [](WorkAreas& w, Arguments& a) { return w.field_position(a.text(0)); }},
    Routine{"field put", "position, value",
            [](WorkAreas& w, Arguments& a) {
                w.table("field put").field_put(field_place(w, a), a.value(1));
                return a.value(1);
            }},
    Routine{"file exists", "path",
            [](Session& s, Arguments& a) { return platform::file_exists(s.path_of(a.text(0))); }},
    Routine{"filter", "", [](WorkAreas& w) { return w.expressions("filter").filter(); }},
    Routine{"go bottom", "", [](Table& t) { t.go_bottom(); }},
    Routine{"go to", "record number", [](Table& t, Arguments& a) { t.go_to(record(a)); }},
    Routine{"go top", "", [](Table& t) { t.go_top(); }},
    Routine{"lock file", "", [](Table& t) { return t.lock_table(); }},
    Routine{"lock record", "record number",
            [](Table& t, Arguments& a) { return t.lock_record(record(a)); }},
    Routine{"network error", "", [](Session& s) { return s.areas.network_error(); }},
    Routine{"open table", "[new work area], [driver], file, [alias], [shared]", open_table},
    Routine{"order count", "[index file]",
            [](WorkAreas& w, Arguments& a) {
                const Table& t = w.table("order count");
                return a.given(0) ? t.orders_of(w.path_of(a.text(0))).size() : t.order_count();
            }},
    Routine{"order number", "", [](Table& t) { return t.order_number(); }},
    Routine{"order scope", "0 top or 1 bottom, [value]", order_scope},
    Routine{"recall", "", [](Table& t) { t.recall(); }},
    Routine{"record count", "", [](Table& t) { return t.record_count(); }},
    Routine{"record number", "", [](Table& t) { return t.record_number(); }},
    Routine{"relation", "[number]",
            [](WorkAreas& w, Arguments& a) { return relation(w, a).expression; }},
    Routine{"relation target", "[number]",
            [](WorkAreas& w, Arguments& a) { return relation(w, a).target; }},
    Routine{"seconds", "",
            [](Session& s) {
                return Number{s.clock.seconds(), 8, 2};
            }},
    Routine{"seek", "key, [soft]",
            [](Table& t, Arguments& a) { return seek(t, a, SeekEnd::kFirst); }},
    Routine{"seek last", "key, [soft]",
            [](Table& t, Arguments& a) { return seek(t, a, SeekEnd::kLast); }},
    Routine{"select", "[alias]",
            [](Session& s, Arguments& a) {
                return a.given(0) ? s.areas.area_of(a.text(0)) : s.areas.current();
            }},
    Routine{"select area", "number or alias", select_area},
    Routine{"set filter", "expression",
            [](WorkAreas& w, Arguments& a) { w.expressions("set filter").set_filter(a.text(0)); }},
    Routine{"set order focus", "[order name or number]", set_order_focus},
    Routine{
        "set relation", "target work area or alias, expression, [scoped]",
        [](WorkAreas& w, Arguments& a) {
            w.add_relation(w.current(), {area_argument(w, a, 0), a.text(1), a.logical(2, false)});
        }},
    Routine{"skip", "[count]", [](Table& t, Arguments& a) { t.skip(a.whole(0, 1)); }},
    Routine{"unlock", "", [](Table& t) { t.unlock_all(); }},
    Routine{"unlock record", "record number",
            [](Table& t, Arguments& a) { t.unlock_record(record(a)); }},
    Routine{"used", "", [](Session& s) { return s.areas.used(); }},
    Routine{"value of setting", "section, key, default, file",
            [](Session& s, Arguments& a) {
                return platform::profile_string(a.text(0), a.text(1), a.text(2, ""),
                                                s.path_of(a.text(3)));
            }},
};

}  // namespace

std::span<const Routine> table_operations() { return kOperations; }

}  // namespace brenik::tools
