// What a File does alike on every system.

#include "platform/file.h"

#include <utility>

namespace brenik::platform {

File::File(File&& other) noexcept
    : handle_(std::exchange(other.handle_, kNoHandle)),
      failure_(other.failure_),
      unsynced_(other.unsynced_),
      path_(std::move(other.path_)) {}

File& File::operator=(File&& other) noexcept {
    if (this == &other) return *this;
    close();
    handle_ = std::exchange(other.handle_, kNoHandle);
    failure_ = other.failure_;
    unsynced_ = other.unsynced_;
    path_ = std::move(other.path_);
    return *this;
}

}  // namespace brenik::platform
