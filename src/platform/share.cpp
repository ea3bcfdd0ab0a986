// Sessions with servers, by the system's device number of the file system.

#include "platform/share.h"

#include <map>
#include <memory>

namespace brenik::platform {

ShareSession::ShareSession(Kind kind)
    : kind_(kind), connections_(remote() ? count_reconnections() : 0) {}

ShareSession& ShareSession::of(std::uint64_t device, const std::function<Kind()>& kind_of) {
    // Never destroyed: files may be closed after all other objects.
    static auto& sessions = *new std::map<std::uint64_t, std::unique_ptr<ShareSession>>;
    auto& session = sessions[device];
    if (!session) session.reset(new ShareSession(kind_of()));
    return *session;
}

void ShareSession::lose(int system_code) {
    ++losses_;
    if (is_unreachable(system_code)) reachable_ = false;
}

void ShareSession::look() {
    if (!remote()) return;
    const std::uint64_t now = count_reconnections();
    if (now != connections_) lose();
    connections_ = now;
}

}  // namespace brenik::platform
