// Tells a forked child from its parent.
//
// The child of a fork begins with a copy of its parent's memory, but not of its files and locks
// (file.h). An object that must not be used in the child remembers the generation in which it was
// created.

#pragma once

namespace brenik::platform {

// Greater by one in the child of a fork than in its parent. Makes no system call.
unsigned process_generation() noexcept;

}  // namespace brenik::platform
