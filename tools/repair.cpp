// Repairs tables one by one, then what they say about each other.

#include "repair.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <system_error>

#include "check.h"
#include "colours.h"
#include "display.h"
#include "engine/maintenance/check_index.h"
#include "engine/maintenance/check_table.h"
#include "engine/maintenance/repair_table.h"
#include "engine/maintenance/table_copies.h"
#include "findings.h"
#include "native_path.h"
#include "practice/journal_entry.h"
#include "practice_check.h"
#include "progress.h"
#include "reason.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;
using maintenance::RepairResult;
using maintenance::RepairStep;

using RepairTable = RepairResult (*)(const std::string&, const maintenance::RepairOptions&,
                                     const maintenance::RepairReport&,
                                     const maintenance::Progress&);

[[noreturn]] void refuse_tag(const std::string& text) {
    throw ToolError(
        ExitCode::kUsage,
        "--tag " + text + ": expected NAME=KEY[;FOR CONDITION][;UNIQUE][;CANDIDATE][;DESCENDING]");
}

void add_clause(make::TagDefinition& tag, const std::string& clause, const std::string& text) {
    const std::string word = upper(trim_both(clause));
    if (word.starts_with("FOR ")) {
        tag.condition = trim_both(clause).substr(4);
    } else if (word == "UNIQUE") {
        tag.unique = true;
    } else if (word == "CANDIDATE") {
        tag.candidate = true;
    } else if (word == "DESCENDING") {
        tag.descending = true;
    } else {
        refuse_tag(text);
    }
}

make::TagDefinition parse_tag(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) refuse_tag(text);
    make::TagDefinition tag;
    tag.name = upper(trim_both(text.substr(0, equals)));
    std::size_t end = std::min(text.find(';', equals), text.size());
    tag.key = trim_both(text.substr(equals + 1, end - equals - 1));
    while (end < text.size()) {
        const std::size_t next = std::min(text.find(';', end + 1), text.size());
        add_clause(tag, text.substr(end + 1, next - end - 1), text);
        end = next;
    }
    if (tag.key.empty()) refuse_tag(text);
    return tag;
}

// A temporary folder for this run, removed by the destructor.
class TrialFolder {
  public:
    TrialFolder() {
        namespace fs = std::filesystem;
        const std::string stem = (fs::temp_directory_path() / "brenik-dry-run-").string();
        int number = 0;
        do {
            path_ = native_path(stem + std::to_string(++number));
        } while (!fs::create_directory(path_));
        fs::permissions(path_, fs::perms::owner_all);
    }
    ~TrialFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TrialFolder(const TrialFolder&) = delete;
    TrialFolder& operator=(const TrialFolder&) = delete;

    std::string path() const { return path_.string(); }

  private:
    std::filesystem::path path_;
};

struct RepairedTable {
    std::string path;
    RepairResult outcome;

    // The file's name in the form that check_practice expects.
    std::string name() const {
        const std::string file = base_name(path);
        return upper(file.substr(0, file.find_last_of('.')));
    }
    // True if the table's records are reliable. Checks a table that was in use, because that has
    // not been done yet.
    bool is_settled() const {
        if (outcome != RepairResult::kInUse) {
            return outcome == RepairResult::kWhole || outcome == RepairResult::kNothingToDo;
        }
        ProgressBar bar(base_name(path));
        const maintenance::CheckedTable found = maintenance::check_table(
            path, [](const maintenance::Finding&) {}, bar.progress());
        return found.faults + found.unchecked == 0;
    }
};

TableText text_of(const NamedTables& table) {
    Practice practice(table.folder, platform::OpenMode::kReadOnly, Practice::Through::kFiles);
    return TableText(practice.open_file(table.file())->layout().code_page);
}

// The tag with its texts in the code page of the table. They come in UTF-8, or in the code page of
// the table `source`.
make::TagDefinition in_code_page(make::TagDefinition tag, const NamedTables& table,
                                 const NamedTables* source = nullptr) {
    const auto is_ascii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    const std::array<std::string*, 3> texts{&tag.name, &tag.key, &tag.condition};
    const auto needs_no_page = [&](const std::string* each) {
        return std::ranges::all_of(*each, is_ascii);
    };
    if (std::ranges::all_of(texts, needs_no_page)) return tag;
    const TableText text = text_of(table);
    std::optional<TableText> from;
    if (source) from.emplace(text_of(*source));
    if (from && from->code_page() == text.code_page()) return tag;
    for (std::string* each : texts) {
        const std::string utf8 = from ? from->shown(*each) : *each;
        auto bytes = text.bytes_of(utf8);
        if (!bytes) {
            throw ToolError(source ? ExitCode::kProblem : ExitCode::kUsage,
                            std::string(source ? "--like" : "--tag") + ": code page " +
                                std::to_string(text.code_page()) + " has no \"" + utf8 + "\"");
        }
        *each = *std::move(bytes);
    }
    return tag;
}

bool is_of_practice(const RepairedTable& table) {
    return std::ranges::any_of(practice::kTables,
                               [&](const auto& each) { return upper(each.file) == table.name(); });
}

class PracticeRepair {
  public:
    explicit PracticeRepair(const RepairRequest& request)
        : request_(request), named_(find_tables(request.where)) {
        options_.backup_folder = request.backup;
        options_.force = request.force;
        options_.without_memos = request.without_memos;
        const bool for_one = !request.tags.empty() || !request.like.empty();
        if (for_one && named_.files.size() != 1) {
            throw ToolError(ExitCode::kUsage, "--tag and --like need a single table");
        }
        for (const std::string& tag : request.tags) {
            options_.tags.push_back(in_code_page(parse_tag(tag), named_));
        }
        if (!request.like.empty()) options_.like = tags_like(request.like);
        if (request.dry_run) make_trial();
        if (request.backup.empty()) return;
        namespace fs = std::filesystem;
        std::error_code error;
        if (!request.dry_run) {
            fs::create_directories(native_path(request.backup), error);
        } else if (const fs::path backup = native_path(request.backup);
                   fs::exists(backup) && !fs::is_directory(backup)) {
            error = std::make_error_code(std::errc::not_a_directory);
        }
        if (error) {
            throw ToolError(ExitCode::kCannotOpen, request.backup + ": " + reason_of(error));
        }
    }

    void repair_tables(RepairTable repair_one) {
        const std::string& first = named_.file();
        folder_ = first.substr(0, first.size() - base_name(first).size());
        for (const std::string& table : named_.files) {
            ProgressBar bar(base_name(table));
            const maintenance::RepairReport report = [&](const RepairStep& step) {
                bar.clear();
                print(step);
            };
            const RepairResult outcome = repair_one(table, options_, report, bar.progress());
            note(outcome);
            repaired_.push_back({table, outcome});
        }
    }

    // Repairs counters and journal entries while other programs may continue to work. Leaves alone
    // what depends on a table that is still damaged, because repairing that may bring records back.
    void repair_practice() {
        if (!named_.is_practice()) return;
        ProgressBar bar("identifiers");
        const PracticeFaults faults = check_practice(
            trial_ ? std::vector{trial_->path(), named_.folder} : std::vector{named_.folder},
            [&](const maintenance::Finding& found) {
                if (found.severity != maintenance::Severity::kFault) return;
                if (found.remedy != maintenance::Remedy::kByHand) return;
                bar.clear();
                print({false, found.file, found.what + "; this needs a decision by hand",
                       found.record});
                note(RepairResult::kPartly);
            },
            bar.progress(), leave_alone());
        bar.clear();
        try {
            if (!faults.counters.empty()) raise_counters(faults.counters);
            if (!faults.journal_entries.empty()) remove_entries(faults.journal_entries);
        } catch (const ToolError& error) {
            print({false, named_.folder, error.what()});
            note(result_of(error.code()));
        } catch (const EngineFault& fault) {
            print({false, named_.folder, fault.what()});
            note(result_of(exit_code_of(fault)));
        }
    }

    ExitCode finish() const {
        if (request_.json) {
            Json summary{{"summary", to_utf8(request_.where.text())},
                         {"done", trial_ ? 0 : done_},
                         {"left", left_}};
            if (trial_) summary["would_do"] = done_;
            std::cout << dump(summary) << "\n";
        } else if (done_ + left_ == 0) {
            std::cout << to_line(request_.where.text()) << ": nothing to repair\n";
        }
        if (partly_) return ExitCode::kProblem;
        if (cannot_open_) return ExitCode::kCannotOpen;
        if (!in_use_) return ExitCode::kOk;
        tell_of_server(named_.folder);
        return ExitCode::kLocked;
    }

  private:
    static RepairResult result_of(ExitCode code) {
        if (code == ExitCode::kLocked) return RepairResult::kInUse;
        return code == ExitCode::kCannotOpen ? RepairResult::kCannotOpen : RepairResult::kPartly;
    }

    // `like` names a table, or a folder that has a table with the name of ours.
    std::vector<make::TagDefinition> tags_like(const std::string& like) const {
        NamedTables other = find_tables({like});
        if (other.whole_folder) other = find_table({like, base_name(named_.file())});
        try {
            auto tags = maintenance::tag_definitions(other.file());
            for (auto& tag : tags) tag = in_code_page(std::move(tag), named_, &other);
            return tags;
        } catch (const EngineFault& fault) {
            throw ToolError(exit_code_of(fault), "--like " + like + ": " + fault.what());
        }
    }

    void make_trial() {
        try {
            trial_.emplace();
        } catch (const std::filesystem::filesystem_error& error) {
            throw ToolError(ExitCode::kCannotOpen,
                            "temporary folder for the dry run: " + reason_of(error));
        }
        options_.trial_folder = trial_->path();
    }

    // Replaces the paths of copies by those of the originals.
    std::string with_true_names(std::string text) const {
        if (!trial_) return text;
        constexpr auto kSeparator = static_cast<char>(std::filesystem::path::preferred_separator);
        const std::string copied = trial_->path() + kSeparator;
        for (std::size_t at = 0; (at = text.find(copied, at)) != std::string::npos;) {
            text.replace(at, copied.size(), folder_);
            at += folder_.size();
        }
        return text;
    }

    void print(const RepairStep& step) {
        ++(step.done ? done_ : left_);
        const std::string file = with_true_names(step.file);
        const std::string what = with_true_names(step.what);
        if (request_.json) {
            Json line = {{"done", step.done && !trial_},
                         {"file", to_utf8(file)},
                         {"record", nullptr},
                         {"what", to_utf8(what)}};
            if (trial_) line["would_do"] = step.done;
            if (step.record) line["record"] = *step.record;
            std::cout << dump(line) << "\n";
            return;
        }
        std::cout << (!step.done ? coloured(Colour::kFault, "not repaired:") + " "
                      : trial_   ? "would do: "
                                 : "")
                  << to_line(base_name(file)) << ": ";
        if (step.record) std::cout << "record " << *step.record << ": ";
        std::cout << to_line(what) << "\n";
    }

    void note(RepairResult outcome) {
        partly_ = partly_ || outcome == RepairResult::kPartly;
        cannot_open_ = cannot_open_ || outcome == RepairResult::kCannotOpen;
        in_use_ = in_use_ || outcome == RepairResult::kInUse;
    }

    // Reports each table that is still not sound, and returns their names.
    std::set<std::string> leave_alone() {
        std::set<std::string> names;
        for (const RepairedTable& table : repaired_) {
            if (!is_of_practice(table) || table.is_settled()) continue;
            names.insert(table.name());
            print({false, table.path,
                   "not compared with the counters and the journal until it is repaired"});
        }
        return names;
    }

    // The folder whose records to change: in a dry run, the one with a copy.
    std::string folder_to_change(const char* file) const {
        if (!trial_) return named_.folder;
        const std::string name = std::string("/") + file + ".DBF";
        if (!platform::file_exists(trial_->path() + name)) {
            maintenance::copy_table(named_.folder + name, trial_->path());
        }
        return trial_->path();
    }

    // Copies only the table's own file, because only records change.
    void back_up(const std::string& path) {
        if (trial_) return;
        const platform::File file = platform::File::open(path, platform::OpenMode::kReadOnly);
        if (!file.is_open()) {
            const bool held = file.failure() == platform::OpenFailure::kSharing;
            throw ToolError(held ? ExitCode::kLocked : ExitCode::kCannotOpen,
                            path + ": cannot be copied: " + file.why_not_open());
        }
        print({true, path, "copied to " + maintenance::back_up_file(file, request_.backup)});
    }

    static void lock(Table& table, RecordNumber record) {
        table.go_to(record);
        if (table.lock_record(record, LockTry::kInTurn)) return;
        throw ToolError(ExitCode::kLocked, table.path() + ": record " + std::to_string(record) +
                                               " is locked by another program");
    }

    static std::size_t position_of(Table& table, std::string_view field) {
        return static_cast<std::size_t>(table.layout().find(field) - table.layout().fields.data()) +
               1;
    }

    void raise_counters(const std::vector<CounterFault>& counters) {
        Practice practice(folder_to_change(practice::kSystem.file), platform::OpenMode::kReadWrite,
                          Practice::Through::kFiles);
        const std::unique_ptr<Table> opened = practice.open(practice::kSystem.file);
        Table& system = *opened;
        back_up(system.path());
        lock(system, 1);
        for (const CounterFault& counter : counters) {
            const std::size_t position = position_of(system, counter.field);
            const std::int64_t now = system.field_get(position).whole();
            system.field_put(position, std::max(now, counter.least));
            print({true, system.path(),
                   "counter " + counter.field + " raised to " + std::to_string(counter.least), 1});
        }
        system.unlock_all();
    }

    // Marks the entry as deleted, under its lock. False if it is no longer the entry that was
    // checked.
    static bool remove_entry(Table& journal, const JournalFault& entry) {
        lock(journal, entry.record);
        const auto says = [&](std::string_view field, const std::string& text) {
            return journal.field_get(position_of(journal, field)).text() == text;
        };
        const bool same = !journal.deleted() && says(practice::kTableCodeField, entry.table_code) &&
                          says(practice::kIdentifierField, entry.identifier) &&
                          says(practice::kKindField, entry.kind);
        if (same) journal.mark_deleted();
        journal.unlock_all();
        return same;
    }

    void remove_entries(const std::vector<JournalFault>& entries) {
        Practice practice(folder_to_change(practice::kJournal.file), platform::OpenMode::kReadWrite,
                          Practice::Through::kFiles);
        const std::unique_ptr<Table> opened = practice.open(practice::kJournal.file);
        Table& journal = *opened;
        back_up(journal.path());
        for (const JournalFault& entry : entries) {
            if (remove_entry(journal, entry)) {
                print({true, journal.path(),
                       "marked as deleted: it names a record that does not exist", entry.record});
            } else {
                print({false, journal.path(), "another program has just changed it", entry.record});
                note(RepairResult::kInUse);
            }
        }
    }

    const RepairRequest& request_;
    const NamedTables named_;
    maintenance::RepairOptions options_;
    std::optional<TrialFolder> trial_;  // of a dry run
    std::string folder_;                // of the tables, with its separator
    std::vector<RepairedTable> repaired_;
    std::size_t done_ = 0;
    std::size_t left_ = 0;
    bool partly_ = false;
    bool cannot_open_ = false;
    bool in_use_ = false;
};

}  // namespace

ExitCode repair(const RepairRequest& request) {
    PracticeRepair practice(request);
    practice.repair_tables(maintenance::repair_table);
    practice.repair_practice();
    return practice.finish();
}

ExitCode reindex(const RepairRequest& request) {
    PracticeRepair practice(request);
    practice.repair_tables(maintenance::reindex_table);
    return practice.finish();
}

}  // namespace brenik::tools
