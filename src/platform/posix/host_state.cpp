// Saves the floating-point environment, as the C library keeps it, and errno.

#include "platform/host_state.h"

#include <cerrno>
#include <cfenv>
#include <cstring>

namespace brenik::platform {

namespace {

struct Found {
    std::fenv_t environment;
    int error;
};

}  // namespace

HostState::HostState() noexcept {
    static_assert(sizeof(Found) <= kRoom);
    Found found = {};
    found.error = errno;
    std::fegetenv(&found.environment);
    std::fesetenv(FE_DFL_ENV);
    std::memcpy(found_.data(), &found, sizeof found);
}

HostState::~HostState() {
    Found found;
    std::memcpy(&found, found_.data(), sizeof found);
    std::fesetenv(&found.environment);
    errno = found.error;
}

}  // namespace brenik::platform
