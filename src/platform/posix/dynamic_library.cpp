// Libraries loaded by the dynamic linker. Its messages name the file that is missing, but not why a
// file that exists is refused; that is read from the file.

#include "platform/dynamic_library.h"

#include <dlfcn.h>
#include <link.h>

#include <array>
#include <string_view>

#include "platform/file.h"
#include "util/bytes.h"

namespace brenik::platform {

namespace {

// The beginning of a program or library:
//   offset size
//        0    4  7F "ELF"
//        4    1  1: 32 bits, 2: 64 bits
//       18    2  processor
constexpr std::string_view kMagic = "\177ELF";
constexpr std::size_t kClassOffset = 4;
constexpr Byte kClass32 = 1;
constexpr std::size_t kProcessorOffset = 18;
using Beginning = std::array<Byte, 20>;

std::string_view processor(const Beginning& bytes) {
    return as_text(bytes).substr(kProcessorOffset);
}

const char* bits(const Beginning& bytes) { return bytes[kClassOffset] == kClass32 ? "32" : "64"; }

bool read_beginning(const File& file, Beginning& bytes) {
    return file.read_at(0, bytes) == bytes.size() && as_text(bytes).starts_with(kMagic);
}

// Why the linker refuses a file; empty if the file gives no reason.
std::string fault_of(const std::string& path) {
    const File file = File::open(path, OpenMode::kSettings);
    if (!file.is_open()) return file.why_not_open();
    Beginning found{};
    if (!read_beginning(file, found)) return "not a library of this system";
    Beginning own{};
    if (!read_beginning(File::open("/proc/self/exe", OpenMode::kSettings), own)) return {};
    if (found[kClassOffset] != own[kClassOffset]) {
        return std::string("a library of ") + bits(found) + " bits, in a program of " + bits(own);
    }
    if (processor(found) != processor(own)) return "made for another processor";
    return {};
}

// The linker's message without the name that it begins with.
std::string linkers_text(const std::string& name) {
    const char* text = dlerror();
    std::string reason = text != nullptr ? text : "the dynamic linker refused it";
    if (reason.starts_with(name + ": ")) reason.erase(0, name.size() + 2);
    return reason;
}

std::string loaded_file(void* handle, const std::string& name) {
    const link_map* entry = nullptr;
    const bool told = dlinfo(handle, RTLD_DI_LINKMAP, &entry) == 0 && entry != nullptr;
    return told && *entry->l_name != '\0' ? entry->l_name : name;
}

struct Attempt {
    void* handle;
    std::string path;
    std::string why_not;
};

// Everything that the library needs is looked for now: a missing part must not end the host later.
Attempt load(const std::string& name) {
    void* const handle = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return {nullptr, name, linkers_text(name)};
    return {handle, loaded_file(handle, name), {}};
}

}  // namespace

std::string library_file_name(const std::string& stem) { return "lib" + stem + ".so"; }

std::string path_for_libraries(const std::string& path) { return path; }

// The linker also looks in the current folder if LD_LIBRARY_PATH has an empty part.
DynamicLibrary DynamicLibrary::load_installed(const std::string& name) {
    const Attempt attempt = load(name);
    if (attempt.handle == nullptr || attempt.path.starts_with('/')) {
        return {attempt.handle, attempt.path, attempt.why_not};
    }
    return {nullptr, attempt.path, "it was found in the current folder, from which none is taken"};
}

DynamicLibrary DynamicLibrary::load_file(const std::string& path) {
    if (!path.starts_with('/')) return {nullptr, path, "the path must be absolute"};
    const Attempt attempt = load(path);
    const std::string fault = attempt.handle == nullptr ? fault_of(path) : std::string();
    return {attempt.handle, attempt.path, fault.empty() ? attempt.why_not : fault};
}

std::string DynamicLibrary::version() const { return {}; }

DynamicLibrary::Function DynamicLibrary::find(const char* name) const {
    return handle_ != nullptr ? reinterpret_cast<Function>(dlsym(handle_, name)) : nullptr;
}

}  // namespace brenik::platform
