// The process's current folder and the folders of a workstation's settings.
//
// A current directory on a network share has no drive letter: its drive is "\", and its name begins
// with the second of the two separators. Drive and name together are the folder again.

#include "platform/folders.h"

#include <windows.h>

#include <algorithm>
#include <new>

#include "platform/windows/system_text.h"

namespace brenik::platform {

namespace {

std::string current_folder() {
    std::wstring folder(GetCurrentDirectoryW(0, nullptr), L'\0');
    folder.resize(GetCurrentDirectoryW(static_cast<DWORD>(folder.size()), folder.data()));
    return narrow_text(folder);
}

std::string without_last_separators(const std::string& folder) {
    return folder.substr(0, folder.find_last_not_of("/\\") + 1);
}

bool has_drive(const std::string& folder) { return folder.size() >= 2 && folder[1] == ':'; }

}  // namespace

std::string current_drive() {
    const std::string folder = current_folder();
    return has_drive(folder) ? folder.substr(0, 1) : "\\";
}

std::string current_directory() {
    const std::string folder = without_last_separators(current_folder());
    const std::size_t skipped = has_drive(folder) ? 3 : 1;
    return folder.substr(std::min(skipped, folder.size()));
}

std::string absolute_path(const std::string& path) {
    const std::optional<std::wstring> full = full_path(path);
    if (!full) return path;
    const std::string found = narrow_text(*full);
    return wide_text(found) == full ? found : path;
}

std::string folder_identity(const std::string& path) {
    const std::optional<std::wstring> full = full_path(path);
    if (!full) return path;
    const HANDLE folder = CreateFileW(full->c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (folder == INVALID_HANDLE_VALUE) return path;
    BY_HANDLE_FILE_INFORMATION facts;
    const bool told = GetFileInformationByHandle(folder, &facts) != 0;
    CloseHandle(folder);
    if (!told) return path;
    return std::to_string(facts.dwVolumeSerialNumber) + ":" + std::to_string(facts.nFileIndexHigh) +
           ":" + std::to_string(facts.nFileIndexLow);
}

std::string path_variable(const std::string& name) {
    return narrow_path(wide_environment_variable(std::wstring(name.begin(), name.end()).c_str()));
}

std::string fault_file_path() {
    const std::string chosen = path_variable("BRENIK_FAULTS");
    if (!chosen.empty()) return chosen;
    const std::string own = path_variable("LOCALAPPDATA");
    return own.empty() ? own : own + "\\BrenikDB\\Faults.log";
}

std::string windows_folder() {
    const std::string chosen = environment_variable(L"BRENIK_WINDIR");
    if (!chosen.empty()) return without_last_separators(chosen);
    wchar_t folder[MAX_PATH] = {};
    GetWindowsDirectoryW(folder, MAX_PATH);
    return without_last_separators(narrow_text(folder));
}

void make_folder_of(const std::string& file) noexcept {
    try {
        const std::optional<std::wstring> full = full_path(file);
        if (full) CreateDirectoryW(full->substr(0, full->rfind(L'\\')).c_str(), nullptr);
    } catch (const std::bad_alloc&) {
        // Out of memory: the folder stays missing.
    }
}

}  // namespace brenik::platform
