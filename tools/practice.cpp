// Finds and opens tables for the tool, and reports the reason if that fails.

#include "practice.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>
#include <optional>
#include <system_error>

#include "display.h"
#include "engine/choice/choose_engine.h"
#include "engine/local/local_engine.h"
#include "native_path.h"
#include "platform/file.h"
#include "platform/profile.h"
#include "reason.h"
#include "util/runtime.h"
#include "util/suggestion.h"

namespace brenik::tools {
namespace {

namespace fs = std::filesystem;

std::string in_folder(const std::string& folder, const std::string& name) {
    return (native_path(folder) / native_path(name)).string();
}

std::string main_setting(const std::string& folder, const char* key) {
    return platform::profile_string(practice::kMainSection, key, "",
                                    in_folder(folder, practice::kSettingsFile));
}

double main_number(const std::string& folder, const char* key) {
    return numeric_value(main_setting(folder, key)).amount;
}

std::string table_file(const std::string& folder, const std::string& name) {
    return in_folder(folder, name + ".DBF");
}

// Throws ToolError if the system does not say whether there is such a folder.
bool is_folder(const std::string& path) {
    std::error_code error;
    const fs::file_type type = fs::status(native_path(platform::system_path(path)), error).type();
    if (type == fs::file_type::none) {
        throw ToolError(ExitCode::kCannotOpen, path + ": " + reason_of(error));
    }
    return type == fs::file_type::directory;
}

// The tables in a folder, sorted by name.
std::vector<std::string> tables_in(const std::string& folder) {
    std::vector<std::string> tables;
    std::error_code error;
    for (fs::directory_iterator entry(native_path(platform::system_path(folder)), error), end;
         !error && entry != end; entry.increment(error)) {
        std::error_code unknown;
        if (!equal_ignoring_case(entry->path().extension().string(), ".DBF")) continue;
        if (!entry->is_directory(unknown)) tables.push_back(entry->path().string());
    }
    if (error) throw ToolError(ExitCode::kCannotOpen, folder + ": " + reason_of(error));
    std::ranges::sort(tables);
    return tables;
}

// Another file of a table, by its extension.
bool belongs_to_table(const std::string& name) {
    constexpr std::array<std::string_view, 3> kExtensions{".CDX", ".FPT", ".DBT"};
    const std::string extension = native_path(name).extension().string();
    return std::ranges::any_of(
        kExtensions, [&](std::string_view other) { return equal_ignoring_case(extension, other); });
}

// The file of a table of the folder, named by file or alias; nothing if there is none.
std::optional<std::string> table_in(const std::string& folder, const std::string& name) {
    std::vector<std::string> candidates;
    if (native_path(name).has_extension()) candidates.push_back(in_folder(folder, name));
    candidates.push_back(table_file(folder, name));
    for (const practice::TableEntry& table : practice::kTables) {
        if (equal_ignoring_case(table.alias, name)) {
            candidates.push_back(table_file(folder, table.file));
        }
    }
    for (const std::string& candidate : candidates) {
        if (!platform::file_exists(candidate)) continue;
        if (!belongs_to_table(candidate)) return platform::system_path(candidate);
        throw ToolError(ExitCode::kUsage, candidate + ": belongs to a table; name the .DBF file");
    }
    return {};
}

// What the tables of a folder are called: by their files and by their aliases. Nothing if the
// folder cannot be listed.
std::vector<std::string> names_in(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    if (!fs::is_directory(native_path(platform::system_path(folder)), error)) return names;
    for (const std::string& path : tables_in(folder)) {
        names.push_back(native_path(path).stem().string());
        for (const practice::TableEntry& table : practice::kTables) {
            if (equal_ignoring_case(table.file, names.back())) names.emplace_back(table.alias);
        }
    }
    return names;
}

// Ends the search for a table that is not there, or that the system does not show.
[[noreturn]] void refuse_missing(const std::string& folder, const std::string& name,
                                 const std::string& text) {
    const std::string file =
        native_path(name).has_extension() ? in_folder(folder, name) : table_file(folder, name);
    const platform::File tried = platform::File::open(file, platform::OpenMode::kSettings);
    const bool missing = tried.failure() == platform::OpenFailure::kMissing;
    throw ToolError(ExitCode::kCannotOpen,
                    missing
                        ? text + did_you_mean(native_path(name).stem().string(), names_in(folder))
                        : file + ": " + tried.why_not_open());
}

NamedTables table_of_folder(const TableArguments& arguments) {
    const auto& [folder, name] = arguments;
    if (name.find_first_of("\\/") != std::string::npos) {
        throw ToolError(ExitCode::kUsage,
                        name + ": name a table of " + folder + ", without a folder of its own");
    }
    require_folder(folder);
    const std::optional<std::string> file = table_in(folder, name);
    if (!file) refuse_missing(folder, name, folder + ": no table " + name);
    return {folder, {*file}};
}

// A folder may prove to hold no tables.
NamedTables look_up(const TableArguments& arguments) {
    const std::string& path = arguments.path;
    if (path.empty()) throw ToolError(ExitCode::kUsage, "an empty name names no table or folder");
    if (!arguments.table.empty()) return table_of_folder(arguments);
    const bool is_a_folder = is_folder(path);
    NamedTables whole{path, is_a_folder ? tables_in(path) : std::vector<std::string>(), true};
    if (!whole.files.empty()) return whole;
    const fs::path found = native_path(platform::system_path(path));
    const std::string name = found.filename().string();
    const std::string folder = found.has_parent_path() ? found.parent_path().string() : ".";
    const bool has_name = !name.empty() && name != "." && name != "..";
    if (const auto file = has_name ? table_in(folder, name) : std::nullopt) {
        return {folder, {*file}};
    }
    if (is_a_folder) return whole;
    if (!has_name) throw ToolError(ExitCode::kCannotOpen, path + ": no such folder");
    refuse_missing(folder, name, path + ": no such table or folder");
}

}  // namespace

ExitCode exit_code_of(const EngineFault& fault) {
    const auto* refused = dynamic_cast<const OpenRefused*>(&fault);
    if (fault.code() == FaultCode::kBusy) return ExitCode::kLocked;
    return refused != nullptr ? ExitCode::kCannotOpen : ExitCode::kProblem;
}

bool NamedTables::is_practice() const {
    return whole_folder && platform::file_exists(table_file(folder, practice::kSystem.file));
}

void require_folder(const std::string& path) {
    if (is_folder(path)) return;
    if (platform::file_exists(path)) {
        throw ToolError(ExitCode::kUsage, path + ": is a file; name its folder");
    }
    throw ToolError(ExitCode::kCannotOpen, path + ": no such folder");
}

NamedTables find_tables(const TableArguments& arguments) {
    NamedTables named = look_up(arguments);
    if (!named.files.empty()) return named;
    throw ToolError(ExitCode::kCannotOpen, arguments.path + ": contains no tables");
}

NamedTables find_table(const TableArguments& arguments) {
    NamedTables named = look_up(arguments);
    if (!named.whole_folder) return named;
    throw ToolError(ExitCode::kUsage, arguments.path + ": is a folder; name one of its tables too");
}

EngineSettings engine_settings(const std::string& folder) {
    return {main_setting(folder, practice::kEngineSetting),
            main_number(folder, practice::kServerTypeSetting)};
}

void tell_of_server(const std::string& folder) {
    if (engine_settings(folder).server_type != kRemoteServer) return;
    std::cerr << "brenik: "
              << to_line(in_folder(folder, practice::kSettingsFile) +
                         " names a database server, which may keep files of the practice open: end "
                         "the programs that use the practice, stop the server, and try again")
              << "\n";
}

Practice::Practice(std::string folder, platform::OpenMode access, Through through)
    : folder_(std::move(folder)) {
    const EngineSettings settings = engine_settings(folder_);
    const EngineChoice choice =
        through == Through::kFiles ? EngineChoice() : choose_engine(settings);
    if (choice.kind == EngineKind::kClient) {
        use_client(choice, settings);
    } else {
        use_files(access);
    }
    engine_->set_proprietary_locking(main_number(folder_, practice::kLockTypeSetting) == 1);
}

// Like a session, falls back to the local server if the remote one does not answer.
void Practice::use_client(const EngineChoice& choice, const EngineSettings& settings) {
    engine_ = choice.make();
    if (settings.server_type == kRemoteServer) {
        engine_->set_server_type(kRemoteServer);  // before the question, like CHECKSERVER
        if (engine_->server_loaded(folder_) == kRemoteServer) return;
    }
    engine_->set_server_type(kLocalServer);
}

void Practice::use_files(platform::OpenMode access) {
    auto engine = std::make_unique<local::LocalEngine>();
    if (access == platform::OpenMode::kReadOnly) {
        engine->set_lenient([this](const Refusal& refusal) { unavailable_.push_back(refusal); });
    }
    engine_ = std::move(engine);
}

const practice::TableEntry* Practice::find(int number) const {
    const auto found = std::ranges::find_if(practice::kTables, [&](const auto& table) {
        return table.area == number && platform::file_exists(table_file(folder_, table.file));
    });
    return found == practice::kTables.end() ? nullptr : &*found;
}

std::unique_ptr<Table> Practice::open(const std::string& name) {
    return open_file(find_table({folder_, name}).file());
}

std::unique_ptr<Table> Practice::open_file(const std::string& path) {
    try {
        OpenAnswer answer = engine_->open(path, TableSharing::kShared, 0);
        const auto* refusal = std::get_if<Refusal>(&answer);
        if (!refusal) return std::move(std::get<std::unique_ptr<Table>>(answer));
        const bool held = refusal->code == FaultCode::kBusy;
        throw ToolError(held ? ExitCode::kLocked : ExitCode::kCannotOpen, refusal->explanation());
    } catch (const EngineFault& fault) {
        const bool held = fault.code() == FaultCode::kBusy;
        throw ToolError(held ? ExitCode::kLocked : ExitCode::kCannotOpen, fault.what());
    }
}

}  // namespace brenik::tools
