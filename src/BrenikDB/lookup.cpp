// How the look-ups read "Names" and the matters.

#include "BrenikDB/lookup.h"

#include <array>
#include <exception>

#include "BrenikDB/codes.h"
#include "BrenikDB/selection.h"
#include "BrenikDB/settings.h"
#include "c_source/Strings.h"
#include "engine/orders.h"
#include "engine/selected_area.h"
#include "fwp/fault_file.h"
#include "fwp/trace_log.h"
#include "util/runtime.h"

namespace brenik {

namespace {

constexpr char kSeparator = '|';

// Items 2 to 23 of the firm description; the first is the firm's name.
constexpr std::array<std::string_view, 22> kFirmFields{
    "LAST",  "FIRST",    "ID",   "DEAR",   "DAYPHONE", "EVEPHONE",  "PHONE3", "PHONE4",
    "CLASS", "ATTORNEY", "OPEN", "ACTIVE", "LABEL1",   "LABEL2",    "LABEL3", "LABEL4",
    "CITY",  "STATE",    "ZIP",  "U_ID",   "EMAIL",    "REFERREDBY"};

// The name of a practice that has not set its own.
constexpr std::string_view kPlaceholder = "YOUR NAME APPEARS HERE";

std::string item(const std::string& text) {
    return std::string(trim_both(replace_all(text, "|", "/"))) + kSeparator;
}

std::string field_item(const Value& value) {
    switch (value.kind()) {
        case ValueKind::kDate:
            return item(value.date().to_ymd());
        case ValueKind::kLogical:
            return item(value.logical() ? "Y" : "N");
        default:
            return item(value.is_text() ? value.text() : CAST(value));
    }
}

std::string firm_name(Session& session) {
    const std::string name = main_setting(session, "GetMyFirm", "FirmName");
    return begins_with(upper(name), kPlaceholder) ? std::string() : name;
}

// Describes the current record of the current work area.
std::string describe_firm(Session& session, const std::string& name) {
    WorkAreas& areas = session.areas;
    Table& names = areas.table("GetMyFirm");
    const auto item_of = [&](std::string_view field) {
        const std::size_t position = areas.field_position(field);
        return field_item(position != 0 ? names.field_get(position) : Value(""));
    };
    std::string firm = Value(name).empty() ? item_of("LABEL1") : item(name);
    for (const std::string_view field : kFirmFields) firm += item_of(field);
    return firm;
}

// Restores a table's order and record, also if a fault ends the scope: the host's next call may
// rely on the record that was current before.
class RestoredPosition {
  public:
    RestoredPosition(Table& table, std::string order)
        : table_(table), order_(std::move(order)), record_(table.record_number()) {}
    ~RestoredPosition() {
        try {
            set_order(table_, order_);
            table_.go_to(record_);
        } catch (const EngineFault&) {
            // The fault that ended the scope, or a similar one, already propagates to the host.
        }
    }
    RestoredPosition(const RestoredPosition&) = delete;
    RestoredPosition& operator=(const RestoredPosition&) = delete;

  private:
    Table& table_;
    std::string order_;
    RecordNumber record_;
};

// The description of the firm with this ID; empty if "Names" has no such record or cannot be read.
std::string find_firm(Session& session, const std::string& id, const std::string& name) {
    const SelectedArea selected(session.areas, session.areas.area_of(practice::kNames.alias));
    if (!session.areas.used()) return {};
    try {
        Table& names = session.areas.table("GetMyFirm");
        const RestoredPosition restored(names, session.areas.order_name());
        const bool found = !Value(id).empty() && seek_in_order(session, "ID", id);
        return found ? describe_firm(session, name) : std::string();
    } catch (const std::exception& fault) {
        note_fault(session, "GetMyFirm", fault.what());
        return {};
    }
}

int find_identifier(Session& session, int table, const std::string& key, std::string& identifier) {
    if (table != kNamesArea && table != kMattersArea) return kBadTable;
    if (Value(key).empty()) return kKeyNotFound;
    WorkAreas& areas = session.areas;
    areas.select(table);
    if (!areas.used()) return kBadTable;
    const bool contact = table == kNamesArea;
    const std::size_t position = areas.field_position(contact ? "ID" : "CASENUM");
    if (position == 0) return kKeyNotFound;
    const Table& sought = areas.table("GetU_ID");
    const int width = sought.fields()[position - 1].width;
    const std::string padded =
        pad_right(upper_in(sought.layout(), key), static_cast<std::size_t>(width));
    if (!seek_in_order(session, contact ? "ID" : "CaseNumber", padded)) return kKeyNotFound;
    identifier = areas.field(table, "U_ID").text();
    return kSuccess;
}

std::string display_name(const Value& last, const Value& first, std::size_t width) {
    std::string name(trim_right(last.text()));
    if (!first.empty()) name += ", " + first.text();
    return pad_right(name, width);
}

}  // namespace

int GetMyFirm(Session& session, std::string& firm) {
    const std::string name = firm_name(session);
    trace(session, "GetMyFirm", [&] {
        return Array{"GetMyFirm", static_cast<std::int64_t>(firm.size())};
    });
    const std::string id = main_setting(session, "GetMyFirm", "MyFirm");
    firm = find_firm(session, id, name);
    trace(session, "GetMyFirm", [&] {
        return firm.empty() ? Array{"GetMyFirm Failed Seek", id}
                            : Array{"GetMyFirm End", firm, kSuccess};
    });
    return kSuccess;
}

int GetU_ID(Session& session, int table, const std::string& key, std::string& identifier) {
    const int code = find_identifier(session, table, key, identifier);
    trace(session, "GetU_ID", [&] { return Array{"GetU_ID End", table, identifier, code}; });
    return code;
}

std::string LASTFIRST(Session& session, std::size_t width, std::optional<int> area) {
    WorkAreas& areas = session.areas;
    const int source = area ? *area : areas.area_of(practice::kNames.alias);
    areas.table(source, "LASTFIRST");
    return display_name(areas.field(source, "LAST"), areas.field(source, "FIRST"), width);
}

std::string LASTFIRST(const RecordObject& record, std::size_t width) {
    if (record.end_of_file()) return std::string(width, ' ');
    return display_name(record.field("LAST"), record.field("FIRST"), width);
}

}  // namespace brenik
