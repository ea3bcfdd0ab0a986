// These systems have one convention.

#include "platform/calling_convention.h"

namespace brenik::platform {

std::optional<std::size_t> bytes_removed(DynamicLibrary::Function,
                                         std::span<const std::uintptr_t>) noexcept {
    return std::nullopt;
}

}  // namespace brenik::platform
