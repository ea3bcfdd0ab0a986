// Opening a table's files one by one.

#include "engine/maintenance/table_files.h"

#include <utility>

#include "engine/record/memo_format.h"
#include "engine/record/table_path.h"

namespace brenik::maintenance {
namespace {

platform::File open_for(const std::string& path, Access access) {
    const bool checks = access == Access::kCheck, alone = access == Access::kMend;
    return platform::File::open(
        path, checks ? platform::OpenMode::kReadOnly : platform::OpenMode::kReadWrite,
        alone ? platform::Sharing::kExclusive : platform::Sharing::kShared);
}

}  // namespace

void Reporter::add(Finding finding) const {
    finding.file = file_;
    switch (finding.severity) {
        case Severity::kFault:
            ++counts_.faults;
            break;
        case Severity::kNote:
            ++counts_.notes;
            break;
        case Severity::kUnchecked:
            ++counts_.unchecked;
            break;
    }
    report_(finding);
}

void Reporter::fault(const char* kind, Remedy remedy, Finding place,
                     const std::string& what) const {
    place.severity = Severity::kFault;
    place.kind = kind;
    place.remedy = remedy;
    place.what = what;
    add(std::move(place));
}

void Reporter::note(const char* kind, Remedy remedy, Finding place, const std::string& what) const {
    place.severity = Severity::kNote;
    place.kind = kind;
    place.remedy = remedy;
    place.what = what;
    add(std::move(place));
}

void Reporter::unchecked(const char* kind, Finding place, const std::string& what) const {
    place.severity = Severity::kUnchecked;
    place.kind = kind;
    place.remedy = Remedy::kTryAgain;
    place.what = what;
    add(std::move(place));
}

Finding at_record(RecordNumber record, std::string field) {
    Finding place;
    place.record = record;
    place.field = std::move(field);
    return place;
}

Finding at_tag(std::string tag, RecordNumber record) {
    Finding place;
    place.tag = std::move(tag);
    place.record = record;
    return place;
}

Finding at_page(std::string tag, std::uint64_t page) {
    Finding place;
    place.tag = std::move(tag);
    place.page = page;
    return place;
}

TableFiles TableFiles::open(const std::string& path, Access access) {
    TableFiles files;
    files.table = open_for(record::table_path(path), access);
    return files;
}

void TableFiles::open_index(Access access) {
    index = open_for(record::sibling_path(table.path(), "CDX"), access);
}

void TableFiles::open_memo(std::uint8_t version, Access access) {
    memo = open_for(record::sibling_path(table.path(), record::memo_extension(version)), access);
}

}  // namespace brenik::maintenance
