// Makes tables and their indexes, for tools, tests and the sample practice.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "engine/record/table_layout.h"
#include "platform/clock.h"

namespace brenik::make {

struct TagDefinition {
    std::string name;
    std::string key;
    std::string condition = {};
    bool unique = false;
    bool candidate = false;
    bool descending = false;
};

// Called at intervals with the number of records read, then of keys built in, so far and in total.
// An exception from it cancels the build.
using BuildProgress =
    std::function<void(const std::string& what, std::uint64_t done, std::uint64_t total)>;

// Makes an empty table, and its memo file if a field needs one. Replaces existing files. Of
// `layout` only the version, the code page, and each field's name, type, width, decimals and flags
// are used. `updated` is the header's date of the last update. Throws EngineFault.
void create_table(const std::string& path, record::TableLayout layout,
                  platform::LocalDay updated = platform::system_clock().today());

// Builds the structural index of a table from its records, replaces an existing one, and marks the
// table as indexed. Needs exclusive use: EngineFault kBusy if it cannot be acquired, kUnsupported
// if an expression cannot be used (the text names the tag and the reason).
void create_index(const std::string& table_path, const std::vector<TagDefinition>& tags,
                  const BuildProgress& progress = {});

}  // namespace brenik::make
