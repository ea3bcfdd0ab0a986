// The table operations below the routines, by their plain names. They act on the current work area
// unless an argument says otherwise.

#include <algorithm>
#include <array>

#include "call_table.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/profile.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Arguments = CallArguments;

Table& table(Session& session, std::string_view operation) {
    return session.areas.table(operation);
}

RecordNumber record(const Arguments& a, std::size_t index) {
    // Numbers past the last record, however large, mean the phantom record.
    const std::int64_t number = a.whole(index);
    return number < 0 || number > UINT32_MAX ? 0 : static_cast<RecordNumber>(number);
}

std::size_t field_place(Session& session, const Arguments& a, std::string_view operation) {
    const std::size_t place = a.size(0);
    if (place == 0 || place > table(session, operation).fields().size()) {
        throw CallError("argument 1 is no field of " + session.areas.alias());
    }
    return place;
}

// As table(), for what the work areas do with it.
WorkAreas& areas(Session& session, std::string_view operation) {
    table(session, operation);
    return session.areas;
}

int area_argument(Session& session, const Arguments& a, std::size_t index) {
    return a.value(index).is_text() ? session.areas.area_named(a.text(index)) : a.small(index);
}

Value open_table(Session& session, Arguments& a) {
    session.areas.open(a.text(2), a.optional_text(3),
                       a.logical(4, true) ? TableSharing::kShared : TableSharing::kExclusive,
                       a.logical(0, false) ? OpenIn::kNewArea : OpenIn::kCurrentArea);
    return {};
}

Value append_blank(Session& session, Arguments& a) {
    areas(session, "append blank").append_blank(a.logical(0, true));
    return {};
}

Value deleted_visibility(Session& session, Arguments& a) {
    Engine& engine = session.areas.engine();
    const bool before = engine.deleted_hidden();
    if (a.given(0)) engine.set_deleted_hidden(equal_ignoring_case(a.text(0), "on"));
    return before ? "on" : "off";
}

Value seek(Session& session, Arguments& a, SeekEnd end) {
    const SeekMode mode = a.logical(1, false) ? SeekMode::kSoft : SeekMode::kHard;
    const char* operation = end == SeekEnd::kFirst ? "seek" : "seek last";
    return table(session, operation).seek(a.value(0), mode, end);
}

Value set_order_focus(Session& session, Arguments& a) {
    Table& current = table(session, "set order focus");
    const std::string before = current.order_name(current.order_number());
    if (a.value(0).kind() == ValueKind::kNumber) {
        current.set_order(a.size(0));
    } else if (a.given(0)) {
        current.set_order(a.text(0));
    }
    return before;
}

Value order_scope(Session& session, Arguments& a) {
    Table& current = table(session, "order scope");
    const Value before = current.scope(scope_end(a));
    if (a.count() > 1) current.set_scope(scope_end(a), a.value(1));
    return before;
}

Value order_count(Session& session, Arguments& a) {
    Table& current = table(session, "order count");
    return count(a.given(0) ? current.order_count_of(a.text(0)) : current.order_count());
}

Value assign_field(Session& session, Arguments& a) {
    const int area = area_argument(session, a, 0);
    session.areas.table(area, "field assignment by name");
    session.areas.set_field(area, a.text(1), a.value(2));
    return {};
}

Value select(Session& session, Arguments& a) {
    return a.given(0) ? session.areas.area_of(a.text(0)) : session.areas.current();
}

Value select_area(Session& session, Arguments& a) {
    const int area = area_argument(session, a, 0);
    if (area < 1 || area > kMaxWorkArea) throw CallError("argument 1 names no work area");
    session.areas.select(area);
    return {};
}

Value set_relation(Session& session, Arguments& a) {
    areas(session, "set relation")
        .add_relation(session.areas.current(),
                      {area_argument(session, a, 0), a.text(1), a.logical(2, false)});
    return {};
}

Relation relation(Session& session, Arguments& a, std::string_view operation) {
    const auto all = areas(session, operation).relations(session.areas.current());
    const std::size_t number = a.size(0, 1);
    return number == 0 || number > all.size() ? Relation{} : all[number - 1];
}

Value field_name(Session& session, Arguments& a) {
    const std::size_t place = a.size(0);
    const auto& fields = table(session, "field name").fields();
    return place == 0 || place > fields.size() ? "" : fields[place - 1].name;
}

Value field_put(Session& session, Arguments& a) {
    table(session, "field put").field_put(field_place(session, a, "field put"), a.value(1));
    return a.value(1);
}

constexpr std::array kOperations{
    Routine{"ADSCLOSEALLTABLES", "",
            [](Session& s, Arguments&) -> Value { return s.areas.engine().close_all_tables(); }},
    Routine{"ADSISSERVERLOADED", "folder",
            [](Session& s, Arguments& a) -> Value {
                return s.areas.engine().server_loaded(a.text(0));
            }},
    Routine{"ADSLOCKING", "proprietary",
            [](Session& s, Arguments& a) -> Value {
                return s.areas.engine().set_proprietary_locking(a.logical(0));
            }},
    Routine{"ADSREFRESHRECORD", "",
            [](Session& s, Arguments&) -> Value {
                return table(s, "ADSREFRESHRECORD").refresh_record();
            }},
    Routine{"ADSSETSERVERTYPE", "[server type]",
            [](Session& s, Arguments& a) -> Value {
                constexpr int kNoArgument = 999999;
                return a.given(0) ? s.areas.engine().set_server_type(a.small(0)) : kNoArgument;
            }},
    Routine{"ADSWRITEALLRECORDS", "",
            [](Session& s, Arguments&) -> Value { return s.areas.engine().write_all_records(); }},
    Routine{"add order list", "index file",
            [](Session& s, Arguments& a) {
                return nothing([&] { table(s, "add order list").add_orders(a.text(0)); });
            }},
    Routine{"alias", "", [](Session& s, Arguments&) -> Value { return s.areas.alias(); }},
    Routine{"append blank", "[release other locks]", append_blank},
    Routine{"automatic opening setting", "",
            [](Session& s, Arguments&) -> Value {
                return !s.areas.used() || table(s, "").opened_orders_automatically();
            }},
    Routine{"beginning of file", "",
            [](Session& s, Arguments&) -> Value {
                return table(s, "beginning of file").beginning_of_file();
            }},
    Routine{"clear filter", "",
            [](Session& s, Arguments&) {
                return nothing([&] { table(s, "clear filter").set_filter(""); });
            }},
    Routine{"clear order list", "",
            [](Session& s, Arguments&) {
                return nothing([&] { table(s, "clear order list").clear_orders(); });
            }},
    Routine{"clear relation", "",
            [](Session& s, Arguments&) {
                return nothing(
                    [&] { areas(s, "clear relation").clear_relations(s.areas.current()); });
            }},
    Routine{"close all", "",
            [](Session& s, Arguments&) { return nothing([&] { s.areas.close_all(); }); }},
    Routine{
        "close area", "",
        [](Session& s, Arguments&) { return nothing([&] { areas(s, "close area").close(); }); }},
    Routine{"commit", "",
            [](Session& s, Arguments&) { return nothing([&] { table(s, "commit").commit(); }); }},
    Routine{
        "delete", "",
        [](Session& s, Arguments&) { return nothing([&] { table(s, "delete").mark_deleted(); }); }},
    Routine{"deleted", "",
            [](Session& s, Arguments&) -> Value { return table(s, "deleted").deleted(); }},
    Routine{"deleted-records visibility", "[\"on\" hides them, \"off\" shows them]",
            deleted_visibility},
    Routine{"end of file", "",
            [](Session& s, Arguments&) -> Value { return table(s, "end of file").end_of_file(); }},
    Routine{
        "evaluate", "expression",
        [](Session& s, Arguments& a) -> Value { return table(s, "evaluate").evaluate(a.text(0)); }},
    Routine{"field assignment by name", "work area or alias, field name, value", assign_field},
    Routine{"field count", "",
            [](Session& s, Arguments&) { return count(table(s, "field count").fields().size()); }},
    Routine{"field get", "position",
            [](Session& s, Arguments& a) -> Value {
                return table(s, "field get").field_get(field_place(s, a, "field get"));
            }},
    Routine{"field name", "position", field_name},
    Routine{"field position", "name",
            [](Session& s, Arguments& a) {
                return count(areas(s, "field position").field_position(a.text(0)));
            }},
    Routine{"field put", "position, value", field_put},
    Routine{"file exists", "path",
            [](Session& s, Arguments& a) -> Value {
                return platform::file_exists(s.path_of(a.text(0)));
            }},
    Routine{"filter", "",
            [](Session& s, Arguments&) -> Value { return table(s, "filter").filter(); }},
    Routine{
        "go bottom", "",
        [](Session& s, Arguments&) { return nothing([&] { table(s, "go bottom").go_bottom(); }); }},
    Routine{"go to", "record number",
            [](Session& s, Arguments& a) {
                return nothing([&] { table(s, "go to").go_to(record(a, 0)); });
            }},
    Routine{"go top", "",
            [](Session& s, Arguments&) { return nothing([&] { table(s, "go top").go_top(); }); }},
    Routine{"lock file", "",
            [](Session& s, Arguments&) -> Value { return table(s, "lock file").lock_table(); }},
    Routine{"lock record", "record number",
            [](Session& s, Arguments& a) -> Value {
                return table(s, "lock record").lock_record(record(a, 0));
            }},
    Routine{"network error", "",
            [](Session& s, Arguments&) -> Value { return s.areas.network_error(); }},
    Routine{"open table", "[new work area], [driver], file, [alias], [shared]", open_table},
    Routine{"order count", "[index file]", order_count},
    Routine{"order number", "",
            [](Session& s, Arguments&) { return count(table(s, "order number").order_number()); }},
    Routine{"order scope", "0 top or 1 bottom, [value]", order_scope},
    Routine{"recall", "",
            [](Session& s, Arguments&) { return nothing([&] { table(s, "recall").recall(); }); }},
    Routine{
        "record count", "",
        [](Session& s, Arguments&) -> Value { return table(s, "record count").record_count(); }},
    Routine{
        "record number", "",
        [](Session& s, Arguments&) -> Value { return table(s, "record number").record_number(); }},
    Routine{
        "relation", "[number]",
        [](Session& s, Arguments& a) -> Value { return relation(s, a, "relation").expression; }},
    Routine{
        "relation target", "[number]",
        [](Session& s, Arguments& a) -> Value { return relation(s, a, "relation target").target; }},
    Routine{"seconds", "",
            [](Session& s, Arguments&) -> Value {
                return Number{s.clock.seconds(), 8, 2};
            }},
    Routine{"seek", "key, [soft]",
            [](Session& s, Arguments& a) { return seek(s, a, SeekEnd::kFirst); }},
    Routine{"seek last", "key, [soft]",
            [](Session& s, Arguments& a) { return seek(s, a, SeekEnd::kLast); }},
    Routine{"select", "[alias]", select},
    Routine{"select area", "number or alias", select_area},
    Routine{"set filter", "expression",
            [](Session& s, Arguments& a) {
                return nothing([&] { table(s, "set filter").set_filter(a.text(0)); });
            }},
    Routine{"set order focus", "[order name or number]", set_order_focus},
    Routine{"set relation", "target work area or alias, expression, [scoped]", set_relation},
    Routine{"skip", "[count]",
            [](Session& s, Arguments& a) {
                return nothing([&] { table(s, "skip").skip(a.whole(0, 1)); });
            }},
    Routine{
        "unlock", "",
        [](Session& s, Arguments&) { return nothing([&] { table(s, "unlock").unlock_all(); }); }},
    Routine{"unlock record", "record number",
            [](Session& s, Arguments& a) {
                return nothing([&] { table(s, "unlock record").unlock_record(record(a, 0)); });
            }},
    Routine{"used", "", [](Session& s, Arguments&) -> Value { return s.areas.used(); }},
    Routine{"value of setting", "section, key, default, file",
            [](Session& s, Arguments& a) -> Value {
                return platform::profile_string(a.text(0), a.text(1), a.text(2, ""),
                                                s.path_of(a.text(3)));
            }},
};

}  // namespace

std::span<const Routine> table_operations() { return kOperations; }

}  // namespace brenik::tools
