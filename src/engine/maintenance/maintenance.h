// Checking the files of one table, and mending them: for tools.
//
// A check names every fault with its place and with what to do about it, and goes on past it. It
// works beside programs that use the table: whatever looks wrong is looked at once more under the
// locks that a change to it would hold, so that nothing half done is taken for damage. RepairLog
// needs the table for itself, keeps a copy of every file that it changes, and replaces an index
// only when the new one is whole and on the disk.

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
    kUnchecked,  // could not be looked at: somebody holds a lock, or the file cannot be opened
};

enum class Remedy { kNothing, kRepair, kReindex, kRestore, kByHand, kTryAgain, kTell };

struct Finding {
    Severity severity = Severity::kFault;
    std::string kind;  // persistent: programs tell findings apart by these words
    std::string file;
    std::string what;
    Remedy remedy = Remedy::kNothing;
    std::optional<RecordNumber> record = {};
    std::string field = {};
    std::string tag = {};
    std::optional<std::uint64_t> page = {};  // offset in the file
};

using Report = std::function<void(const Finding&)>;
// Called now and then in long work; a `done` of `total` ends it.
using Progress =
    std::function<void(const std::string& what, std::uint64_t done, std::uint64_t total)>;

struct CheckedTable {
    RecordNumber records = 0;
    std::size_t tags = 0;
    std::size_t faults = 0;
    std::size_t notes = 0;
    std::size_t unchecked = 0;
};

// Checks the table and whatever belongs to it. Findings of files that cannot be opened or read are
// reported like all others; nothing is thrown but for want of memory.
CheckedTable check_table(const std::string& path, const Report& report, const Progress& progress);

// The names of the tags of the table's index; nothing when they cannot all be read.
std::optional<std::vector<std::string>> tag_names(const std::string& path);

struct RepairOptions {
    // Only tell what would be done, by doing it to copies of the files in this folder, which stay
    // there; other programs may have the table open meanwhile. Empty: do it.
    std::string trial_folder = {};
    std::string backup_folder = {};  // empty: beside the files
    // Definitions that take the place of what the old index says, or are added to it.
    std::vector<make::TagDefinition> tags = {};
};

// What was done, or what could not be: one line of it.
struct RepairStep {
    bool done = true;
    std::string file;
    std::string what;
    std::optional<RecordNumber> record = {};
};
using RepairReport = std::function<void(const RepairStep&)>;

enum class RepairResult { kNothingToDo, kWhole, kPartly, kInUse, kCannotOpen };

// Makes good what check_table finds and can be made good without guessing. The table is opened
// exclusively; whoever uses it keeps it from being mended.
RepairResult repair_table(const std::string& path, const RepairOptions& options,
                          const RepairReport& report, const Progress& progress);

// Copies a file beside itself, or into the folder, under a name that tells the moment and that no
// file has yet; answers that name. Throws EngineFault, and then leaves nothing behind.
std::string back_up_file(const platform::File& file, const std::string& folder);

// Copies whatever files the table has into the folder. Throws EngineFault.
void copy_table(const std::string& path, const std::string& folder);

// Builds the structural index anew from the records, with the tags of the old one.
RepairResult reindex_table(const std::string& path, const RepairOptions& options,
                           const RepairReport& report, const Progress& progress);

}  // namespace brenik::maintenance
