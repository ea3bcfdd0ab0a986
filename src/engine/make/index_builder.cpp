// Collects and sorts keys, and exchanges the index files.

#include "engine/make/index_builder.h"

#include <algorithm>

#include "engine/index/cdx_file.h"
#include "engine/record/record_scan.h"

namespace brenik::make {
namespace {

constexpr RecordNumber kProgressStep = 4096;

std::vector<index::IndexEntry> collect_entries(const TagPlan& plan, const RecordSource& records,
                                               const std::string& path,
                                               const std::function<void(RecordNumber)>& progress) {
    std::vector<index::IndexEntry> entries;
    entries.reserve(records.count);
    const bool all = record::scan_records(
        records.layout, records.count, records.read, [&](const record::RecordView& record) {
            if (record.number % kProgressStep == 0) progress(record.number);
            if (!plan.order.holds(record)) return true;
            entries.push_back({plan.order.key_of(record), record.number});
            return true;
        });
    if (!all) {
        throw EngineFault(FaultCode::kDamagedFile, "create index",
                          path + ": the table's records cannot be read");
    }
    std::sort(entries.begin(), entries.end(),
              [](const index::IndexEntry& a, const index::IndexEntry& b) {
                  const int order = a.key.compare(b.key);
                  return order != 0 ? order < 0 : a.record < b.record;
              });
    return entries;
}

void refuse_duplicates(const TagPlan& plan, const std::vector<index::IndexEntry>& entries,
                       const std::string& path) {
    const auto twin = std::adjacent_find(
        entries.begin(), entries.end(),
        [](const index::IndexEntry& a, const index::IndexEntry& b) { return a.key == b.key; });
    if (twin == entries.end()) return;
    throw EngineFault(FaultCode::kDuplicateKey, "create index",
                      path + ": tag " + plan.description.name + ": records " +
                          std::to_string(twin->record) + " and " +
                          std::to_string((twin + 1)->record) + " have the same key");
}

void require_unused(const std::string& path) {
    const platform::File old =
        platform::File::open(path, platform::OpenMode::kReadWrite, platform::Sharing::kExclusive);
    if (old.failure() != platform::OpenFailure::kSharing) return;
    throw EngineFault(FaultCode::kBusy, "create index", path + ": in use by another program");
}

void fill_index(const std::string& path, const std::string& final_path, const RecordSource& records,
                const std::vector<TagPlan>& plans, const BuildProgress& progress) {
    const auto index = index::CdxFile::create(path);
    const std::uint64_t total = std::uint64_t{records.count} * plans.size();
    std::uint64_t done = 0;
    for (const TagPlan& plan : plans) {
        const std::vector<index::IndexEntry> entries =
            collect_entries(plan, records, final_path, [&](RecordNumber record) {
                if (progress) progress("building the index", done + record, total);
            });
        if (plan.description.candidate) refuse_duplicates(plan, entries, final_path);
        index->add_tag(plan.description, entries);
        done += records.count;
    }
    index->sync();
}

}  // namespace

std::string unfinished_index_path(const std::string& index_path) { return index_path + ".new"; }

void build_index(const std::string& index_path, const RecordSource& records,
                 const std::vector<TagPlan>& plans, const BuildProgress& progress) {
    const std::string unfinished = unfinished_index_path(index_path);
    require_unused(index_path);
    try {
        fill_index(unfinished, index_path, records, plans, progress);
        platform::replace_file(unfinished, index_path);
    } catch (...) {
        platform::remove_file(unfinished);
        throw;
    }
}

}  // namespace brenik::make
