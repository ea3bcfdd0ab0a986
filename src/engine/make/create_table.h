// Making tables and their indexes: for tools, tests and the sample practice.

#pragma once

#include <string>
#include <vector>

#include "engine/record/table_layout.h"

namespace brenik::make {

struct TagDefinition {
    std::string name;
    std::string key;
    std::string condition = {};
    bool unique = false;
    bool candidate = false;
    bool descending = false;
};

// Makes an empty table (and its memo file, where a field needs one), replacing what was there.
// Only version, code page, and name, type, width, decimals and flags of the fields are read from
// `layout`. Throws EngineFault.
void create_table(const std::string& path, record::TableLayout layout);

// Builds the structural index of a table from its records, replacing the one there, and marks the
// table as having it. Needs exclusive use: EngineFault kBusy when it cannot be had, kUnsupported
// when an expression cannot be used (the text names the tag and the reason).
void create_index(const std::string& table_path, const std::vector<TagDefinition>& tags);

}  // namespace brenik::make
