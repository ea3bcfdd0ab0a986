// The descriptors of this process's Files, which the child of a fork closes.

#pragma once

namespace brenik::platform {

// Where the handle of a File keeps its descriptor; no descriptor of a File is as large.
inline constexpr int kDescriptorBits = 20;

// While one lives, no thread of the process forks. Opening a descriptor and noting it, or
// forgetting one and closing it, is a single step to every child.
class ForksWait {
  public:
    ForksWait() noexcept;
    ~ForksWait();
    ForksWait(const ForksWait&) = delete;
    ForksWait& operator=(const ForksWait&) = delete;

  private:
    bool locked_;
};

// False when the child of a fork could not close it.
[[nodiscard]] bool note_descriptor(int descriptor) noexcept;
void forget_descriptor(int descriptor) noexcept;

}  // namespace brenik::platform
