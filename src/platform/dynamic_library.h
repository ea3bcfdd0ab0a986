// Libraries of other makers, loaded at run time.
//
// A library stays loaded until the process ends: at the time when ours is unloaded, the system
// allows no call into another one, and nobody could tell whether the host still uses it.

#pragma once

#include <string>

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

    // Loads a library by its absolute path, or by its plain file name. The system looks for a plain
    // name beside the host's program and in its own folders, never in the current folder. Throws
    // nothing: on failure the library is not loaded, and why_not() gives the reason.
    static DynamicLibrary load(const std::string& name);

    bool loaded() const { return handle_ != nullptr; }
    // The file that the system found; the name as given if it is not loaded.
    const std::string& path() const { return path_; }
    // Why the library is not loaded, without its name.
    const std::string& why_not() const { return why_not_; }
    // The version that the file states, such as "12.0.0.4"; empty if it states none, as on Linux.
    std::string version() const;
    // Null if the library has no function of that name.
    Function find(const char* name) const;

  private:
    void* handle_ = nullptr;
    std::string path_;
    std::string why_not_;
};

// The usual file name of a library: "lib" and ".so" around its stem, on Windows the stem, the bits
// of an address in this process, and ".dll".
std::string library_file_name(const std::string& stem);

// The path or name that a variable of the environment holds; empty if it is unset, or if the
// process's code page cannot express it.
std::string path_variable(const std::string& name);

}  // namespace brenik::platform
