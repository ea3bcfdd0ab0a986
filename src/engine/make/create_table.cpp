// Makes table files, and builds an index from the records of a table.

#include "engine/make/create_table.h"

#include <vector>

#include "engine/local/memo_file.h"
#include "engine/local/table_file.h"
#include "engine/make/index_builder.h"
#include "engine/record/dbf_file.h"
#include "engine/record/table_path.h"

namespace brenik::make {

void create_table(const std::string& path, record::TableLayout layout, platform::LocalDay updated) {
    const std::string name = record::table_path(path);
    std::vector<Byte> bytes = record::make_header(layout, updated);
    bytes.push_back(record::kEndMark);
    platform::File table = locks::create_file(name);
    if (layout.has_memos()) local::MemoFile::create(name);
    table.write_at(0, bytes);
}

void create_index(const std::string& path, const std::vector<TagDefinition>& tags,
                  const BuildProgress& progress) {
    const std::string name = record::table_path(path);
    const auto table = local::TableFile::open(name, {platform::Sharing::kExclusive});
    const std::string index_name = record::sibling_path(table->path(), "CDX");
    std::vector<TagPlan> plans;
    for (const TagDefinition& tag : tags) {
        try {
            plans.push_back(plan_new_tag(tag, table->layout()));
        } catch (const expression::ExpressionError& error) {
            throw EngineFault(FaultCode::kUnsupported, "create index",
                              index_name + ": tag " + tag.name + ": " + error.what());
        }
    }
    const auto read = [&](RecordNumber first, MutableBytes into) {
        table->read(first, into);
        return true;
    };
    build_index(index_name, {table->layout(), table->count(), read}, plans, progress);
    table->mark_as_indexed();
}

}  // namespace brenik::make
