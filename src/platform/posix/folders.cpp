// The folders of a process and its user on POSIX systems.

#include "platform/folders.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <system_error>

#include "platform/file.h"
#include "platform/file_calls.h"

namespace brenik::platform {

namespace {

constexpr const char* kOwnFolder = "/.brenik";

std::string home_folder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
    const passwd* account = getpwuid(geteuid());
    return account != nullptr ? account->pw_dir : "";
}

}  // namespace

std::string current_drive() { return "\\"; }

std::string current_directory() {
    std::error_code failed;
    std::string folder = std::filesystem::current_path(failed).string();
    if (failed || folder.empty()) return {};
    std::replace(folder.begin(), folder.end(), '/', '\\');
    return folder.substr(1);
}

std::string absolute_path(const std::string& path) {
    if (path.empty() || path.find_first_of("\\/") == 0) return path;
    std::error_code failed;
    const std::string folder = std::filesystem::current_path(failed).string();
    return failed ? path : folder + (folder.ends_with('/') ? "" : "/") + path;
}

std::string folder_identity(const std::string& path) {
    std::string name = path;
    std::replace(name.begin(), name.end(), '\\', '/');
    struct stat facts;
    count(FileCall::kStat);
    if (stat(name.c_str(), &facts) != 0 && stat(system_path(path).c_str(), &facts) != 0) {
        return path;
    }
    return std::to_string(facts.st_dev) + ":" + std::to_string(facts.st_ino);
}

std::string path_variable(const std::string& name) {
    const char* path = std::getenv(name.c_str());
    return path != nullptr ? path : "";
}

std::string fault_file_path() {
    std::string chosen = path_variable("BRENIK_FAULTS");
    if (!chosen.empty()) return chosen;
    const std::string home = home_folder();
    return home.empty() ? home : home + kOwnFolder + "/Faults.log";
}

std::string windows_folder() {
    const std::string folder = path_variable("BRENIK_WINDIR");
    if (folder.empty()) return home_folder() + kOwnFolder;
    return folder.substr(0, folder.find_last_not_of("/\\") + 1);
}

void make_folder_of(const std::string& file) noexcept {
    constexpr mode_t kWhateverTheMaskAllows = 0777;
    try {
        const std::string path = system_path(file);
        const std::size_t separator = path.rfind('/');
        if (separator == std::string::npos) return;
        ::mkdir(path.substr(0, separator).c_str(), kWhateverTheMaskAllows);
    } catch (const std::bad_alloc&) {
        // Out of memory: the folder stays missing.
    }
}

}  // namespace brenik::platform
