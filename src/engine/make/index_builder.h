// Builds an index file from the records of a table next to the old file, then replaces the old
// file.

#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "engine/index/index_keys.h"
#include "engine/make/tag_plan.h"

namespace brenik::make {

struct RecordSource {
    const record::TableLayout& layout;
    RecordNumber count;
    // Fills the bytes with whole records from `first` on; false when they cannot be read.
    std::function<bool(RecordNumber first, MutableBytes into)> read;
};

// The path of an index under construction. A file found there was never finished.
std::string unfinished_index_path(const std::string& index_path);

// The paths of all files that an interrupted build may leave behind.
std::array<std::string, 2> leftover_paths(const std::string& index_path);

// Writes a file with these tags, flushes it and replaces the existing index. Nobody may have that
// index open. Reads the table once, and sorts in about `memory` bytes and beside the index. On an
// exception the old index is untouched and the new files are removed.
void build_index(const std::string& index_path, const RecordSource& records,
                 const std::vector<TagPlan>& plans, const BuildProgress& progress = {},
                 std::size_t memory = index::kMemoryForKeys);

}  // namespace brenik::make
