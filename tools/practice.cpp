// Opening tables for the tool, with the reason whenever that fails.

#include "practice.h"

#include <algorithm>
#include <vector>

#include "platform/file.h"
#include "platform/profile.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

constexpr std::size_t kLargestHeader = 65535;

platform::File open_for_reading(const std::string& path) {
    platform::File file = platform::File::open(path, platform::OpenMode::kReadOnly);
    switch (file.failure()) {
        case platform::OpenFailure::kNone:
            return file;
        case platform::OpenFailure::kMissing:
            throw ToolError(ExitCode::kCannotOpen, path + ": no such table");
        case platform::OpenFailure::kSharing:
            throw ToolError(ExitCode::kLocked, path + ": in exclusive use by another program");
        default:
            throw ToolError(ExitCode::kCannotOpen, path + ": cannot be opened");
    }
}

local::TableLayout read_layout(const std::string& path) {
    const platform::File file = open_for_reading(path);
    std::vector<Byte> header(kLargestHeader);
    header.resize(file.read_at(0, header));
    return local::parse_layout(header, path);
}

local::LockMode configured_locks(const std::string& folder) {
    const std::string type =
        platform::profile_string("Main", "LockType", "", folder + "/LAWSYS.INI");
    return numeric_value(type).amount == 1 ? local::LockMode::kProprietary
                                           : local::LockMode::kCompatible;
}

}  // namespace

Practice::Practice(std::string folder)
    : folder_(std::move(folder)), locks_(configured_locks(folder_)) {
    engine_.set_proprietary_locking(locks_ == local::LockMode::kProprietary);
}

std::string Practice::path_of(std::string_view file) const {
    return folder_ + "/" + std::string(file) + ".DBF";
}

const PracticeTable* Practice::find(int number) const {
    const auto* found = std::find_if(
        std::begin(kPracticeTables), std::end(kPracticeTables), [&](const PracticeTable& table) {
            return table.number == number && platform::file_exists(path_of(table.file));
        });
    return found == std::end(kPracticeTables) ? nullptr : found;
}

OpenedTable Practice::open(std::string_view name) {
    std::string_view file = name;
    for (const PracticeTable& table : kPracticeTables) {
        if (!equal_ignoring_case(table.alias, name)) continue;
        if (const PracticeTable* present = find(table.number)) file = present->file;
    }
    OpenedTable opened{platform::system_path(path_of(file)), locks_, {}, nullptr};
    try {
        opened.layout = read_layout(opened.path);
        opened.table = engine_.open(opened.path, TableSharing::kShared);
    } catch (const EngineFault& fault) {
        throw ToolError(ExitCode::kCannotOpen, fault.what());
    }
    // The table's own file could be read, so nobody has that for exclusive use.
    if (!opened.table) {
        throw ToolError(ExitCode::kLocked,
                        opened.path +
                            ": its index or memo file is in use, or other programs use "
                            "the table with locks of another kind (LockType)");
    }
    return opened;
}

}  // namespace brenik::tools
