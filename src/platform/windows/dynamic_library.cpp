// Libraries loaded by Windows.
//
// The folders are searched here, one by one, and the file that is found is loaded by its path:
// Windows' own search would include the current folder, and could not tell which file it refused.

#include "platform/dynamic_library.h"

#include <windows.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

#include "platform/file.h"
#include "platform/windows/system_text.h"
#include "util/bytes.h"

namespace brenik::platform {

namespace {

constexpr int kBits = static_cast<int>(sizeof(void*)) * 8;

// While it exists, a library that needs a missing one shows no box.
class NoBox {
  public:
    NoBox() : mode_(GetThreadErrorMode()) {
        SetThreadErrorMode(mode_ | SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, nullptr);
    }
    ~NoBox() { SetThreadErrorMode(mode_, nullptr); }
    NoBox(const NoBox&) = delete;
    NoBox& operator=(const NoBox&) = delete;

  private:
    DWORD mode_;
};

std::wstring file_of(HMODULE module) {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length =
            GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

std::wstring system_folder(UINT(WINAPI* get)(LPWSTR, UINT)) {
    std::wstring path(MAX_PATH, L'\0');
    path.resize(get(path.data(), MAX_PATH));
    return path;
}

// The folders of installed libraries.
std::array<std::wstring, 3> library_folders() {
    const std::wstring program = file_of(nullptr);
    return {program.substr(0, program.rfind(L'\\')), system_folder(GetSystemDirectoryW),
            system_folder(GetWindowsDirectoryW)};
}

// The machine that a program or library is made for:
//   offset size
//        0    2  "MZ"
//       60    4  offset of the second header: "PE" 0 0, then 2 bytes for the machine
std::optional<std::uint16_t> machine_of(const File& file) {
    std::array<Byte, 64> first{};
    if (file.read_at(0, first) != first.size() || !as_text(first).starts_with("MZ")) return {};
    constexpr std::string_view kSecond("PE\0\0", 4);
    std::array<Byte, 6> second{};
    const std::uint32_t offset = load_le32(first.data() + 60);
    if (file.read_at(offset, second) != second.size() || !as_text(second).starts_with(kSecond)) {
        return {};
    }
    return load_le16(second.data() + kSecond.size());
}

std::string fault_of_image(const File& file) {
    const std::string own = " bits, in a program of " + std::to_string(kBits);
    const std::optional<std::uint16_t> machine = machine_of(file);
    if (!machine) return "not a library of this system";
    if (*machine == IMAGE_FILE_MACHINE_I386 && kBits != 32) return "a library of 32" + own;
    if (*machine == IMAGE_FILE_MACHINE_AMD64 && kBits != 64) return "a library of 64" + own;
    return "damaged, or made for another processor";
}

std::string fault_of(const std::wstring& path, DWORD code) {
    const File file = File::open(narrow_text(path), OpenMode::kSettings);
    if (!file.is_open()) return file.why_not_open();
    if (code == ERROR_MOD_NOT_FOUND) {
        return "a library that it needs is neither beside it nor in a folder of the system";
    }
    if (code == ERROR_BAD_EXE_FORMAT) return fault_of_image(file);
    return system_text(static_cast<int>(code));
}

// Whether a path begins with a drive and a separator, or with a server.
bool is_absolute(const std::string& path) {
    constexpr std::string_view kSeparators = "\\/";
    const auto is_separator = [&](std::size_t at) {
        return at < path.size() && kSeparators.find(path[at]) != std::string_view::npos;
    };
    return is_separator(0) ? is_separator(1) : path.find(':') == 1 && is_separator(2);
}

struct Attempt {
    HMODULE module;
    std::string path;
    std::string why_not;
};

// The libraries that it needs are looked for beside it first.
Attempt load(const std::wstring& path) {
    const NoBox no_box;
    HMODULE module =
        LoadLibraryExW(path.c_str(), nullptr,
                       LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_APPLICATION_DIR |
                           LOAD_LIBRARY_SEARCH_SYSTEM32);
    // Windows 7 knows these flags only since an update.
    if (module == nullptr && GetLastError() == ERROR_INVALID_PARAMETER) {
        module = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    }
    if (module == nullptr) return {nullptr, narrow_text(path), fault_of(path, GetLastError())};
    return {module, narrow_text(file_of(module)), {}};
}

HMODULE module_in(void* handle) { return static_cast<HMODULE>(handle); }

}  // namespace

std::string library_file_name(const std::string& stem) {
    return stem + std::to_string(kBits) + ".dll";
}

std::string path_for_libraries(const std::string& path) {
    const std::optional<std::wstring> wide = wide_text(path);
    const std::string narrow = wide ? narrow_path(*wide, CP_ACP) : std::string();
    return narrow.empty() ? path : narrow;
}

DynamicLibrary DynamicLibrary::load_file(const std::string& path) {
    const std::optional<std::wstring> full = full_path(path);
    if (!full || !is_absolute(path)) {
        return {nullptr, path, "the path must be absolute, with a drive or a server"};
    }
    const Attempt attempt = load(*full);
    return {attempt.module, attempt.module != nullptr ? attempt.path : path, attempt.why_not};
}

DynamicLibrary DynamicLibrary::load_installed(const std::string& name) {
    const std::wstring wide(name.begin(), name.end());
    HMODULE module = nullptr;
    if (GetModuleHandleExW(0, wide.c_str(), &module)) {
        return {module, narrow_text(file_of(module)), {}};
    }
    std::string folders;
    for (const std::wstring& folder : library_folders()) {
        const std::wstring path = folder + L'\\' + wide;
        if (GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES) {
            const Attempt attempt = load(path);
            return {attempt.module, attempt.path, attempt.why_not};
        }
        folders += (folders.empty() ? "" : ", ") + narrow_text(folder);
    }
    return {nullptr, name, "there is no such file in " + folders};
}

// The version resource begins with its length, the length of its value, its kind and its name,
// padded to a multiple of four bytes; then the value.
std::string DynamicLibrary::version() const {
    constexpr std::size_t kValueOffset = 40;
    const HMODULE module = module_in(handle_);
    if (module == nullptr) return {};
    const HRSRC resource =
        FindResourceW(module, MAKEINTRESOURCEW(VS_VERSION_INFO), MAKEINTRESOURCEW(16));
    if (resource == nullptr) return {};
    const auto* bytes = static_cast<const char*>(LockResource(LoadResource(module, resource)));
    VS_FIXEDFILEINFO value{};
    if (bytes == nullptr || SizeofResource(module, resource) < kValueOffset + sizeof value)
        return {};
    std::memcpy(&value, bytes + kValueOffset, sizeof value);
    if (value.dwSignature != VS_FFI_SIGNATURE) return {};
    return std::to_string(HIWORD(value.dwFileVersionMS)) + '.' +
           std::to_string(LOWORD(value.dwFileVersionMS)) + '.' +
           std::to_string(HIWORD(value.dwFileVersionLS)) + '.' +
           std::to_string(LOWORD(value.dwFileVersionLS));
}

DynamicLibrary::Function DynamicLibrary::find(const char* name) const {
    if (handle_ == nullptr) return nullptr;
    return reinterpret_cast<Function>(
        reinterpret_cast<void*>(GetProcAddress(module_in(handle_), name)));
}

}  // namespace brenik::platform
