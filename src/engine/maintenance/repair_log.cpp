// Makes backups, and reports what was done.

#include "engine/maintenance/repair_log.h"

#include "engine/maintenance/table_copies.h"

namespace brenik::maintenance {

void RepairLog::back_up(const platform::File& file) {
    if (!options_.trial_folder.empty() || !backed_up_.insert(file.path()).second) return;
    const std::string copy = back_up_file(file, options_.backup_folder, progress_);
    report_({true, file.path(), "copied to " + copy});
}

void RepairLog::act(const platform::File& file, const std::string& what,
                    const std::function<void()>& change, std::optional<RecordNumber> record) {
    back_up(file);
    change();
    done(file.path(), what, record);
}

void RepairLog::done(const std::string& file, const std::string& what,
                     std::optional<RecordNumber> record) {
    report_({true, file, what, record});
}

void RepairLog::refuse(const std::string& file, const std::string& what,
                       std::optional<RecordNumber> record) {
    refused_ = true;
    report_({false, file, what, record});
}

void RepairLog::refuse(const std::string& file, const EngineFault& fault, const std::string& more) {
    if (const auto* refused = dynamic_cast<const OpenRefused*>(&fault)) {
        refused_open_ = refused->reason();
    }
    refuse(file, fault.what() + more);
}

}  // namespace brenik::maintenance
