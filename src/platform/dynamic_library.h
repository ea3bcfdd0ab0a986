// Libraries of other makers, loaded at run time.
//
// A library stays loaded until the process ends: at the time when ours is unloaded, the system
// allows no call into another one, and nobody could tell whether the host still uses it.

#pragma once

#include <string>
#include <utility>

// The calling convention of the functions of such a library.
#if defined(_WIN32) && !defined(_WIN64)
#define BRENIK_CLIENT_CALL __stdcall
#else
#define BRENIK_CLIENT_CALL
#endif

namespace brenik::platform {

class DynamicLibrary {
  public:
    using Function = void (*)();

    // Not loaded; why_not() is empty.
    DynamicLibrary() = default;

    // Both throw nothing: on failure the library is not loaded, and why_not() gives the reason.
    // load_file() takes an absolute path; load_installed() a file name, which the system finds as
    // it does for any program: on Windows beside the host's program and in Windows' own folders,
    // unless the process has loaded a library of that name before. Neither looks in the current
    // folder.
    static DynamicLibrary load_file(const std::string& path);
    static DynamicLibrary load_installed(const std::string& name);

    bool loaded() const { return handle_ != nullptr; }
    // The file that the system found; the name as given if there is none.
    const std::string& path() const { return path_; }
    // Why the library is not loaded, without its name.
    const std::string& why_not() const { return why_not_; }
    // The version that the file states, such as "12.0.0.4"; empty if it states none, as on Linux.
    std::string version() const;
    // Null if the library has no function of that name.
    Function find(const char* name) const;

  private:
    DynamicLibrary(void* handle, std::string path, std::string why_not)
        : handle_(handle), path_(std::move(path)), why_not_(std::move(why_not)) {}

    void* handle_ = nullptr;
    std::string path_;
    std::string why_not_;
};

// The usual file name of a library: "lib" and ".so" around its stem, on Windows the stem, the bits
// of an address in this process, and ".dll".
std::string library_file_name(const std::string& stem);

// A path of this process as such a library takes it: on Windows in the ANSI code page, if need be
// by the file's short name.
std::string path_for_libraries(const std::string& path);

}  // namespace brenik::platform
