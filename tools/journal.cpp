// Prints the change journal: stamps as date and time, table codes as names, edits field by field.

#include "journal.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

#include "display.h"
#include "practice.h"
#include "practice/journal_entry.h"
#include "progress.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;

std::string stamp_text(std::string_view stamp) {
    if (stamp.size() != practice::kStampSize) return "no stamp";
    const auto [date, seconds] = practice::read_stamp(stamp);
    const CivilDay day = date.civil();
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", day.year, day.month, day.day,
                  seconds / 3600, seconds / 60 % 60, seconds % 60);
    return text;
}

const char* kind_word(std::string_view code) {
    if (code.starts_with(practice::kAddition)) return "added";
    if (code.starts_with(practice::kDeletion)) return "deleted";
    return code.starts_with(practice::kEdit) ? "edited" : "unknown";
}

class Journal {
  public:
    explicit Journal(const JournalRequest& request)
        : practice_(request.folder, platform::OpenMode::kReadOnly, Practice::Through::kItsEngine),
          trans_(practice_.open(practice::kJournal.file)),
          encoding_(encoding_named(request.encoding)),
          text_(trans_->layout().code_page, encoding_) {}

    RecordNumber count() { return trans_->record_count(); }
    bool deleted(RecordNumber record);
    Json entry(RecordNumber record);

  private:
    std::string bytes(const char* field);
    std::string shown(std::string_view bytes) const { return text_.shown(bytes); }
    Json edited_fields(int table_number, std::string_view data);
    std::string field_name(int table_number, std::size_t field_number);

    Practice practice_;
    std::unique_ptr<Table> trans_;
    EncodingChoice encoding_;
    TableText text_;
    std::map<int, std::vector<std::string>> field_names_;  // of the tables read so far
};

bool Journal::deleted(RecordNumber record) {
    trans_->go_to(record);
    return trans_->deleted();
}

std::string Journal::bytes(const char* field) {
    const auto& fields = trans_->layout().fields;
    const record::Field* found = trans_->layout().find(field);
    if (!found) throw ToolError(ExitCode::kProblem, trans_->path() + ": no field " + field);
    return trans_->field_get(static_cast<std::size_t>(found - fields.data()) + 1).text();
}

std::string Journal::field_name(int table_number, std::size_t field_number) {
    const auto [names, is_new] = field_names_.try_emplace(table_number);
    const practice::TableEntry* table = is_new ? practice_.find(table_number) : nullptr;
    if (table) {
        try {
            const auto opened = practice_.open(table->file);
            const TableText text(opened->layout().code_page, encoding_);
            for (const record::Field& field : opened->layout().fields) {
                names->second.push_back(text.shown(field.name));
            }
        } catch (const ToolError&) {
            // The fields of this table are printed by number.
        }
    }
    return field_number <= names->second.size() ? names->second[field_number - 1]
                                                : "field " + std::to_string(field_number);
}

Json Journal::edited_fields(int table_number, std::string_view data) {
    Json fields = Json::array();
    for (std::size_t field = 1; field <= data.size() / practice::kSlotSize; ++field) {
        const std::string_view slot = practice::slot_of(data, field);
        if (slot == std::string(practice::kSlotSize, '\0')) continue;
        fields.push_back({{"name", field_name(table_number, field)},
                          {"stamp", stamp_text(slot.substr(0, practice::kStampSize))},
                          {"workstation", shown(slot.substr(practice::kStampSize))}});
    }
    return fields;
}

Json Journal::entry(RecordNumber record) {
    trans_->go_to(record);
    const std::string code = bytes(practice::kKindField);
    const std::string table_code = bytes(practice::kTableCodeField);
    const std::string data = bytes(practice::kDataField);
    const int number = practice::area_of_code(table_code);
    const practice::TableEntry* table = practice_.find(number);
    Json entry = {{"entry", record},
                  {"stamp", stamp_text(bytes(practice::kStampField))},
                  {"kind", kind_word(code)},
                  {"table", table ? table->alias : "table " + shown(table_code)},
                  {"u_id", shown(trim_right(bytes(practice::kIdentifierField)))}};
    if (code.starts_with(practice::kDeletion)) entry["workstation"] = shown(trim_right(data));
    if (code.starts_with(practice::kEdit)) entry["fields"] = edited_fields(number, data);
    return entry;
}

void print_entry(const Json& entry) {
    const auto word = [&](const char* key) { return one_line(entry[key].get<std::string>()); };
    std::cout << word("stamp") << "  " << pad_right(word("kind"), 8) << pad_right(word("table"), 9)
              << word("u_id");
    if (entry.contains("workstation")) std::cout << "  by " << word("workstation");
    std::cout << "\n";
    if (!entry.contains("fields")) return;
    for (const Json& field : entry["fields"]) {
        std::cout << "    " << pad_right(one_line(field["name"].get<std::string>()), 11)
                  << field["stamp"].get<std::string>() << "  by "
                  << one_line(field["workstation"].get<std::string>()) << "\n";
    }
}

}  // namespace

void print_journal(const JournalRequest& request) {
    Journal journal(request);
    const RecordNumber count = journal.count();
    const RecordNumber shown = std::min(count, request.limit.value_or(count));
    ProgressBar bar("journal", Output::kListing);
    for (RecordNumber record = count - shown + 1; record <= count && std::cout; ++record) {
        bar.show("", record - (count - shown + 1), shown);
        if (journal.deleted(record)) continue;
        const Json entry = journal.entry(record);
        if (request.json) {
            std::cout << dump(entry) << "\n";
        } else {
            print_entry(entry);
        }
    }
}

}  // namespace brenik::tools
