// Sessions with servers, by the system's number of the file system.

#include "platform/share.h"

#include <map>
#include <memory>

namespace brenik::platform {

ShareSession::ShareSession(bool remote)
    : remote_(remote), connections_(remote ? count_reconnections() : 0) {}

ShareSession& ShareSession::of(std::uint64_t device, const std::function<bool()>& is_remote) {
    static std::map<std::uint64_t, std::unique_ptr<ShareSession>> sessions;
    auto& session = sessions[device];
    if (!session) session.reset(new ShareSession(is_remote()));
    return *session;
}

void ShareSession::look() {
    if (!remote_) return;
    const std::uint64_t now = count_reconnections();
    if (now != connections_) lose();
    connections_ = now;
}

}  // namespace brenik::platform
