// Making table files, and building an index from the records of a table.

#include "engine/local/create.h"

#include <algorithm>
#include <vector>

#include "engine/local/cdx_file.h"
#include "engine/local/field_codec.h"
#include "engine/local/index_key.h"
#include "engine/local/memo_file.h"
#include "engine/local/table_file.h"
#include "engine/local/table_path.h"
#include "platform/clock.h"
#include "util/runtime.h"

namespace brenik::local {
namespace {

constexpr Byte kEndOfFile = 0x1A;
constexpr std::size_t kReadAheadBytes = 1 << 20;

platform::File open_for_creation(const std::string& path) {
    platform::File file =
        platform::File::open(path, platform::OpenMode::kCreate, platform::Sharing::kExclusive);
    if (file.is_open()) return file;
    if (file.failure() == platform::OpenFailure::kSharing) {
        throw EngineFault(FaultCode::kBusy, "create", path + ": in use by somebody else");
    }
    throw EngineFault(FaultCode::kInputOutput, "create", path + ": cannot be made");
}

// One tag in the making: what its header will say, and the expressions behind it.
struct TagPlan {
    TagDescription description;
    Expression key;
    std::optional<Expression> condition;
    KeyFormat format;
};

TagPlan plan_tag(const TagDefinition& tag, const TableLayout& layout, const std::string& path) {
    try {
        Expression key = Expression::compile(tag.key, layout);
        const KeyFormat format = natural_key_format(key, tag.candidate);
        TagPlan plan{{}, std::move(key), std::nullopt, format};
        if (!tag.condition.empty()) {
            plan.condition = Expression::compile(tag.condition, layout);
            if (plan.condition->type() != ResultType::kLogical) {
                throw ExpressionError("the condition " + tag.condition + " is not logical");
            }
        }
        TagDescription& description = plan.description;
        description.name = upper(tag.name);
        description.key = tag.key;
        description.condition = tag.condition;
        description.key_length = format.length;
        description.pad = format.pad();
        description.unique = tag.unique;
        description.candidate = tag.candidate;
        description.nullable = format.null_prefix;
        description.descending = tag.descending;
        return plan;
    } catch (const ExpressionError& error) {
        throw EngineFault(FaultCode::kUnsupported, "create index",
                          path + ": tag " + tag.name + ": " + error.what());
    }
}

std::vector<IndexEntry> collect_entries(const TagPlan& plan, TableFile& table) {
    const std::size_t length = table.layout().record_length;
    const RecordNumber count = table.count();
    const auto batch =
        static_cast<RecordNumber>(std::max<std::size_t>(kReadAheadBytes / length, 1));
    std::vector<Byte> buffer(length * std::min(batch, count));
    std::vector<IndexEntry> entries;
    entries.reserve(count);
    for (RecordNumber first = 1; first <= count; first += batch) {
        const RecordNumber records = std::min(batch, count - first + 1);
        table.read(first, MutableBytes(buffer).first(records * length));
        for (RecordNumber i = 0; i < records; ++i) {
            const RecordView record{Bytes(buffer).subspan(i * length, length), first + i};
            if (plan.condition && !plan.condition->is_true(record)) continue;
            IndexEntry entry{std::string(plan.format.length, '\0'), record.number};
            build_key(plan.key, plan.format, record,
                      {reinterpret_cast<Byte*>(entry.key.data()), entry.key.size()});
            entries.push_back(std::move(entry));
        }
        if (count - first < batch) break;
    }
    std::sort(entries.begin(), entries.end(), [](const IndexEntry& a, const IndexEntry& b) {
        const int order = a.key.compare(b.key);
        return order != 0 ? order < 0 : a.record < b.record;
    });
    return entries;
}

void refuse_duplicates(const TagPlan& plan, const std::vector<IndexEntry>& entries,
                       const std::string& path) {
    const auto twin =
        std::adjacent_find(entries.begin(), entries.end(),
                           [](const IndexEntry& a, const IndexEntry& b) { return a.key == b.key; });
    if (twin == entries.end()) return;
    throw EngineFault(FaultCode::kDuplicateKey, "create index",
                      path + ": tag " + plan.description.name + ": records " +
                          std::to_string(twin->record) + " and " +
                          std::to_string((twin + 1)->record) + " have the same key");
}

}  // namespace

void create_table(const std::string& path, TableLayout layout) {
    const std::string name = table_path(path);
    std::vector<Byte> bytes = make_header(layout);
    const platform::LocalDay today = platform::system_clock().today();
    bytes[1] = static_cast<Byte>(today.year % 100);
    bytes[2] = static_cast<Byte>(today.month);
    bytes[3] = static_cast<Byte>(today.day);
    bytes.push_back(kEndOfFile);
    if (std::any_of(layout.fields.begin(), layout.fields.end(), is_memo)) MemoFile::create(name);
    open_for_creation(name).write_at(0, bytes);
}

void create_index(const std::string& path, const std::vector<TagDefinition>& tags) {
    const std::string name = table_path(path);
    const auto table = TableFile::open(name, platform::Sharing::kExclusive);
    if (!table) {
        throw EngineFault(FaultCode::kBusy, "create index",
                          name + ": cannot be had for exclusive use");
    }
    const std::string index_name = sibling_path(table->path(), "CDX");
    std::vector<TagPlan> plans;
    for (const TagDefinition& tag : tags) {
        plans.push_back(plan_tag(tag, table->layout(), index_name));
    }
    const auto index = CdxFile::create(index_name);
    for (const TagPlan& plan : plans) {
        const std::vector<IndexEntry> entries = collect_entries(plan, *table);
        if (plan.description.candidate) refuse_duplicates(plan, entries, index_name);
        index->add_tag(plan.description, entries);
    }
    table->mark_as_indexed();
}

}  // namespace brenik::local
