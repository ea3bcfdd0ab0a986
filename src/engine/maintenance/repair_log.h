// What repairing a table and rebuilding its index have in common: saying what is done, and keeping
// a copy of each file before it is changed.

#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>

#include "engine/maintenance/maintenance.h"
#include "platform/file.h"

namespace brenik::maintenance {

class RepairLog {
  public:
    RepairLog(const RepairOptions& options, const RepairReport& report)
        : options_(options), report_(report) {}

    const RepairOptions& options() const { return options_; }
    // Does the deed and reports it.
    void act(const platform::File& file, const std::string& what, const std::function<void()>& deed,
             std::optional<RecordNumber> record = {});
    // Reports what has been done already.
    void done(const std::string& file, const std::string& what,
              std::optional<RecordNumber> record = {});
    // Reports something that could not be done.
    void refuse(const std::string& file, const std::string& what,
                std::optional<RecordNumber> record = {});
    // Before the first change of a file: copies it, unless it is a copy itself.
    void back_up(const platform::File& file);

    bool refused_any() const { return refused_; }

  private:
    const RepairOptions& options_;
    const RepairReport& report_;
    std::set<std::string> backed_up_;
    bool refused_ = false;
};

}  // namespace brenik::maintenance
