// Collects and sorts keys, and exchanges the index files.

#include "engine/make/index_builder.h"

#include <algorithm>
#include <utility>

#include "engine/index/cdx_file.h"
#include "engine/record/record_scan.h"

namespace brenik::make {
namespace {

constexpr RecordNumber kProgressStep = 4096;

void collect_keys(const RecordSource& records, index::IndexKeys& keys, const std::string& path,
                  const BuildProgress& progress) {
    const bool all = record::scan_records(
        records.layout, records.count, records.read, [&](const record::RecordView& record) {
            if (progress && record.number % kProgressStep == 0) {
                progress("reading the records", record.number, records.count);
            }
            keys.add(record);
            return true;
        });
    if (all) return;
    throw EngineFault(FaultCode::kDamagedFile, "create index",
                      path + ": the table's records cannot be read");
}

// Passes entries on, and refuses two of the same key.
index::SortedEntries without_duplicates(const TagPlan& plan, index::SortedEntries entries,
                                        const std::string& path) {
    const auto next = [&plan, &path, given = std::move(entries.next),
                       last = std::vector<Byte>()](Bytes& entry) mutable {
        if (!given(entry)) return false;
        const std::size_t length = entry.size() - 4;
        if (!last.empty() && std::equal(last.begin(), last.end() - 4, entry.begin())) {
            throw EngineFault(FaultCode::kDuplicateKey, "create index",
                              path + ": tag " + plan.description.name + ": records " +
                                  std::to_string(load_be32(last.data() + length)) + " and " +
                                  std::to_string(load_be32(entry.data() + length)) +
                                  " have the same key");
        }
        last.assign(entry.begin(), entry.end());
        return true;
    };
    return {entries.largest_record, next};
}

// Passes entries on, and tells how many keys of all tags that makes.
index::SortedEntries with_progress(index::SortedEntries entries, const BuildProgress& progress,
                                   std::uint64_t& done, std::uint64_t total) {
    const auto next = [&progress, &done, total, given = std::move(entries.next)](Bytes& entry) {
        if (++done % kProgressStep == 0) progress("building the index", done, total);
        return given(entry);
    };
    return {entries.largest_record, next};
}

void require_unused(const std::string& path) {
    const platform::File old =
        platform::File::open(path, platform::OpenMode::kReadWrite, platform::Sharing::kExclusive);
    if (old.failure() != platform::OpenFailure::kSharing) return;
    throw EngineFault(FaultCode::kBusy, "create index", path + ": in use by another program");
}

void add_tags(index::CdxFile& index, const std::string& final_path, const RecordSource& records,
              const std::vector<TagPlan>& plans, const BuildProgress& progress,
              std::size_t memory) {
    std::vector<const index::Order*> orders;
    orders.reserve(plans.size());
    for (const TagPlan& plan : plans) orders.push_back(&plan.order);
    index::IndexKeys keys(std::move(orders), final_path, memory);
    collect_keys(records, keys, final_path, progress);
    std::uint64_t done = 0, total = 0;
    for (std::size_t i = 0; i < plans.size(); ++i) total += keys.of(i).count();
    for (std::size_t i = 0; i < plans.size(); ++i) {
        index::SortedEntries entries = keys.of(i).sorted();
        if (progress) entries = with_progress(std::move(entries), progress, done, total);
        if (plans[i].description.candidate) {
            entries = without_duplicates(plans[i], std::move(entries), final_path);
        }
        index.add_tag(plans[i].description, entries);
    }
}

}  // namespace

std::string unfinished_index_path(const std::string& index_path) { return index_path + ".new"; }

std::array<std::string, 2> leftover_paths(const std::string& index_path) {
    return {unfinished_index_path(index_path), index::run_file_path(index_path)};
}

void build_index(const std::string& index_path, const RecordSource& records,
                 const std::vector<TagPlan>& plans, const BuildProgress& progress,
                 std::size_t memory) {
    const std::string unfinished = unfinished_index_path(index_path);
    require_unused(index_path);
    try {
        const auto index = index::CdxFile::create(unfinished);
        add_tags(*index, index_path, records, plans, progress, memory);
        index->sync();
        index->close();
        platform::replace_file(unfinished, index_path);
    } catch (...) {
        platform::remove_file(unfinished);
        throw;
    }
}

}  // namespace brenik::make
