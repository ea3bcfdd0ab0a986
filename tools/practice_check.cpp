// Reads identifiers before the counters, and the journal before the tables that it names. A session
// at work writes in the opposite order, so few of its half-done changes look wrong.
//
// Suspects are checked again, table first and journal last. By then a record that was being added
// is in the table, or is blank and locked. If a record was deleted and another one has taken its
// place, the journal has its entry "D", because that is written before the place is free.

#include "practice_check.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "display.h"
#include "engine/maintenance/check_index.h"
#include "engine/maintenance/record_reader.h"
#include "findings.h"
#include "practice/catalogue.h"
#include "practice/identifiers.h"
#include "practice/journal_entry.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using maintenance::RecordReader;
using maintenance::Remedy;
using maintenance::Severity;
using record::RecordView;

// Upper bound on identifiers that one failure can have removed from tables and counter alike.
constexpr std::int64_t kMostLost = 10000;

struct Holder {
    std::string identifier;
    RecordNumber record;
    bool deleted;

    bool operator<(const Holder& other) const {
        return identifier != other.identifier ? identifier < other.identifier
                                              : record < other.record;
    }
};

struct Tracked {
    std::unique_ptr<RecordReader> table;
    const record::Field* field;   // U_ID
    std::vector<Holder> holders;  // by identifier
};

struct Entry {
    JournalFault fields;  // reported if the entry is a fault
    int table;
    bool deleted;

    const std::string& identifier() const { return fields.identifier; }
    bool is(std::string_view kind) const { return fields.kind.starts_with(kind); }
    bool operator==(const Entry&) const = default;
};

// Table number and identifier.
using Named = std::pair<int, std::string>;

Named name_of(const Entry& entry) { return {entry.table, entry.identifier()}; }

// Result of the second check of tables and journal.
struct SecondLook {
    std::set<Named> there;
    std::set<int> adding;                  // tables with a locked record that has no identifier yet
    std::map<int, RecordNumber> nameless;  // by table, an unlocked record without identifier
    std::vector<Entry> entries;
    std::set<Named> gone;       // deleted, according to the journal
    std::set<Named> once_gone;  // deleted, according to a journal entry that was itself deleted
};

std::string text_of(const RecordReader& table, const RecordView& record,
                    const record::Field* field) {
    if (field == nullptr) return {};
    return table.value(record, *field).text();
}

bool is_blank(const std::string& text) {
    return text.find_first_not_of(std::string_view(" \0", 2)) == std::string::npos;
}

class PracticeCheck {
  public:
    PracticeCheck(const std::vector<std::string>& folders, const maintenance::Report& report,
                  const maintenance::Progress& progress, const std::set<std::string>& left_alone,
                  EncodingChoice encoding)
        : folders_(folders),
          report_(report),
          progress_(progress),
          left_alone_(left_alone),
          encoding_(encoding) {}

    PracticeFaults run() {
        read_system();
        entries_ = read_journal();
        for (const practice::TableEntry& table : practice::kTables) {
            const bool tracked =
                table.area != practice::kSystem.area && table.area != practice::kJournal.area;
            if (tracked && looks_at(table.area)) read_table(table);
        }
        report_duplicates();
        report_entries();
        report_unknown();
        report_counters();
        return faults_;
    }

  private:
    std::unique_ptr<RecordReader> open(const char* file) const {
        for (const std::string& folder : folders_) {
            if (auto table = RecordReader::open(folder + "/" + file + ".DBF")) return table;
        }
        return nullptr;
    }

    // Any variant of a table that is left alone rules out all of them: a record may be in that one.
    bool looks_at(int number) const {
        return std::ranges::none_of(practice::kTables, [&](const auto& table) {
            return table.area == number && left_alone_.contains(upper(table.file));
        });
    }

    void read_system() {
        if (!looks_at(practice::kSystem.area)) return;
        system_ = open(practice::kSystem.file);
        if (!system_) return;
        const std::vector<Byte> bytes = system_->read(1);
        if (bytes.empty() || system_->count() == 0) {
            report(Severity::kFault, "no-counters", system_->path(), Remedy::kRestore, 1, "",
                   "the record with the counters is missing");
            return system_.reset();
        }
        prefix_ = text_of(*system_, {bytes, 1}, system_->layout().find(practice::kPrefixField));
        const record::Field* tracks = system_->layout().find(practice::kTracksField);
        tracks_ = tracks != nullptr && system_->value({bytes, 1}, *tracks).logical();
    }

    // The counter's current value; empty if there is no such counter.
    std::optional<std::int64_t> counter(int table) const {
        if (!system_) return {};
        const record::Field* field = system_->layout().find(practice::counter_field(table));
        const std::vector<Byte> bytes = system_->read(1);
        if (field == nullptr || bytes.empty()) return {};
        return system_->value({bytes, 1}, *field).whole();
    }

    // 0 for an identifier that this practice has not issued.
    std::int64_t issued_number(const std::string& identifier) const {
        return practice::number_of(prefix_, identifier).value_or(0);
    }

    template <typename Use>
    void read_records(const RecordReader& table, const Use& use) const {
        constexpr RecordNumber kBetween = 4096;  // two reports
        const RecordNumber count = table.count();
        table.for_each([&](const RecordView& record) {
            if (progress_ && record.number % kBetween == 0) {
                progress_(base_name(table.path()), record.number, count);
            }
            use(record);
        });
    }

    std::vector<Entry> read_journal() {
        std::vector<Entry> entries;
        if (!looks_at(practice::kJournal.area)) return entries;
        if (!journal_) journal_ = open(practice::kJournal.file);
        if (!journal_) return entries;
        const record::TableLayout& layout = journal_->layout();
        const record::Field* kind = layout.find(practice::kKindField);
        const record::Field* code = layout.find(practice::kTableCodeField);
        const record::Field* identifier = layout.find(practice::kIdentifierField);
        if (kind == nullptr || code == nullptr || identifier == nullptr) return entries;
        read_records(*journal_, [&](const RecordView& record) {
            Entry entry{{record.number, text_of(*journal_, record, code),
                         text_of(*journal_, record, identifier), text_of(*journal_, record, kind)},
                        0,
                        record.deleted()};
            entry.table = practice::area_of_code(entry.fields.table_code);
            entries.push_back(std::move(entry));
        });
        return entries;
    }

    void read_table(const practice::TableEntry& description) {
        Tracked tracked{open(description.file), nullptr, {}};
        if (!tracked.table) return;
        tracked.field = tracked.table->layout().find(practice::kIdentifierField);
        if (tracked.field == nullptr) return;
        read_records(*tracked.table, [&](const RecordView& record) {
            std::string identifier = text_of(*tracked.table, record, tracked.field);
            if (is_blank(identifier)) return;
            tracked.holders.push_back({std::move(identifier), record.number, record.deleted()});
        });
        std::sort(tracked.holders.begin(), tracked.holders.end());
        tables_[description.area].push_back(std::move(tracked));
    }

    std::string shown(const RecordReader& table, const std::string& identifier) const {
        return TableText(table.layout().code_page, encoding_).shown(identifier);
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

    // Reads both records again: one of them may have changed since.
    void report_duplicates(const Tracked& tracked) const {
        const auto& holders = tracked.holders;
        for (std::size_t i = 1; i < holders.size(); ++i) {
            if (holders[i].identifier != holders[i - 1].identifier) continue;
            if (!still_holds(tracked, holders[i]) || !still_holds(tracked, holders[i - 1]))
                continue;
            report(Severity::kFault, "duplicate-identifier", tracked.table->path(), Remedy::kByHand,
                   holders[i].record, practice::kIdentifierField,
                   "identifier " + shown(*tracked.table, holders[i].identifier) +
                       " also belongs to record " + std::to_string(holders[i - 1].record));
        }
    }

    static std::string identifier_now(const Tracked& tracked, RecordNumber record) {
        const std::vector<Byte> bytes = tracked.table->read(record);
        return bytes.empty() ? std::string()
                             : text_of(*tracked.table, {bytes, record}, tracked.field);
    }
    static bool still_holds(const Tracked& tracked, const Holder& holder) {
        return identifier_now(tracked, holder.record) == holder.identifier;
    }

    static bool has(const Tracked& tracked, const std::string& identifier) {
        const auto found = std::lower_bound(tracked.holders.begin(), tracked.holders.end(),
                                            Holder{identifier, 0, false});
        return found != tracked.holders.end() && found->identifier == identifier;
    }

    void report_entries() {
        const std::set<Named> gone = named_by(entries_, practice::kDeletion, false);
        std::vector<Entry> suspects;
        for (const Entry& entry : entries_) {
            const bool tells =
                !entry.deleted && (entry.is(practice::kAddition) || entry.is(practice::kEdit));
            const auto variants = tables_.find(entry.table);
            if (!tells || variants == tables_.end() || gone.contains(name_of(entry))) continue;
            if (std::ranges::none_of(variants->second, [&](const Tracked& tracked) {
                    return has(tracked, entry.identifier());
                })) {
                suspects.push_back(entry);
            }
        }
        if (suspects.empty()) return;
        const SecondLook look = look_again(suspects);
        for (const Entry& entry : suspects) report_if_lost(entry, look);
    }

    static std::set<Named> named_by(const std::vector<Entry>& entries, std::string_view kind,
                                    bool deleted) {
        std::set<Named> named;
        for (const Entry& entry : entries) {
            if (entry.is(kind) && entry.deleted == deleted) named.insert(name_of(entry));
        }
        return named;
    }

    // Includes entries that are marked deleted.
    static std::set<Named> added_by(const std::vector<Entry>& entries) {
        std::set<Named> named = named_by(entries, practice::kAddition, false);
        named.merge(named_by(entries, practice::kAddition, true));
        return named;
    }

    SecondLook look_again(const std::vector<Entry>& suspects) {
        SecondLook look;
        std::set<int> tables;
        for (const Entry& entry : suspects) tables.insert(entry.table);
        for (const int number : tables) {
            for (Tracked& tracked : tables_[number]) look_again(number, tracked, look);
        }
        look.entries = read_journal();
        look.gone = named_by(look.entries, practice::kDeletion, false);
        look.once_gone = named_by(look.entries, practice::kDeletion, true);
        return look;
    }

    // A blank record is locked while it is being added. Once it is unlocked, it has its identifier.
    void look_again(int number, Tracked& tracked, SecondLook& look) const {
        std::vector<RecordNumber> blank;
        read_records(*tracked.table, [&](const RecordView& record) {
            std::string identifier = text_of(*tracked.table, record, tracked.field);
            if (!is_blank(identifier)) {
                look.there.emplace(number, std::move(identifier));
            } else if (!record.deleted()) {
                blank.push_back(record.number);
            }
        });
        for (const RecordNumber record : blank) {
            const bool in_use = tracked.table->in_use(record);
            std::string identifier = identifier_now(tracked, record);
            if (!is_blank(identifier)) {
                look.there.emplace(number, std::move(identifier));
            } else if (in_use) {
                look.adding.insert(number);
            } else {
                look.nameless.emplace(number, record);
            }
        }
    }

    void report_if_lost(const Entry& entry, const SecondLook& look) {
        const RecordNumber record = entry.fields.record;
        const bool same = record <= look.entries.size() && look.entries[record - 1] == entry;
        const Named named = name_of(entry);
        if (!same || look.there.contains(named) || look.gone.contains(named)) return;
        const std::string what = "names record " + shown(*journal_, entry.identifier()) + " of " +
                                 base_of(tables_[entry.table].front()) + ", ";
        const auto say = [&](Severity severity, const char* kind, Remedy remedy,
                             const std::string& which) {
            report(severity, kind, journal_->path(), remedy, record, "", what + which);
        };
        if (look.adding.contains(entry.table) || journal_->in_use(record)) {
            return say(Severity::kUnchecked, "record-locked", Remedy::kTryAgain,
                       "which another program may be adding");
        }
        if (look.once_gone.contains(named) || may_be_recycled(entry)) {
            return say(Severity::kNote, "journal-recycled", Remedy::kNothing,
                       "which was deleted; another record may have its place");
        }
        if (const auto nameless = look.nameless.find(entry.table);
            nameless != look.nameless.end()) {
            return say(Severity::kNote, "journal-nameless", Remedy::kByHand,
                       "and no record has that identifier; it may belong to record " +
                           std::to_string(nameless->second) + ", which has none");
        }
        faults_.journal_entries.push_back(entry.fields);
        say(Severity::kFault, "journal-entry", Remedy::kRepair, "which does not exist");
    }

    // Programs reuse the place of a deleted record if an order of deleted records leads to it. An
    // identifier that, by all evidence, was never issued never had a place.
    bool may_be_recycled(const Entry& entry) {
        const std::vector<Tracked>& variants = tables_[entry.table];
        if (std::ranges::none_of(variants, recycles)) return false;
        const std::optional<std::int64_t> last = counter(entry.table);
        const std::int64_t number = issued_number(entry.identifier());
        return !last || number <= std::max(*last, largest_held(variants));
    }

    static bool recycles(const Tracked& tracked) {
        const auto tags = maintenance::tag_names(tracked.table->path());
        return !tags || std::ranges::any_of(*tags, [](const std::string& tag) {
            return tag.starts_with("DELETED");
        });
    }

    // Finds records that a program has added without a journal entry, although the journal has an
    // older addition of this practice: a reader of the journal would take it as complete from there
    // on.
    void report_unknown() {
        if (!tracks_ || !journal_) return;
        std::vector<Unknown> unknown;
        const std::set<Named> live = named_by(entries_, practice::kAddition, false);
        std::set<Named> told = added_by(entries_);
        for (auto& [number, variants] : tables_) {
            const std::optional<std::int64_t> lowest = lowest_of(number, live);
            if (!lowest) continue;
            for (Tracked& tracked : variants) add_unknown(number, tracked, *lowest, told, unknown);
        }
        if (unknown.empty()) return;
        // Reads the journal again: a record that is no longer locked has its entry by now.
        told = added_by(read_journal());
        for (const Unknown& each : unknown) {
            if (told.contains({each.table, each.holder->identifier})) continue;
            report(Severity::kNote, "not-in-journal", each.tracked->table->path(), Remedy::kTell,
                   each.holder->record, practice::kIdentifierField,
                   "the journal has no entry for the addition of " +
                       shown(*each.tracked->table, each.holder->identifier) +
                       ", though it has older ones");
        }
    }

    struct Unknown {
        int table;
        const Tracked* tracked;
        const Holder* holder;
    };

    std::optional<std::int64_t> lowest_of(int table, const std::set<Named>& live) const {
        std::optional<std::int64_t> lowest;
        for (const auto& [number, identifier] : live) {
            const auto issued = practice::number_of(prefix_, identifier);
            if (number == table && issued) lowest = std::min(lowest.value_or(*issued), *issued);
        }
        return lowest;
    }

    static bool is_live(const Tracked& tracked, const Holder& holder) {
        const std::vector<Byte> bytes = tracked.table->read(holder.record);
        const RecordView record{bytes, holder.record};
        return !bytes.empty() && !record.deleted() &&
               text_of(*tracked.table, record, tracked.field) == holder.identifier;
    }

    void add_unknown(int number, Tracked& tracked, std::int64_t lowest, const std::set<Named>& told,
                     std::vector<Unknown>& unknown) const {
        for (const Holder& holder : tracked.holders) {
            const std::int64_t issued = issued_number(holder.identifier);
            if (holder.deleted || issued <= lowest) continue;
            if (told.contains({number, holder.identifier})) continue;
            if (tracked.table->in_use(holder.record) || !is_live(tracked, holder)) continue;
            unknown.push_back({number, &tracked, &holder});
        }
    }

    static std::string base_of(const Tracked& tracked) {
        const std::string& path = tracked.table->path();
        return path.substr(path.find_last_of("\\/") + 1);
    }

    void report_counters() {
        for (const auto& [number, variants] : tables_) {
            const std::optional<std::int64_t> last = counter(number);
            if (!last) continue;
            const std::string name = practice::counter_field(number);
            const std::int64_t largest = largest_in_use(number, variants, *last);
            if (*last >= largest) continue;
            faults_.counters.push_back({name, largest});
            report(Severity::kFault, "counter-behind", system_->path(), Remedy::kRepair, 1, name,
                   "the counter is " + std::to_string(*last) + ", identifiers up to " +
                       std::to_string(largest) + " are in use and would be issued again");
        }
    }

    std::int64_t largest_held(const std::vector<Tracked>& variants) const {
        std::int64_t largest = 0;
        for (const Tracked& tracked : variants) {
            for (const Holder& holder : tracked.holders) {
                largest = std::max(largest, issued_number(holder.identifier));
            }
        }
        return largest;
    }

    // The largest identifier in the tables and, for records that are lost or deleted, in the
    // journal: an identifier in an entry was issued, whatever became of the record and the entry.
    // One entry alone must not use up the counter's range, so an identifier far above all others
    // counts as damaged.
    std::int64_t largest_in_use(int number, const std::vector<Tracked>& variants,
                                std::int64_t counter) const {
        std::int64_t largest = largest_held(variants);
        const std::int64_t credible = std::max(largest, counter) + kMostLost;
        for (const Entry& entry : entries_) {
            const std::int64_t issued = issued_number(entry.identifier());
            if (entry.table == number && issued <= credible) largest = std::max(largest, issued);
        }
        return largest;
    }

    const std::vector<std::string>& folders_;
    const maintenance::Report& report_;
    const maintenance::Progress& progress_;
    const std::set<std::string>& left_alone_;
    EncodingChoice encoding_;
    std::unique_ptr<RecordReader> system_;
    std::string prefix_;   // of the identifiers that this practice issues
    bool tracks_ = false;  // whether the practice tracks changes in the journal
    std::unique_ptr<RecordReader> journal_;
    std::vector<Entry> entries_;
    std::map<int, std::vector<Tracked>> tables_;
    PracticeFaults faults_;
};

}  // namespace

PracticeFaults check_practice(const std::vector<std::string>& folders,
                              const maintenance::Report& report,
                              const maintenance::Progress& progress,
                              const std::set<std::string>& left_alone, EncodingChoice encoding) {
    return PracticeCheck(folders, report, progress, left_alone, encoding).run();
}

}  // namespace brenik::tools
