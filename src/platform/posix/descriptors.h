// The open descriptors of this process's Files. The child of a fork closes them.

#pragma once

namespace brenik::platform {

// The low bits of a File's handle hold its descriptor; every File's descriptor fits in them.
inline constexpr int kDescriptorBits = 20;

// While one exists, no thread of the process forks. So a child never sees a descriptor that is open
// but not noted, or closed but still noted.
class ForksWait {
  public:
    ForksWait() noexcept;
    ~ForksWait();
    ForksWait(const ForksWait&) = delete;
    ForksWait& operator=(const ForksWait&) = delete;

  private:
    bool locked_;
};

// False if the child of a fork could not close the descriptor.
[[nodiscard]] bool note_descriptor(int descriptor) noexcept;
void forget_descriptor(int descriptor) noexcept;

}  // namespace brenik::platform
