// The options and the report of repair_table and rebuild_index. RepairLog also backs up each file
// before its first change.

#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/maintenance/finding.h"
#include "engine/make/create_table.h"
#include "engine/refusal.h"
#include "platform/file.h"

namespace brenik::maintenance {

struct RepairOptions {
    // Only report what would be done, by repairing copies of the files in this folder, which stay
    // there; other programs may have the table open meanwhile. Empty: repair the table itself.
    std::string trial_folder = {};
    std::string backup_folder = {};  // empty: beside the files
    // Definitions that replace those of the old index and of `like`, or are added to them.
    std::vector<make::TagDefinition> tags = {};
    // All tags of a table that this one should be indexed like. They replace those of the old index
    // with the same names, and come before the others.
    std::vector<make::TagDefinition> like = {};
    // Empty the memo fields of all records if the memo file is lost.
    bool without_memos = false;
    // Continue even if the records do not seem to lie where the header says.
    bool force = false;
};

// One line of the report: what was done, or what could not be done.
struct RepairStep {
    bool done = true;
    std::string file;
    std::string what;
    std::optional<RecordNumber> record = {};
};
using RepairReport = std::function<void(const RepairStep&)>;

class RepairLog {
  public:
    RepairLog(const RepairOptions& options, const RepairReport& report, const Progress& progress)
        : options_(options), report_(report), progress_(progress) {}

    const RepairOptions& options() const { return options_; }
    // Backs the file up, makes the change and reports it.
    void act(const platform::File& file, const std::string& what,
             const std::function<void()>& change, std::optional<RecordNumber> record = {});
    // Reports what has already been done.
    void done(const std::string& file, const std::string& what,
              std::optional<RecordNumber> record = {});
    // Reports what could not be done.
    void refuse(const std::string& file, const std::string& what,
                std::optional<RecordNumber> record = {});
    // The same for a fault, with words that follow its text.
    void refuse(const std::string& file, const EngineFault& fault, const std::string& more = {});
    // Copies the file before its first change, unless it is a trial copy itself.
    void back_up(const platform::File& file);

    bool refused_any() const { return refused_; }
    // Why a file could not be opened or created; nothing if that did not happen.
    std::optional<RefusalReason> refused_open() const { return refused_open_; }

  private:
    const RepairOptions& options_;
    const RepairReport& report_;
    const Progress& progress_;  // of the copies
    std::set<std::string> backed_up_;
    bool refused_ = false;
    std::optional<RefusalReason> refused_open_;
};

}  // namespace brenik::maintenance
