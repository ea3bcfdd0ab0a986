// Building an index file from the records of a table, beside the old one and then in its place.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "engine/make/tag_plan.h"

namespace brenik::make {

struct RecordSource {
    const record::TableLayout& layout;
    RecordNumber count;
    // Fills the bytes with whole records from the first on; false when they cannot be read.
    std::function<bool(RecordNumber first, MutableBytes into)> read;
};

// Where an index is while it is being made; one that is found there was never finished.
std::string unfinished_index_path(const std::string& index_path);

// Told now and then how many of all keys have been looked at.
using BuildProgress =
    std::function<void(const std::string& what, std::uint64_t done, std::uint64_t total)>;

// Makes the file with these tags, syncs it and puts it in the place of whatever index was there,
// which nobody may have open. On an EngineFault the old index is untouched and nothing is left
// behind.
void build_index(const std::string& index_path, const RecordSource& records,
                 const std::vector<TagPlan>& plans, const BuildProgress& progress = {});

}  // namespace brenik::make
