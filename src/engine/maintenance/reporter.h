// Passes what a check finds to the caller.

#pragma once

#include <string>

#include "engine/maintenance/finding.h"
#include "platform/file.h"

namespace brenik::maintenance {

// Completes findings with their file, counts them and passes them on.
class Reporter {
  public:
    Reporter(std::string file, const Report& report, CheckedTable& counts)
        : file_(std::move(file)), report_(report), counts_(counts) {}

    void add(Finding finding) const;
    void fault(const char* kind, Remedy remedy, Finding place, const std::string& what) const;
    void note(const char* kind, Remedy remedy, Finding place, const std::string& what) const;
    void unchecked(const char* kind, Finding place, const std::string& what) const;
    // Reports why a file that is not open could not be opened.
    void not_open(const platform::File& file) const;

    const std::string& file() const { return file_; }
    Reporter for_file(std::string file) const { return {std::move(file), report_, counts_}; }
    CheckedTable& counts() const { return counts_; }

  private:
    std::string file_;
    const Report& report_;
    CheckedTable& counts_;
};

// Places for findings.
Finding at_record(RecordNumber record, std::string field = {});
Finding at_tag(std::string tag, RecordNumber record);
Finding at_page(std::string tag, std::uint64_t page);

}  // namespace brenik::maintenance
