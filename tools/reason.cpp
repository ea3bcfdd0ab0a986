// Words the exceptions of the C++ library.

#include "reason.h"

#include <filesystem>
#include <new>
#include <stdexcept>

#include "platform/file.h"

namespace brenik::tools {

std::string reason_of(const std::exception& error) {
    if (const auto* file = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
        const std::string path = file->path1().string();
        return (path.empty() ? "" : path + ": ") + reason_of(file->code());
    }
    if (const auto* system = dynamic_cast<const std::system_error*>(&error)) {
        return reason_of(system->code());
    }
    const bool is_memory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr ||
                           dynamic_cast<const std::length_error*>(&error) != nullptr;
    return is_memory ? "not enough memory" : error.what();
}

// The C++ library words Windows' errors in the user's language and code page.
std::string reason_of(const std::error_code& error) {
    return error.category() == std::system_category() ? platform::system_text(error.value())
                                                      : error.message();
}

}  // namespace brenik::tools
