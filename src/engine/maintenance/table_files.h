// The files of one table as the checking and mending code holds them: each by itself, so that what
// is wrong with one does not hide the others.

#pragma once

#include <string>

#include "engine/maintenance/maintenance.h"
#include "platform/file.h"

namespace brenik::maintenance {

// Where findings go, with the places that they have in common filled in.
class Reporter {
  public:
    Reporter(std::string file, const Report& report, CheckedTable& counts)
        : file_(std::move(file)), report_(report), counts_(counts) {}

    void add(Finding finding) const;
    void fault(const char* kind, Remedy remedy, Finding place, const std::string& what) const;
    void note(const char* kind, Remedy remedy, Finding place, const std::string& what) const;
    void unchecked(const char* kind, Finding place, const std::string& what) const;

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

enum class Access {
    kCheck,  // shared and read only
    kTry,    // shared and writable
    kMend,   // exclusive and writable
};

struct TableFiles {
    platform::File table;
    platform::File index;
    platform::File memo;

    // Opens the table's own file; the others follow when the header has told which there are.
    static TableFiles open(const std::string& path, Access access);
    // Both leave the file closed, with its path and the reason, when it cannot be had.
    void open_index(Access access);
    void open_memo(std::uint8_t version, Access access);
};

}  // namespace brenik::maintenance
