// Identifiers are read before the counters, and the journal before the tables that it tells of:
// a session at work writes in the opposite order, so nothing of what it does just now looks wrong.

#include "practice_check.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "display.h"
#include "engine/local/field_codec.h"
#include "engine/local/record_reader.h"
#include "practice.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using local::Finding;
using local::RecordReader;
using local::RecordView;
using local::Remedy;
using local::Severity;

constexpr std::size_t kIdentifierDigits = 5;
// Identifiers that a bad day can have taken from tables and counter alike.
constexpr std::int64_t kMostLost = 10000;

struct Holder {
    std::string identifier;
    RecordNumber record;

    bool operator<(const Holder& other) const {
        return identifier != other.identifier ? identifier < other.identifier
                                              : record < other.record;
    }
};

struct Tracked {
    std::unique_ptr<RecordReader> table;
    const local::Field* field;        // U_ID
    std::vector<Holder> holders;      // by identifier
    std::vector<RecordNumber> blank;  // live records without an identifier
    std::set<std::string> late;       // identifiers that such records have by now
    bool adding = false;              // some of them are locked
};

struct Entry {
    JournalFault fields;  // in case it turns out to be one
    int table;
    bool deleted;

    const std::string& identifier() const { return fields.identifier; }
    bool is(char kind) const { return fields.kind.starts_with(kind); }
};

std::string text_of(const RecordReader& table, const RecordView& record,
                    const local::Field* field) {
    if (field == nullptr) return {};
    return read_field(record, table.layout(), *field).text();
}

bool is_blank(const std::string& text) {
    return text.find_first_not_of(std::string_view(" \0", 2)) == std::string::npos;
}

std::optional<std::int64_t> number_behind(const std::string& prefix,
                                          const std::string& identifier) {
    constexpr std::string_view kDigits =
        "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    if (identifier.size() != prefix.size() + kIdentifierDigits || !identifier.starts_with(prefix)) {
        return std::nullopt;
    }
    std::int64_t number = 0;
    for (const char digit : identifier.substr(prefix.size())) {
        const std::size_t value = kDigits.find(digit);
        if (value == std::string_view::npos) return std::nullopt;
        number =
            number * static_cast<std::int64_t>(kDigits.size()) + static_cast<std::int64_t>(value);
    }
    return number;
}

class PracticeCheck {
  public:
    PracticeCheck(std::string folder, const local::Report& report,
                  const std::set<std::string>& left_alone)
        : folder_(std::move(folder)), report_(report), left_alone_(left_alone) {}

    PracticeFaults run() {
        read_journal();
        for (const PracticeTable& table : kPracticeTables) {
            if (table.number == kSystem || table.number == kJournal) continue;
            if (looks_at(table.number)) read_table(table);
        }
        report_duplicates();
        report_entries();
        report_counters();
        return faults_;
    }

  private:
    static constexpr int kSystem = 5;
    static constexpr int kJournal = 20;

    std::unique_ptr<RecordReader> open(const char* file) const {
        return RecordReader::open(folder_ + "/" + file + ".DBF");
    }

    // Where a table comes in variants, a record may be in the one that is left alone.
    bool looks_at(int number) const {
        return std::ranges::none_of(kPracticeTables, [&](const PracticeTable& table) {
            return table.number == number && left_alone_.contains(upper(table.file));
        });
    }

    void read_journal() {
        if (!looks_at(kJournal)) return;
        journal_ = open("LawTrans");
        if (!journal_) return;
        const local::TableLayout& layout = journal_->layout();
        const local::Field* kind = layout.find("CCODE");
        const local::Field* code = layout.find("CDB");
        const local::Field* identifier = layout.find("U_ID");
        if (kind == nullptr || code == nullptr || identifier == nullptr) return;
        journal_->for_each([&](const RecordView& record) {
            Entry entry{{record.number, text_of(*journal_, record, code),
                         text_of(*journal_, record, identifier), text_of(*journal_, record, kind)},
                        0,
                        record.deleted()};
            const std::string& table = entry.fields.table_code;
            std::from_chars(table.data(), table.data() + table.size(), entry.table);
            entries_.push_back(std::move(entry));
        });
    }

    void read_table(const PracticeTable& description) {
        Tracked tracked{open(description.file), nullptr, {}, {}, {}, false};
        if (!tracked.table) return;
        tracked.field = tracked.table->layout().find("U_ID");
        if (tracked.field == nullptr) return;
        tracked.table->for_each([&](const RecordView& record) {
            std::string identifier = text_of(*tracked.table, record, tracked.field);
            if (!is_blank(identifier)) {
                tracked.holders.push_back({std::move(identifier), record.number});
            } else if (!record.deleted()) {
                tracked.blank.push_back(record.number);
            }
        });
        std::sort(tracked.holders.begin(), tracked.holders.end());
        tables_[description.number].push_back(std::move(tracked));
    }

    void report(Severity severity, const char* kind, const std::string& file, Remedy remedy,
                std::optional<RecordNumber> record, const std::string& field,
                const std::string& what) const {
        report_({severity, kind, file, what, remedy, record, field});
    }

    void report_duplicates() const {
        for (const auto& [number, variants] : tables_) {
            for (const Tracked& tracked : variants) report_duplicates(tracked);
        }
    }

    // Both records are read again: one of them may have been changed since.
    void report_duplicates(const Tracked& tracked) const {
        const auto& holders = tracked.holders;
        for (std::size_t i = 1; i < holders.size(); ++i) {
            if (holders[i].identifier != holders[i - 1].identifier) continue;
            const auto now = [&](const Holder& holder) {
                const std::vector<Byte> bytes = tracked.table->read(holder.record);
                return bytes.empty()
                           ? std::string()
                           : text_of(*tracked.table, {bytes, holder.record}, tracked.field);
            };
            if (now(holders[i]) != now(holders[i - 1])) continue;
            report(Severity::kFault, "duplicate-identifier", tracked.table->path(), Remedy::kByHand,
                   holders[i].record, "U_ID",
                   "identifier " + to_utf8(holders[i].identifier) + " is that of record " +
                       std::to_string(holders[i - 1].record) + " too");
        }
    }

    static bool has(const Tracked& tracked, const std::string& identifier) {
        const auto found =
            std::lower_bound(tracked.holders.begin(), tracked.holders.end(), Holder{identifier, 0});
        return found != tracked.holders.end() && found->identifier == identifier;
    }

    // A record just being added gets its identifier into the file after the journal has it; until
    // then it is blank, and locked. Those that were blank are looked at once more.
    static bool may_be_coming(Tracked& tracked, const std::string& identifier) {
        for (const RecordNumber record : std::exchange(tracked.blank, {})) {
            tracked.adding = tracked.adding || tracked.table->in_use(record);
            const std::vector<Byte> bytes = tracked.table->read(record);
            if (!bytes.empty()) {
                tracked.late.insert(text_of(*tracked.table, {bytes, record}, tracked.field));
            }
        }
        return tracked.adding || tracked.late.contains(identifier);
    }

    void report_entries() {
        std::vector<std::pair<int, std::string>> gone;  // deleted, as the journal itself says
        for (const Entry& entry : entries_) {
            if (entry.is('D') && !entry.deleted) {
                gone.emplace_back(entry.table, entry.identifier());
            }
        }
        std::sort(gone.begin(), gone.end());
        for (const Entry& entry : entries_) {
            const bool tells = entry.is('A') || entry.is('E');
            const auto tables = tables_.find(entry.table);
            if (!tells || entry.deleted || tables == tables_.end()) continue;
            if (std::binary_search(gone.begin(), gone.end(),
                                   std::pair(entry.table, entry.identifier()))) {
                continue;
            }
            report_if_lost(entry, tables->second);
        }
    }

    void report_if_lost(const Entry& entry, std::vector<Tracked>& variants) {
        bool coming = false;
        for (Tracked& tracked : variants) {
            if (has(tracked, entry.identifier())) return;
            coming = coming || may_be_coming(tracked, entry.identifier());
        }
        const std::string what = "tells of record " + to_utf8(entry.identifier()) + " of " +
                                 base_of(variants.front()) + ", which is not there";
        if (coming) {
            return report(Severity::kUnchecked, "record-locked", journal_->path(),
                          Remedy::kTryAgain, entry.fields.record, "",
                          what + " yet: a record is being added");
        }
        faults_.journal_entries.push_back(entry.fields);
        report(Severity::kFault, "journal-entry", journal_->path(), Remedy::kRepair,
               entry.fields.record, "", what);
    }

    static std::string base_of(const Tracked& tracked) {
        const std::string& path = tracked.table->path();
        return path.substr(path.find_last_of("\\/") + 1);
    }

    void report_counters() {
        if (!looks_at(kSystem)) return;
        const std::unique_ptr<RecordReader> system = open("LAWSYS");
        if (!system) return;
        const std::vector<Byte> bytes = system->read(1);
        if (bytes.empty() || system->count() == 0) {
            return report(Severity::kFault, "no-counters", system->path(), Remedy::kRestore, 1, "",
                          "the record with the counters is not there");
        }
        const RecordView record{bytes, 1};
        const std::string prefix = text_of(*system, record, system->layout().find("MYUDN"));
        for (const auto& [number, variants] : tables_) {
            const std::string name = "U_ID" + std::to_string(number);
            const local::Field* field = system->layout().find(name);
            if (field == nullptr) continue;
            const std::int64_t counter = read_field(record, system->layout(), *field).whole();
            const std::int64_t largest = largest_in_use(number, variants, prefix, counter);
            if (counter >= largest) continue;
            faults_.counters.push_back({name, largest});
            report(Severity::kFault, "counter-behind", system->path(), Remedy::kRepair, 1, name,
                   "the counter is " + std::to_string(counter) + ", identifiers up to " +
                       std::to_string(largest) + " are in use and would be issued again");
        }
    }

    // In the tables and, for records that are lost or gone, in the journal: what it once told of
    // has been issued, whatever became of the record and of the entry. An entry alone is no ground
    // for using up the counter's range: far beyond all others it is taken for a damaged one.
    std::int64_t largest_in_use(int number, const std::vector<Tracked>& variants,
                                const std::string& prefix, std::int64_t counter) const {
        std::int64_t largest = 0;
        for (const Tracked& tracked : variants) {
            for (const Holder& holder : tracked.holders) {
                largest = std::max(largest, number_behind(prefix, holder.identifier).value_or(0));
            }
        }
        const std::int64_t credible = std::max(largest, counter) + kMostLost;
        for (const Entry& entry : entries_) {
            const std::int64_t issued = number_behind(prefix, entry.identifier()).value_or(0);
            if (entry.table == number && issued <= credible) largest = std::max(largest, issued);
        }
        return largest;
    }

    std::string folder_;
    const local::Report& report_;
    const std::set<std::string>& left_alone_;
    std::unique_ptr<RecordReader> journal_;
    std::vector<Entry> entries_;
    std::map<int, std::vector<Tracked>> tables_;
    PracticeFaults faults_;
};

}  // namespace

PracticeFaults check_practice(const std::string& folder, const local::Report& report,
                              const std::set<std::string>& left_alone) {
    return PracticeCheck(folder, report, left_alone).run();
}

}  // namespace brenik::tools
