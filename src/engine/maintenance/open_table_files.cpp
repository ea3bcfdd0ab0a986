// Opens a table's files one by one.

#include "engine/maintenance/open_table_files.h"

#include "engine/record/memo_format.h"
#include "engine/record/table_path.h"

namespace brenik::maintenance {
namespace {

platform::File open_for(const std::string& path, Access access) {
    const bool checks = access == Access::kCheck, alone = access == Access::kRepair;
    return platform::File::open(
        path, checks ? platform::OpenMode::kReadOnly : platform::OpenMode::kReadWrite,
        alone ? platform::Sharing::kExclusive : platform::Sharing::kShared);
}

}  // namespace

OpenTableFiles OpenTableFiles::open(const std::string& path, Access access) {
    OpenTableFiles files;
    files.table = open_for(record::table_path(path), access);
    return files;
}

void OpenTableFiles::open_index(Access access) {
    index = open_for(record::sibling_path(table.path(), "CDX"), access);
}

void OpenTableFiles::open_memo(std::uint8_t version, Access access) {
    memo = open_for(record::sibling_path(table.path(), record::memo_extension(version)), access);
}

}  // namespace brenik::maintenance
