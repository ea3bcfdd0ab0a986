// Finds out the calling convention of a function that is known only by its address.
//
// 32-bit Windows has two conventions in use: the function removes its arguments from the stack, or
// the caller does. A call by the wrong one damages the stack of the caller.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/dynamic_library.h"

namespace brenik::platform {

// Calls the function with these words as arguments, in a way that survives either convention, and
// tells how many bytes the function has removed from the stack. Empty, and without a call, in a
// process that has only one convention.
std::optional<std::size_t> bytes_removed(DynamicLibrary::Function function,
                                         std::span<const std::uintptr_t> arguments) noexcept;

}  // namespace brenik::platform
