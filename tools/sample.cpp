// The sample's tables: columns with their content, orders, journal and settings.
//
// As in practices that have grown over years, the tables are of different generations (versions 03,
// F5 and 30). They have memos of both kinds and an order of every key type.

#include "sample.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <vector>

#include "display.h"
#include "engine/make/create_table.h"
#include "engine/make/table_writer.h"
#include "native_path.h"
#include "practice.h"
#include "practice/journal_entry.h"
#include "progress.h"
#include "reason.h"
#include "sample_rows.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using make::TagDefinition;
using record::kBinary;
using record::kFptMemos;
using record::kLater;
using record::kPlain;

constexpr std::uint8_t kCodePage1252 = 0x03;
constexpr std::uint32_t kRowsBetween = 4096;  // two looks at the clock

// A field and its content; blank without `value`.
template <typename Content>
struct Column {
    const char* name;
    char type;
    std::uint32_t width;
    std::uint32_t decimals = 0;
    Value (*value)(const Content&) = nullptr;
    std::uint8_t flags = 0;
};

template <typename Content>
using Columns = std::vector<Column<Content>>;

struct TableDefinition {
    std::string file;
    std::uint8_t version;
    std::vector<TagDefinition> tags;
};

struct WrittenTable {
    std::string file;
    std::uint32_t records;
};

const Columns<Contact> kNames = {
    {practice::kIdentifierField, 'C', 7, 0, [](const Contact& c) -> Value { return c.uid; }},
    {"ID", 'C', 10, 0, [](const Contact& c) -> Value { return c.id; }},
    {"LAST", 'C', 30, 0, [](const Contact& c) -> Value { return c.last; }},
    {"FIRST", 'C', 20, 0, [](const Contact& c) -> Value { return c.first; }},
    {"LABEL1", 'C', 35, 0,
     [](const Contact& c) -> Value { return c.first.empty() ? c.last : c.first + " " + c.last; }},
    {"LABEL2", 'C', 35, 0, [](const Contact& c) -> Value { return c.street; }},
    {"LABEL3", 'C', 35, 0,
     [](const Contact& c) -> Value { return c.city + ", " + c.state + " " + c.zip; }},
    {"LABEL4", 'C', 35},
    {"DEAR", 'C', 25, 0, [](const Contact& c) -> Value { return c.first; }},
    {"DAYPHONE", 'C', 17, 0, [](const Contact& c) -> Value { return c.phone; }},
    {"EVEPHONE", 'C', 17},
    {"PHONE3", 'C', 17, 0, [](const Contact& c) -> Value { return c.mobile; }},
    {"PHONE4", 'C', 17},
    {"CLASS", 'C', 10, 0, [](const Contact& c) -> Value { return c.contact_class; }},
    {"ATTORNEY", 'C', 3, 0, [](const Contact& c) -> Value { return c.attorney; }},
    {"OPEN", 'D', 8, 0, [](const Contact& c) -> Value { return c.entry; }},
    {"ACTIVE", 'L', 1, 0, [](const Contact& c) -> Value { return c.active; }},
    {"CITY", 'C', 20, 0, [](const Contact& c) -> Value { return c.city; }},
    {"STATE", 'C', 2, 0, [](const Contact& c) -> Value { return c.state; }},
    {"ZIP", 'C', 10, 0, [](const Contact& c) -> Value { return c.zip; }},
    {"EMAIL", 'C', 40, 0, [](const Contact& c) -> Value { return c.email; }},
    {"REFERREDBY", 'C', 20, 0, [](const Contact& c) -> Value { return c.referred_by; }},
    {"BALANCE", 'N', 12, 2,
     [](const Contact& c) -> Value {
         return Number{c.balance, 12, 2};
     }},
    {"ENTRY", 'D', 8, 0, [](const Contact& c) -> Value { return c.entry; }},
    {"OPERATOR", 'C', 3, 0, [](const Contact&) -> Value { return kOperator; }},
    {"NOTES", 'M', 10, 0, [](const Contact& c) -> Value { return c.remarks; }},
};

// What contacts have gained in practices that have grown: together with kNames, 45 fields in
// records of 738 bytes.
const Columns<Contact> kLaterNames = {
    {"COMPANY", 'C', 40},
    {"TITLE", 'C', 30},
    {"FAX", 'C', 17},
    {"WEB", 'C', 40},
    {"TAXNUMBER", 'C', 11},
    {"BIRTHDAY", 'D', 8},
    {"SPOUSE", 'C', 20},
    {"COUNTRY", 'C', 20, 0, [](const Contact&) -> Value { return "United States"; }},
    {"COUNTY", 'C', 15, 0, [](const Contact& c) -> Value { return c.city; }},
    {"LANGUAGE", 'C', 10, 0, [](const Contact&) -> Value { return "English"; }},
    {"SOURCE", 'C', 10},
    {"LASTCALL", 'D', 8, 0, [](const Contact& c) -> Value { return c.entry; }},
    {"NEXTCALL", 'D', 8},
    {"RATE", 'N', 8, 2},
    {"CREDIT", 'N', 12, 2},
    {"MAILING", 'L', 1, 0, [](const Contact& c) -> Value { return c.active; }},
    {"USER1", 'C', 10},
    {"USER2", 'C', 10, 0, [](const Contact& c) -> Value { return c.id; }},
    {"USER3", 'C', 12},
};

const Columns<Event> kEvents = {
    {practice::kIdentifierField, 'C', 7, 0, [](const Event& e) -> Value { return e.uid; }},
    {"RNO", 'N', 8, 0, [](const Event& e) -> Value { return e.number; }},
    {"DATE", 'D', 8, 0, [](const Event& e) -> Value { return e.date; }},
    {"START", 'T', 8, 0, [](const Event& e) -> Value { return e.start; }},
    {"MINUTES", 'I', 4, 0, [](const Event& e) -> Value { return e.minutes; }},
    {"TYPE", 'C', 10, 0, [](const Event& e) -> Value { return e.type; }},
    {"DETAIL", 'C', 80, 0, [](const Event& e) -> Value { return e.detail; }},
    {"CASENUM", 'C', 15, 0, [](const Event& e) -> Value { return e.case_number; }},
    {"ATTORNEY", 'C', 3, 0, [](const Event& e) -> Value { return e.attorney; }},
    {"DONE", 'L', 1, 0, [](const Event& e) -> Value { return e.done; }},
    {"ENTRY", 'D', 8, 0, [](const Event& e) -> Value { return e.entry; }},
    {"OPERATOR", 'C', 3, 0, [](const Event&) -> Value { return kOperator; }},
    {"NOTES", 'M', 4, 0, [](const Event& e) -> Value { return e.remarks; }},
};

const Columns<Matter> kMatters = {
    {practice::kIdentifierField, 'C', 7, 0, [](const Matter& m) -> Value { return m.uid; }},
    {"CASENUM", 'C', 15, 0, [](const Matter& m) -> Value { return m.number; }},
    {"MATTER", 'C', 50, 0, [](const Matter& m) -> Value { return m.name; }},
    {"CLASS", 'C', 10, 0, [](const Matter& m) -> Value { return m.matter_class; }},
    {"ATTORNEY", 'C', 3, 0, [](const Matter& m) -> Value { return m.attorney; }},
    {"COURT", 'C', 20, 0, [](const Matter& m) -> Value { return m.court; }},
    {"OPEN", 'D', 8, 0, [](const Matter& m) -> Value { return m.entry; }},
    {"CLOSED", 'D', 8, 0, [](const Matter& m) -> Value { return m.closed; }},
    {"ACTIVE", 'L', 1, 0, [](const Matter& m) -> Value { return m.closed.empty(); }},
    {"RATE", 'Y', 8, 4, [](const Matter& m) -> Value { return Number{m.rate}; }},
    {"BUDGET", 'B', 8, 2, [](const Matter& m) -> Value { return Number{m.budget}; }},
    {"PRIORITY", 'I', 4, 0, [](const Matter& m) -> Value { return m.priority; }},
    {"ENTRY", 'D', 8, 0, [](const Matter& m) -> Value { return m.entry; }},
    {"OPERATOR", 'C', 3, 0, [](const Matter&) -> Value { return kOperator; }},
    {"NOTES", 'M', 4, 0, [](const Matter& m) -> Value { return m.remarks; }},
};

const Columns<Note> kNotes = {
    {practice::kIdentifierField, 'C', 7, 0, [](const Note& n) -> Value { return n.uid; }},
    {"NAME_UID", 'C', 7, 0, [](const Note& n) -> Value { return n.contact_uid; }},
    {"TOPIC", 'C', 30, 0, [](const Note& n) -> Value { return n.topic; }},
    {"ENTRY", 'D', 8, 0, [](const Note& n) -> Value { return n.entry; }},
    {"OPERATOR", 'C', 3, 0, [](const Note&) -> Value { return kOperator; }},
    {"NOTE", 'M', 10, 0, [](const Note& n) -> Value { return n.text; }},
};

const Columns<Code> kCodes = {
    {"TYPE", 'C', 10, 0, [](const Code& c) -> Value { return c.type; }},
    {"CODE", 'C', 40, 0, [](const Code& c) -> Value { return c.code; }},
    {"DETAIL", 'C', 60, 0, [](const Code& c) -> Value { return c.detail; }},
    {"RATE", 'N', 8, 2,
     [](const Code& c) -> Value {
         return Number{c.rate, 8, 2};
     }},
    {practice::kIdentifierField, 'C', 7, 0, [](const Code& c) -> Value { return c.uid; }},
};

const Columns<CrossReference> kCrossReferences = {
    {practice::kIdentifierField, 'C', 7, 0, [](const CrossReference& x) -> Value { return x.uid; }},
    {"ID", 'C', 10, 0, [](const CrossReference& x) -> Value { return x.contact.id; }},
    {"CASENUM", 'C', 15, 0, [](const CrossReference& x) -> Value { return x.matter.number; }},
    {"TYPE", 'C', 10, 0, [](const CrossReference&) -> Value { return "CLIENT"; }},
    {"MATTER", 'C', 50, 0, [](const CrossReference& x) -> Value { return x.matter.name; }},
    {"LAST", 'C', 55, 0,
     [](const CrossReference& x) -> Value {
         const Contact& c = x.contact;
         return c.first.empty() ? c.last : c.last + ", " + c.first;
     }},
    {"ENTRY", 'D', 8, 0, [](const CrossReference& x) -> Value { return x.entry; }},
    {"OPERATOR", 'C', 3, 0, [](const CrossReference&) -> Value { return kOperator; }},
    {"U_ID1", 'C', 7, 0, [](const CrossReference& x) -> Value { return x.contact.uid; }},
    {"U_ID3", 'C', 7, 0, [](const CrossReference& x) -> Value { return x.matter.uid; }},
};

// The only record of the system table.
const Columns<SampleSizes> kSystem = {
    {practice::kPrefixField, 'C', 2, 0, [](const SampleSizes&) -> Value { return kWorkstation; }},
    {practice::kTracksField, 'L', 1, 0, [](const SampleSizes&) -> Value { return true; }},
    {practice::kLastStampField, 'N', 5, 0, [](const SampleSizes&) -> Value { return 0; }},
    {"RECORDNO", 'N', 8, 0, [](const SampleSizes& s) -> Value { return s.events; }},
    {"U_ID1", 'N', 10, 0, [](const SampleSizes& s) -> Value { return s.contacts; }},
    {"U_ID2", 'N', 10, 0, [](const SampleSizes& s) -> Value { return s.events; }},
    {"U_ID3", 'N', 10, 0, [](const SampleSizes& s) -> Value { return s.matters; }},
    {"U_ID4", 'N', 10, 0, [](const SampleSizes& s) -> Value { return s.notes; }},
    {"U_ID6", 'N', 10, 0, [](const SampleSizes&) -> Value { return 0; }},
    {"U_ID7", 'N', 10, 0, [](const SampleSizes&) -> Value { return code_count(); }},
    {"U_ID8", 'N', 10, 0, [](const SampleSizes&) -> Value { return 0; }},
    {"U_ID9", 'N', 10, 0, [](const SampleSizes& s) -> Value { return s.matters; }},
    {"U_ID10", 'N', 10, 0, [](const SampleSizes&) -> Value { return 0; }},
    {"U_ID11", 'N', 10, 0, [](const SampleSizes&) -> Value { return 0; }},
    {"U_ID12", 'N', 10, 0, [](const SampleSizes&) -> Value { return 0; }},
    {"RELEASE", 'C', 8, 0, [](const SampleSizes&) -> Value { return "13.2"; }},
};

struct JournalEntry {
    std::string_view kind;
    std::string table_code;
    std::string uid;
    std::string stamp;
    std::string data;
};

const Columns<JournalEntry> kJournal = {
    {practice::kKindField, 'C', 1, 0, [](const JournalEntry& e) -> Value { return e.kind; }},
    {practice::kTableCodeField, 'C', 2, 0,
     [](const JournalEntry& e) -> Value { return e.table_code; }},
    {practice::kIdentifierField, 'C', 7, 0, [](const JournalEntry& e) -> Value { return e.uid; }},
    {practice::kStampField, 'C', 4, 0, [](const JournalEntry& e) -> Value { return e.stamp; },
     kBinary},
    {practice::kDataField, 'M', 4, 0, [](const JournalEntry& e) -> Value { return e.data; },
     kBinary},
};

const TagDefinition kDescendingEntry{"NEWEST", "ENTRY", "", false, false, true};

const TableDefinition kNamesTable = {practice::kNames.file,
                                     kFptMemos,
                                     {{"U_ID", "U_ID", ""},
                                      {"ID", "UPPER(ID)", ""},
                                      {"NAME", "UPPER(LAST+FIRST)", ""},
                                      {"CITY", "UPPER(CITY)", "!DELETED()"},
                                      {"BALANCE", "BALANCE", ""},
                                      kDescendingEntry}};
const TableDefinition kEventsTable = {practice::kEvents.file,
                                      kLater,
                                      {{"U_ID", "U_ID", ""},
                                       {"RNO", "RNO", ""},
                                       {"DATE", "DATE", ""},
                                       {"START", "START", ""},
                                       {"TODO", "DTOS(DATE)+TYPE", "!DONE .AND. !DELETED()"},
                                       {"CASENUM", "UPPER(CASENUM)", ""},
                                       kDescendingEntry}};
const TableDefinition kMattersTable = {practice::kMatters.file,
                                       kLater,
                                       {{"U_ID", "U_ID", ""},
                                        {"CASENUMBER", "UPPER(CASENUM)", ""},
                                        {"MATTER", "UPPER(MATTER)", ""},
                                        {"PRIORITY", "PRIORITY", ""},
                                        {"BUDGET", "BUDGET", ""},
                                        {"ACTIVE", "ACTIVE", ""},
                                        kDescendingEntry}};
const TableDefinition kNotesTable = {
    practice::kNotes.file,
    kFptMemos,
    {{"U_ID", "U_ID", ""}, {"NAME", "NAME_UID+DTOS(ENTRY)", ""}, {"DELETED", "U_ID", "DELETED()"}}};
const TableDefinition kCodesTable = {
    practice::kCodes.file,
    kPlain,
    {{"TYPECODE", "TYPE+CODE", ""}, {"U_ID", "U_ID", ""}, {"RATE", "RATE", ""}}};
const TableDefinition kCrossReferenceTable = {practice::kCrossReferences.file,
                                              kPlain,
                                              {{"ID", "UPPER(ID)", ""},
                                               {"CASENUM", "UPPER(CASENUM)", ""},
                                               {"U_ID", "U_ID", ""},
                                               {"U_ID1", "U_ID1", ""},
                                               {"U_ID3", "U_ID3", ""}}};
const TableDefinition kJournalTable = {practice::kJournal.file,
                                       kLater,
                                       {{"TRANS", practice::kEntryKey, ""},
                                        {"ADDED", "CDT+CDB+U_ID", "CCODE=\"A\""},
                                        {"EDITED", "CDT+CDB+U_ID", "CCODE=\"E\""},
                                        {"REMOVED", "CDT+CDB+U_ID", "CCODE=\"D\""}}};
const TableDefinition kSystemTable = {practice::kSystem.file, kPlain, {}};

template <typename Content>
record::TableLayout layout_of(const TableDefinition& table, const Columns<Content>& columns) {
    record::TableLayout layout;
    layout.version = table.version;
    layout.code_page = kCodePage1252;
    for (const Column<Content>& column : columns) {
        record::Field field;
        field.name = column.name;
        field.type = column.type;
        field.width = column.width;
        field.decimals = column.decimals;
        field.flags = column.flags;
        layout.fields.push_back(field);
    }
    return layout;
}

Columns<Contact> columns_of_names(bool wide) {
    Columns<Contact> columns = kNames;
    if (wide) columns.insert(columns.end(), kLaterNames.begin(), kLaterNames.end());
    return columns;
}

template <typename Content>
bool is_deleted(const Content& content) {
    if constexpr (requires { content.deleted; }) {
        return content.deleted;
    } else {
        return false;
    }
}

// Writes `count` rows, where row i is make(i), then builds the table's orders.
template <typename Content, typename Make>
WrittenTable write_table(const std::string& folder, const TableDefinition& table,
                         const Columns<Content>& columns, std::uint32_t count, Make make) {
    const std::string path = folder + "/" + table.file + ".DBF";
    const CivilDay today = sample_today().civil();
    make::TableWriter writer(path, layout_of(table, columns), {today.year, today.month, today.day});
    std::vector<Value> values(columns.size());
    ProgressBar bar(table.file);
    for (std::uint32_t i = 0; i < count; ++i) {
        if (i % kRowsBetween == 0) bar.show("rows", i, count);
        const Content content = make(i);
        for (std::size_t column = 0; column < columns.size(); ++column) {
            if (columns[column].value) values[column] = columns[column].value(content);
        }
        writer.append(values, is_deleted(content));
    }
    writer.close();
    if (!table.tags.empty()) make::create_index(path, table.tags, bar.progress());
    return {table.file, count};
}

template <typename Content>
WrittenTable write_rows(const std::string& folder, const TableDefinition& table,
                        const Columns<Content>& columns, const SampleSizes& sizes,
                        std::uint32_t count, Content (*make)(const SampleSizes&, std::uint32_t)) {
    return write_table(folder, table, columns, count,
                       [&](std::uint32_t index) { return make(sizes, index); });
}

// The journal of the sample's last day: the latest additions, three edits, and deletions. It omits
// the very last contact and the first deleted one, as if a program had changed the table by itself
// and not yet reported it.
class JournalWriter {
  public:
    JournalWriter(const SampleSizes& sizes, const Columns<Contact>& names) : sizes_(sizes) {
        add_latest(practice::kNames, sizes.contacts > 0 ? sizes.contacts - 1 : 0, make_contact);
        add_latest(practice::kEvents, sizes.events, make_event);
        add_latest(practice::kMatters, sizes.matters, make_matter);
        add_latest(practice::kNotes, sizes.notes, make_note);
        edit(practice::kNames, 1, sizes.contacts, make_contact, names, {"DAYPHONE", "CITY"});
        edit(practice::kNames, 2, sizes.contacts, make_contact, names, {"EMAIL"});
        edit(practice::kMatters, 0, sizes.matters, make_matter, kMatters,
             {"COURT", "BUDGET", "PRIORITY"});
        add_deleted_contacts();
    }

    const std::vector<JournalEntry>& entries() const { return entries_; }

  private:
    static constexpr std::uint32_t kLatest = 5;
    static constexpr int kFirstHour = 9;

    // Entries are four minutes apart.
    std::string next_stamp() {
        return practice::RSDT(sample_today(),
                              kFirstHour * 3600 + 240.0 * static_cast<double>(entries_.size()));
    }

    void add(std::string_view kind, const practice::TableEntry& table, const std::string& uid,
             const std::string& data) {
        entries_.push_back({kind, practice::table_code_of(table.area), uid, next_stamp(), data});
    }

    template <typename Content>
    void add_latest(const practice::TableEntry& table, std::uint32_t count,
                    Content (*make)(const SampleSizes&, std::uint32_t)) {
        for (std::uint32_t i = count - std::min(count, kLatest); i < count; ++i) {
            add(practice::kAddition, table, make(sizes_, i).uid, "");
        }
    }

    template <typename Content>
    void edit(const practice::TableEntry& table, std::uint32_t index, std::uint32_t count,
              Content (*make)(const SampleSizes&, std::uint32_t), const Columns<Content>& columns,
              const std::vector<std::string_view>& fields) {
        if (index >= count) return;
        const std::string stamp = next_stamp();
        std::string data;
        for (const Column<Content>& column : columns) {
            const bool edited =
                std::find(fields.begin(), fields.end(), column.name) != fields.end();
            data += edited ? practice::make_slot(stamp, kWorkstation)
                           : std::string(practice::kSlotSize, '\0');
        }
        add(practice::kEdit, table, make(sizes_, index).uid, data);
    }

    void add_deleted_contacts() {
        std::vector<std::string> deleted;
        for (std::uint32_t i = sizes_.contacts; i-- > 0 && deleted.size() <= kLatest;) {
            const Contact contact = make_contact(sizes_, i);
            if (contact.deleted) deleted.push_back(contact.uid);
        }
        if (!deleted.empty()) deleted.pop_back();
        for (const std::string& uid : deleted) {
            add(practice::kDeletion, practice::kNames, uid, std::string(kWorkstation));
        }
    }

    SampleSizes sizes_;
    std::vector<JournalEntry> entries_;
};

void write_text(const std::string& path, const std::string& text) {
    std::ofstream file(native_path(path), std::ios::binary);
    file << text;
    if (!file.flush()) throw ToolError(ExitCode::kCannotOpen, path + ": cannot be written");
}

void write_settings(const std::string& folder) {
    write_text(folder + "/" + practice::kSettingsFile,
               "[Main]\r\nFirmName=" + std::string(kFirmName) +
                   "\r\nMyFirm=" + std::string(kFirmId) + "\r\nnServerType=0\r\nLockType=0\r\n");
    write_text(folder + "/billing/BOLink.INI", "[Setup]\r\nLinkType=CLIENT\r\n");
}

void refuse_practice(const std::string& folder) {
    for (const auto& table : {practice::kSystem, practice::kNames}) {
        if (platform::file_exists(folder + "/" + table.file + ".DBF")) {
            throw ToolError(ExitCode::kProblem,
                            folder + ": holds a practice already; left as it is");
        }
    }
}

void make_folders(const std::string& folder) {
    std::error_code error;
    for (const char* name : {"/billing", "/lawtemp"}) {
        std::filesystem::create_directories(native_path(folder + name), error);
        if (error) {
            throw ToolError(ExitCode::kCannotOpen, folder + name + ": " + reason_of(error));
        }
    }
}

std::vector<WrittenTable> write_tables(const SampleRequest& request) {
    const SampleSizes sizes{request.contacts, request.matters, request.events, request.notes};
    const std::string& folder = request.folder;
    const Columns<Contact> names = columns_of_names(request.wide);
    const JournalWriter journal(sizes, names);
    Columns<SampleSizes> system = kSystem;
    TableDefinition notes = kNotesTable;
    if (request.v14) {
        system.push_back({practice::kNewerNotesField, 'L', 1, 0,
                          [](const SampleSizes&) -> Value { return true; }});
        notes.file = practice::kNewerNotes.file;
    }
    const auto entries = static_cast<std::uint32_t>(journal.entries().size());
    return {
        write_rows(folder, kNamesTable, names, sizes, sizes.contacts, make_contact),
        write_rows(folder, kEventsTable, kEvents, sizes, sizes.events, make_event),
        write_rows(folder, kMattersTable, kMatters, sizes, sizes.matters, make_matter),
        write_rows(folder, notes, kNotes, sizes, sizes.notes, make_note),
        write_rows(folder, kCodesTable, kCodes, sizes, code_count(), make_code),
        write_rows(folder, kCrossReferenceTable, kCrossReferences, sizes, sizes.matters,
                   make_cross_reference),
        write_table(folder, kJournalTable, kJournal, entries,
                    [&](std::uint32_t i) { return journal.entries()[i]; }),
        // Last, so that an interrupted run leaves a folder that does not pass for a practice.
        write_table(folder, kSystemTable, system, 1, [&](std::uint32_t) { return sizes; }),
    };
}

void print_summary(const SampleRequest& request, const std::vector<WrittenTable>& tables) {
    if (request.json) {
        nlohmann::ordered_json summary = {{"folder", to_utf8(request.folder)}};
        for (const WrittenTable& table : tables) summary["tables"][table.file] = table.records;
        std::cout << dump(summary, 2) << "\n";
        return;
    }
    std::cout << "sample practice in " << to_line(request.folder) << "\n";
    for (const WrittenTable& table : tables) {
        std::cout << "  " << pad_right(table.file, 10) << table.records << "\n";
    }
}

}  // namespace

void make_sample(const SampleRequest& request) {
    refuse_practice(request.folder);
    make_folders(request.folder);
    write_settings(request.folder);
    print_summary(request, write_tables(request));
}

}  // namespace brenik::tools
