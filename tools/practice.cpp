// Opening tables for the tool, with the reason whenever that fails.

#include "practice.h"

#include <algorithm>
#include <vector>

#include "engine/record/dbf_file.h"
#include "platform/file.h"
#include "platform/profile.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

record::TableLayout read_layout(const std::string& path) {
    const platform::File file = locks::open_file(path, {.access = platform::OpenMode::kReadOnly});
    return record::parse_layout(record::read_header(file), path);
}

locks::LockMode configured_locks(const std::string& folder) {
    const std::string type =
        platform::profile_string("Main", "LockType", "", folder + "/" + practice::kSettingsFile);
    return numeric_value(type).amount == 1 ? locks::LockMode::kProprietary
                                           : locks::LockMode::kCompatible;
}

}  // namespace

Practice::Practice(std::string folder, platform::OpenMode access)
    : folder_(std::move(folder)), use_{.mode = configured_locks(folder_), .access = access} {
    engine_.set_proprietary_locking(use_.mode == locks::LockMode::kProprietary);
    engine_.set_read_only(access == platform::OpenMode::kReadOnly);
}

std::string Practice::path_of(std::string_view file) const {
    return folder_ + "/" + std::string(file) + ".DBF";
}

const practice::TableEntry* Practice::find(int number) const {
    const auto found = std::ranges::find_if(practice::kTables, [&](const auto& table) {
        return table.area == number && platform::file_exists(path_of(table.file));
    });
    return found == practice::kTables.end() ? nullptr : &*found;
}

OpenedTable Practice::open(std::string_view name) {
    std::string_view file = name;
    for (const practice::TableEntry& table : practice::kTables) {
        if (!equal_ignoring_case(table.alias, name)) continue;
        if (const auto* present = find(table.area)) file = present->file;
    }
    OpenedTable opened{platform::system_path(path_of(file)), use_, {}, nullptr};
    try {
        opened.layout = read_layout(opened.path);
        OpenAnswer answer = engine_.open(opened.path, TableSharing::kShared);
        if (const auto* refusal = std::get_if<Refusal>(&answer)) {
            const bool held = refusal->code == FaultCode::kBusy;
            throw ToolError(held ? ExitCode::kLocked : ExitCode::kCannotOpen, refusal->text);
        }
        opened.table = std::move(std::get<std::unique_ptr<Table>>(answer));
        return opened;
    } catch (const locks::Refused& refusal) {
        const bool held = refusal.code() == FaultCode::kBusy;
        throw ToolError(held ? ExitCode::kLocked : ExitCode::kCannotOpen, refusal.explanation());
    } catch (const EngineFault& fault) {
        throw ToolError(ExitCode::kCannotOpen, fault.what());
    }
}

}  // namespace brenik::tools
