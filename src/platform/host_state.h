// The state of the calling thread that belongs to the host.
//
// A host may have set its floating-point unit to another precision or rounding, or unmasked
// exceptions that our arithmetic raises harmlessly. While a HostState exists, the unit works as the
// C++ standard library expects. Its destructor restores the thread's floating-point environment and
// last error. On Windows the thread also shows no box for an empty drive in the meantime. Every
// export creates one first.

#pragma once

#include <array>
#include <cstddef>

namespace brenik::platform {

class HostState {
  public:
    HostState() noexcept;
    ~HostState();
    HostState(const HostState&) = delete;
    HostState& operator=(const HostState&) = delete;

  private:
    static constexpr std::size_t kRoom = 64;

    // The saved state, in the system's own form.
    alignas(std::max_align_t) std::array<std::byte, kRoom> found_;
};

}  // namespace brenik::platform
