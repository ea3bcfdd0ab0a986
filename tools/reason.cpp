// Words the exceptions of the C++ library.

#include "reason.h"

#include <filesystem>
#include <new>
#include <stdexcept>
#include <system_error>

namespace brenik::tools {

std::string reason_of(const std::exception& error) {
    if (const auto* file = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
        const std::string path = file->path1().string();
        return (path.empty() ? "" : path + ": ") + file->code().message();
    }
    if (const auto* system = dynamic_cast<const std::system_error*>(&error)) {
        return system->code().message();
    }
    const bool is_memory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr ||
                           dynamic_cast<const std::length_error*>(&error) != nullptr;
    return is_memory ? "not enough memory" : error.what();
}

}  // namespace brenik::tools
