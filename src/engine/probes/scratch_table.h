// The table that the probes work on: ten records, a memo and five orders, made by the embedded
// engine.

#pragma once

#include <string>

#include "engine/record/table_layout.h"

namespace brenik::probes {

// Numbered from 1. CODE is A1 to A3, B1 to B4, C1 to C3; AMOUNT is 10 times the record number, DAY
// that day of January 2020, FLAG true in odd records.
inline constexpr unsigned kRecords = 10;

// Code page of the table's text, as the header names it.
enum class TextOf { kWindows, kDos };

class ScratchTable {
  public:
    // Makes no file yet. The name of the files is random. Removes files that probes killed over an
    // hour ago have left.
    explicit ScratchTable(const std::string& folder);
    ~ScratchTable() { remove(); }
    ScratchTable(const ScratchTable&) = delete;
    ScratchTable& operator=(const ScratchTable&) = delete;

    // Makes the table anew with the first `records` records. Throws EngineFault.
    void make(unsigned records, TextOf text);
    const std::string& path() const { return path_; }
    const record::TableLayout& layout() const { return layout_; }

  private:
    void remove() noexcept;

    std::string path_;
    record::TableLayout layout_;
};

}  // namespace brenik::probes
