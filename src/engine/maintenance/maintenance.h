// Checks and repairs the files of one table, for tools.
//
// A check reports every fault with its place and its remedy, and continues past it. It works beside
// programs that use the table: every suspicion is checked again under the locks that a change would
// hold, so that a half-done change is not taken for damage. A repair needs exclusive use, keeps a
// copy of every file that it changes, and replaces an index only when the new one is complete and
// on the disk.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/make/create_table.h"
#include "platform/file.h"

namespace brenik::maintenance {

enum class Severity {
    kFault,
    kNote,       // harmless, or how other programs leave their files
    kUnchecked,  // could not be checked: another program holds a lock, or the file cannot be opened
};

enum class Remedy { kNothing, kRepair, kReindex, kRestore, kByHand, kTryAgain, kTell };

struct Finding {
    Severity severity = Severity::kFault;
    std::string kind;  // persistent: programs distinguish findings by this word
    std::string file;
    std::string what;
    Remedy remedy = Remedy::kNothing;
    std::optional<RecordNumber> record = {};
    std::string field = {};
    std::string tag = {};
    std::optional<std::uint64_t> page = {};  // offset in the file
};

using Report = std::function<void(const Finding&)>;
// Called at intervals during long work; the last call has `done` equal to `total`.
using Progress =
    std::function<void(const std::string& what, std::uint64_t done, std::uint64_t total)>;

struct CheckedTable {
    RecordNumber records = 0;
    std::size_t tags = 0;
    std::size_t faults = 0;
    std::size_t notes = 0;
    std::size_t unchecked = 0;
};

// Checks the table and the files that belong to it. Files that cannot be opened or read are
// reported like other findings; only a lack of memory throws.
CheckedTable check_table(const std::string& path, const Report& report, const Progress& progress);

// The names of the tags of the table's index; nothing when not all of them can be read.
std::optional<std::vector<std::string>> tag_names(const std::string& path);

struct RepairOptions {
    // Only report what would be done, by repairing copies of the files in this folder, which stay
    // there; other programs may have the table open meanwhile. Empty: repair the table itself.
    std::string trial_folder = {};
    std::string backup_folder = {};  // empty: beside the files
    // Definitions that replace those of the old index, or are added to them.
    std::vector<make::TagDefinition> tags = {};
};

// One line of the report: what was done, or what could not be done.
struct RepairStep {
    bool done = true;
    std::string file;
    std::string what;
    std::optional<RecordNumber> record = {};
};
using RepairReport = std::function<void(const RepairStep&)>;

enum class RepairResult { kNothingToDo, kWhole, kPartly, kInUse, kCannotOpen };

// Repairs what check_table finds, as far as it can be repaired without guessing. Opens the table
// exclusively, so nothing is repaired while another program uses it.
RepairResult repair_table(const std::string& path, const RepairOptions& options,
                          const RepairReport& report, const Progress& progress);

// Copies a file to its own or the given folder, under a new name that contains the date and time,
// and returns that name. Throws EngineFault, and then leaves nothing behind.
std::string back_up_file(const platform::File& file, const std::string& folder);

// Copies all existing files of the table to the folder. Throws EngineFault.
void copy_table(const std::string& path, const std::string& folder);

// Rebuilds the structural index from the records, with the tags of the old one.
RepairResult reindex_table(const std::string& path, const RepairOptions& options,
                           const RepairReport& report, const Progress& progress);

}  // namespace brenik::maintenance
