// The state of the calling thread that belongs to the host.
//
// A host may have set its floating-point unit to another precision or rounding, and may have left
// exceptions unmasked that our arithmetic raises harmlessly. While a HostState lives, the unit
// works as the C++ standard library expects; when it ends, the thread finds its floating-point
// environment and its last error as they were. On Windows the thread also shows no box for an empty
// drive meanwhile. Every export makes one first.

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

    // What was found, in the system's own form.
    alignas(std::max_align_t) std::array<std::byte, kRoom> found_;
};

}  // namespace brenik::platform
