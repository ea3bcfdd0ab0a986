// The add transaction, and the cross-reference record that links a matter to its contact.

#include "BrenikDB/add.h"

#include <exception>
#include <utility>

#include "BrenikDB/codes.h"
#include "BrenikDB/lookup.h"
#include "BrenikDB/selection.h"
#include "c_source/retries.h"
#include "data/add_rec.h"
#include "data/net_use.h"
#include "data/scatgat.h"
#include "engine/orders.h"
#include "fwp/fault_file.h"
#include "fwp/profile_setting.h"
#include "fwp/trace_log.h"
#include "util/runtime.h"

namespace brenik {

namespace {

// Widths of a code's first two fields, which together are the key of the first order.
constexpr std::size_t kCodeKindWidth = 10;
constexpr std::size_t kCodeTextWidth = 40;

std::string buffer_text(const Session& session, std::size_t element) {
    const Array& buffer = *session.buffer;
    return element <= buffer.size() ? buffer[element - 1].text() : std::string();
}

std::string current_identifier(Session& session) {
    return session.areas.field(session.areas.current(), practice::kIdentifierField).text();
}

// The active order of the codes defines what a duplicate is.
bool is_duplicate_code(Session& session) {
    WorkAreas& areas = session.areas;
    if (areas.current() != kCodesArea) return false;
    const std::string key = pad_right(buffer_text(session, 1), kCodeKindWidth) +
                            pad_right(buffer_text(session, 2), kCodeTextWidth);
    trace(session, "AddEnd", [&] { return Array{"AddEnd", areas.order_name(), key}; });
    return areas.table("AddEnd").seek(key, SeekMode::kHard, SeekEnd::kFirst);
}

// Copies the new record's identifier into the buffer.
int add_buffer(Session& session) {
    WorkAreas& areas = session.areas;
    const auto fill = [&] { SCATGAT(session, session.buffer, areas.current() != kCodesArea); };
    if (!ADD_REC(session, {.fill = fill})) {
        trace(session, "AddEnd", "AddEnd: add_rec failed");
        areas.table("AddEnd").go_to(0);
        return kAppendFailed;
    }
    const std::size_t position = areas.field_position(practice::kIdentifierField);
    if (position != 0 && position <= session.buffer->size()) {
        (*session.buffer)[position - 1] = areas.table("AddEnd").field_get(position);
    }
    REC_UNLOCK(session);
    return kSuccess;
}

bool open_cross_reference(Session& session) {
    session.areas.select(kCrossReferenceArea);
    if (session.areas.used() ||
        NET_USE(session, session.data_path() + practice::kCrossReferences.file,
                {.alias = practice::kCrossReferences.alias, .attach_index = true})) {
        return true;
    }
    trace(session, "AddEnd", "AddEnd: open file failed in XREF");
    return false;
}

void read_link_type(Session& session) {
    if (!Value(session.link_type).empty()) return;
    const std::string type = profile_setting(session, "AddEnd", "Setup", "LinkType", "CLIENT",
                                             session.data_path() + "billing\\BOLink.INI");
    session.link_type = type.substr(0, type.find(','));
}

void fill_cross_reference(Session& session) {
    WorkAreas& areas = session.areas;
    const auto set = [&](std::string_view field, const Value& value) {
        areas.set_field(kCrossReferenceArea, field, value);
    };
    set("ID", areas.field(kNamesArea, "ID"));
    set("CASENUM", areas.field(kMattersArea, "CASENUM"));
    set("TYPE", session.link_type);
    set("MATTER", areas.field(kMattersArea, "MATTER"));
    set("LAST", LASTFIRST(session));
    set("ENTRY", session.today());
    set("U_ID1", areas.field(kNamesArea, practice::kIdentifierField));
    set("U_ID3", areas.field(kMattersArea, practice::kIdentifierField));
}

// A link is written whole or not at all: its fields are filled in before the append writes
// anything.
int append_cross_reference(Session& session) {
    read_link_type(session);
    if (!ADD_REC(session, {.fill = [&] { fill_cross_reference(session); }})) return kAppendFailed;
    if (session.areas.write_all_records() != 0) {
        note_fault(session, "AddEnd", session.areas.engine().last_error());
    }
    REC_UNLOCK(session);
    return kSuccess;
}

// Leaves "Names" current if the contact is not found, otherwise the cross-references. The matter is
// already in the file, so a fault costs only the link.
int write_link(Session& session, const std::string& contact) {
    try {
        if (!seek_in_order(session, practice::kIdentifierField, contact))
            return kIdentifierNotFound;
        return open_cross_reference(session) ? append_cross_reference(session) : kTableNotOpened;
    } catch (const std::exception& fault) {
        session.recover();
        note_fault(session, "AddEnd", fault.what());
        return kAppendFailed;
    }
}

void report_missing_link(Session& session) {
    WorkAreas& areas = session.areas;
    trace(session, "AddEnd", "AddEnd: add_rec failed in XREF");
    session.ui.message_box("An error occurred while adding a record to the XREF database.",
                           "Error Appending Record", platform::Icon::kInformation);
    if (areas.current() == kCrossReferenceArea) areas.table("AddEnd").go_to(0);
}

// Sets the order that "Names" had in whichever area is current at the end. That is "Names" only if
// the contact was not found; otherwise the cross-references get the order and "Names" keeps order
// U_ID. Programs that share the session's tables rely on this.
int link_to_contact(Session& session, const std::string& contact) {
    WorkAreas& areas = session.areas;
    areas.select(kNamesArea);
    const std::string order = areas.order_name();
    const int code = write_link(session, contact);
    try {
        if (code == kAppendFailed) report_missing_link(session);
        if (areas.used()) set_order(areas.table("AddEnd"), order);
    } catch (const std::exception& fault) {
        note_fault(session, "AddEnd", fault.what());
    }
    areas.select(kMattersArea);
    return code;
}

// `identifier` names the contact on entry and the record on return. It is set before the link,
// which can fail.
int add_record(Session& session, std::string& identifier) {
    if (!session.buffer) {
        throw EngineFault(FaultCode::kUnsuitableValue, "AddEnd",
                          "there is no transaction buffer; call AddStart first");
    }
    const int code = is_duplicate_code(session) ? kDuplicateCode : add_buffer(session);
    const std::string contact = std::exchange(identifier, current_identifier(session));
    const bool linked = session.areas.current() == kMattersArea && !Value(contact).empty();
    return code == kSuccess && linked ? link_to_contact(session, contact) : code;
}

// Position of the field that makes a new contact active; 0 if there is none.
std::size_t activate_contact(Session& session) {
    if (session.areas.current() != kNamesArea) return 0;
    const std::size_t position = session.areas.field_position("Active");
    if (position != 0) (*session.buffer)[position - 1] = true;
    return position;
}

}  // namespace

int AddStart(Session& session, int table) {
    trace(session, "AddStart", [&] { return Array{"AddStart nTable:", table}; });
    if (const int code = select_table(session, "AddStart", table); code != kSuccess) return code;
    WorkAreas& areas = session.areas;
    areas.table("AddStart").go_to(0);
    session.buffer = SCATGAT(session);
    const std::size_t active = activate_contact(session);
    trace(session, "AddStart", [&] {
        return Array{"AddStart record initialized", areas.end_of_file(), areas.alias(),
                     static_cast<std::int64_t>(active)};
    });
    return kSuccess;
}

int AddEnd(Session& session, int table, std::string& identifier) {
    WorkAreas& areas = session.areas;
    trace(session, "AddEnd", [&] {
        return Array{"AddEnd", table, areas.end_of_file(), areas.alias(), identifier};
    });
    if (table != areas.current()) return kNotCurrentArea;
    const int code = add_record(session, identifier);
    trace(session, "AddEnd", [&] { return Array{"AddEnd", code, identifier}; });
    return code;
}

}  // namespace brenik
