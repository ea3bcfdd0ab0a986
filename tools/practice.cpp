// Opens tables for the tool, and reports the reason if that fails.

#include "practice.h"

#include <algorithm>

#include "engine/local/local_engine.h"
#include "platform/file.h"
#include "platform/profile.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

bool uses_proprietary_locks(const std::string& folder) {
    const std::string type =
        platform::profile_string("Main", "LockType", "", folder + "/" + practice::kSettingsFile);
    return numeric_value(type).amount == 1;
}

// Chooses the engine for all commands that show a practice.
std::unique_ptr<Engine> make_engine(const std::string& folder, platform::OpenMode access) {
    auto engine = std::make_unique<local::LocalEngine>();
    engine->set_proprietary_locking(uses_proprietary_locks(folder));
    engine->set_read_only(access == platform::OpenMode::kReadOnly);
    return engine;
}

}  // namespace

Practice::Practice(std::string folder, platform::OpenMode access)
    : folder_(std::move(folder)), engine_(make_engine(folder_, access)) {}

std::string Practice::path_of(std::string_view file) const {
    return folder_ + "/" + std::string(file) + ".DBF";
}

const practice::TableEntry* Practice::find(int number) const {
    const auto found = std::ranges::find_if(practice::kTables, [&](const auto& table) {
        return table.area == number && platform::file_exists(path_of(table.file));
    });
    return found == practice::kTables.end() ? nullptr : &*found;
}

std::unique_ptr<Table> Practice::open(std::string_view name) {
    std::string_view file = name;
    for (const practice::TableEntry& table : practice::kTables) {
        if (!equal_ignoring_case(table.alias, name)) continue;
        if (const auto* present = find(table.area)) file = present->file;
    }
    try {
        OpenAnswer answer =
            engine_->open(platform::system_path(path_of(file)), TableSharing::kShared);
        const auto* refusal = std::get_if<Refusal>(&answer);
        if (!refusal) return std::move(std::get<std::unique_ptr<Table>>(answer));
        const bool held = refusal->code == FaultCode::kBusy;
        throw ToolError(held ? ExitCode::kLocked : ExitCode::kCannotOpen, refusal->explanation());
    } catch (const EngineFault& fault) {
        throw ToolError(ExitCode::kCannotOpen, fault.what());
    }
}

}  // namespace brenik::tools
