// An index file: the structure of its trees, and their keys against the records.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "engine/maintenance/check_header.h"
#include "engine/maintenance/index_bytes.h"
#include "engine/make/tag_plan.h"

namespace brenik::maintenance {

// A tag, as far as its header can be read.
struct FoundTag {
    index::TagDescription description;
    std::uint32_t header;
    std::uint32_t root;
    // Empty when the expressions can be used, otherwise why not.
    std::string unusable;
    std::optional<make::TagPlan> plan;
    // For an unusable tag of which only the key length is wrong: the plan to rebuild it.
    std::optional<make::TagPlan> rebuilt;
};

// The tags that an index lists, in creation order.
struct FoundTags {
    std::vector<FoundTag> tags;
    bool complete = true;                 // false: there may be others that cannot be read
    std::vector<std::string> unreadable;  // names of tags whose header cannot be interpreted
};

// The definition from which the index builder makes the same tag again.
make::TagDefinition definition_of(const index::TagDescription& tag);

// Reads what can be read, and reports nothing.
FoundTags find_tags(const IndexBytes& bytes, const record::TableLayout& layout,
                    const std::string& path);

// Checks the structure, then the keys of every tag whose expressions can be used.
void check_index(OpenTableFiles& files, const HeaderFacts& header, const Reporter& report,
                 const Progress& progress);

// The tags of a table that other programs may be using. Throws EngineFault: OpenRefused if the
// table or its index cannot be opened, kBusy if the index is locked, kDamagedFile if the table's
// header cannot be interpreted.
FoundTags tags_of_table(const std::string& path);
// The definitions of all these tags, in creation order. Throws EngineFault kDamagedFile or
// kUnsupported if a tag cannot be made again from its definition, or if there is none.
std::vector<make::TagDefinition> tag_definitions(const std::string& path);

// The names of the tags of the table's index; nothing when not all of them can be read.
std::optional<std::vector<std::string>> tag_names(const std::string& path);

}  // namespace brenik::maintenance
