// Prints the findings of a check: a line of text for people, a line of JSON for programs.

#pragma once

#include <map>
#include <string>

#include "engine/maintenance/finding.h"
#include "practice.h"
#include "table_text.h"

namespace brenik::tools {

class FindingPrinter {
  public:
    // Names of fields and tags are text of their table.
    FindingPrinter(bool json, EncodingChoice encoding) : json_(json), encoding_(encoding) {}

    // Prints at most 100 findings per kind and file as text; prints all of them as JSON.
    void print(const maintenance::Finding& finding);
    // Prints how many findings of each kind were left out.
    void finish_file();

    // The exit code for the findings so far.
    ExitCode exit_code() const;
    std::size_t faults() const { return faults_; }
    std::size_t notes() const { return notes_; }
    std::size_t unchecked() const { return unchecked_; }

  private:
    void count(const maintenance::Finding& finding);
    const TableText& text_of(std::uint8_t mark);

    bool json_;
    EncodingChoice encoding_;
    std::map<std::uint8_t, TableText> texts_;  // by mark
    std::size_t faults_ = 0;
    std::size_t notes_ = 0;
    std::size_t unchecked_ = 0;
    bool cannot_open_ = false;
    std::map<std::pair<std::string, std::string>, std::size_t> shown_;  // by file and kind
};

// The file's name without its folder.
std::string base_name(const std::string& path);

}  // namespace brenik::tools
