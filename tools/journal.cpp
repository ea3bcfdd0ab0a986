// Reading the change journal: stamps as date and time, table codes as names, edits field by field.
//
// A stamp is four bytes: days since 31 December 1997, then two-second units since midnight, both
// most significant byte first. An edit's data has six bytes for each field of the edited table, in
// field order: the stamp of the last change and the two characters of the workstation.

#include "journal.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

#include "display.h"
#include "practice.h"
#include "util/bytes.h"
#include "util/date.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kStampSize = 4;
constexpr std::size_t kSlotSize = 6;

struct Kind {
    char code;
    const char* word;
};
constexpr Kind kKinds[] = {{'A', "added"}, {'D', "deleted"}, {'E', "edited"}};

std::string stamp_text(std::string_view stamp) {
    if (stamp.size() != kStampSize) return "no stamp";
    const Byte* bytes = as_bytes(stamp).data();
    const int seconds = 2 * load_be16(bytes + 2);
    const int base_day = Date::from_civil(1997, 12, 31).julian_day();
    const CivilDay day = Date(base_day + load_be16(bytes)).civil();
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", day.year, day.month, day.day,
                  seconds / 3600, seconds / 60 % 60, seconds % 60);
    return text;
}

const char* kind_word(char code) {
    const auto* kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                    [&](const Kind& each) { return each.code == code; });
    return kind == std::end(kKinds) ? "unknown" : kind->word;
}

class Journal {
  public:
    explicit Journal(const std::string& folder)
        : practice_(folder, platform::OpenMode::kReadOnly), trans_(practice_.open("LawTrans")) {}

    RecordNumber count() { return trans_.table->record_count(); }
    bool deleted(RecordNumber record);
    Json entry(RecordNumber record);

  private:
    std::string text(const char* field);
    Json edited_fields(int table_number, std::string_view data);
    std::string field_name(int table_number, std::size_t slot);

    Practice practice_;
    OpenedTable trans_;
    std::map<int, std::vector<std::string>> field_names_;  // of the tables met so far
};

bool Journal::deleted(RecordNumber record) {
    trans_.table->go_to(record);
    return trans_.table->deleted();
}

std::string Journal::text(const char* field) {
    const auto& fields = trans_.layout.fields;
    const record::Field* found = trans_.layout.find(field);
    if (!found) throw ToolError(ExitCode::kProblem, trans_.path + ": no field " + field);
    return trans_.table->field_get(static_cast<std::size_t>(found - fields.data()) + 1).text();
}

std::string Journal::field_name(int table_number, std::size_t slot) {
    const auto [names, is_new] = field_names_.try_emplace(table_number);
    const PracticeTable* table = is_new ? practice_.find(table_number) : nullptr;
    if (table) {
        try {
            const OpenedTable opened = practice_.open(table->file);
            for (const record::Field& field : opened.layout.fields) {
                names->second.push_back(field.name);
            }
        } catch (const ToolError&) {
            // Its fields go by their numbers.
        }
    }
    return slot < names->second.size() ? names->second[slot] : "field " + std::to_string(slot + 1);
}

Json Journal::edited_fields(int table_number, std::string_view data) {
    Json fields = Json::array();
    for (std::size_t slot = 0; (slot + 1) * kSlotSize <= data.size(); ++slot) {
        const std::string_view bytes = data.substr(slot * kSlotSize, kSlotSize);
        if (bytes == std::string_view("\0\0\0\0\0\0", kSlotSize)) continue;
        fields.push_back({{"name", field_name(table_number, slot)},
                          {"stamp", stamp_text(bytes.substr(0, kStampSize))},
                          {"workstation", to_utf8(bytes.substr(kStampSize))}});
    }
    return fields;
}

Json Journal::entry(RecordNumber record) {
    trans_.table->go_to(record);
    const std::string code = text("CCODE");
    const std::string table_code = text("CDB");
    const std::string data = text("CDATA");
    int number = 0;
    std::from_chars(table_code.data(), table_code.data() + table_code.size(), number);
    const PracticeTable* table = practice_.find(number);
    const char kind = code.empty() ? ' ' : code[0];
    Json entry = {{"entry", record},
                  {"stamp", stamp_text(text("CDT"))},
                  {"kind", kind_word(kind)},
                  {"table", table ? table->alias : "table " + to_utf8(table_code)},
                  {"u_id", to_utf8(trim_right(text("U_ID")))}};
    if (kind == 'D') entry["workstation"] = to_utf8(trim_right(data));
    if (kind == 'E') entry["fields"] = edited_fields(number, data);
    return entry;
}

void print_entry(const Json& entry) {
    const auto word = [&](const char* key) { return entry[key].get<std::string>(); };
    std::cout << word("stamp") << "  " << pad_right(word("kind"), 8) << pad_right(word("table"), 9)
              << word("u_id");
    if (entry.contains("workstation")) std::cout << "  by " << word("workstation");
    std::cout << "\n";
    if (!entry.contains("fields")) return;
    for (const Json& field : entry["fields"]) {
        std::cout << "    " << pad_right(field["name"].get<std::string>(), 11)
                  << field["stamp"].get<std::string>() << "  by "
                  << field["workstation"].get<std::string>() << "\n";
    }
}

}  // namespace

void print_journal(const JournalRequest& request) {
    Journal journal(request.folder);
    const RecordNumber count = journal.count();
    const RecordNumber shown = std::min(count, request.limit.value_or(count));
    for (RecordNumber record = count - shown + 1; record <= count; ++record) {
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
