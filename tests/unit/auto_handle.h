// GoogleTest's holder of a Windows handle. It goes without it where it is told that there are no
// threads, as the compiler's standard library has none; its death tests need it all the same.

#pragma once

#include <windows.h>

namespace testing::internal {

class AutoHandle {
  public:
    explicit AutoHandle(HANDLE handle = INVALID_HANDLE_VALUE) : handle_(handle) {}
    ~AutoHandle() { Reset(); }
    AutoHandle(const AutoHandle&) = delete;
    AutoHandle& operator=(const AutoHandle&) = delete;

    HANDLE Get() const { return handle_; }
    void Reset(HANDLE handle = INVALID_HANDLE_VALUE) {
        if (handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE) CloseHandle(handle_);
        handle_ = handle;
    }

  private:
    HANDLE handle_;
};

}  // namespace testing::internal
