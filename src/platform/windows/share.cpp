// Shares on Windows. The system tells only whether a drive is a network drive. Locks on one always
// reach the server, and the system drops its cache of a file when another computer opens it.

#include "platform/share.h"

#include <windows.h>

#include <algorithm>
#include <array>

#include "platform/windows/system_text.h"

namespace brenik::platform {

ShareFacts share_facts(const std::string& path) {
    ShareFacts facts;
    const auto full = full_path(path);
    if (!full) return facts;
    wchar_t root[MAX_PATH + 1] = {};
    if (!GetVolumePathNameW(full->c_str(), root, MAX_PATH)) return facts;
    facts.remote = GetDriveTypeW(root) == DRIVE_REMOTE;
    return facts;
}

bool ends_session(int system_code) {
    constexpr std::array kCodes{
        ERROR_NETNAME_DELETED,     ERROR_UNEXP_NET_ERR,  ERROR_BAD_NETPATH,
        ERROR_BAD_NET_NAME,        ERROR_BAD_NET_RESP,   ERROR_NETWORK_BUSY,
        ERROR_DEV_NOT_EXIST,       ERROR_ADAP_HDW_ERR,   ERROR_NOT_CONNECTED,
        ERROR_CONNECTION_ABORTED,  ERROR_SEM_TIMEOUT,    ERROR_NETWORK_UNREACHABLE,
        ERROR_HOST_UNREACHABLE,    ERROR_INVALID_HANDLE, ERROR_CONNECTION_INVALID,
        ERROR_GRACEFUL_DISCONNECT, ERROR_VC_DISCONNECTED};
    return std::ranges::find(kCodes, static_cast<LONG>(system_code)) != kCodes.end();
}

bool is_unreachable(int system_code) {
    constexpr std::array kCodes{ERROR_BAD_NETPATH, ERROR_SEM_TIMEOUT, ERROR_NETWORK_UNREACHABLE,
                                ERROR_HOST_UNREACHABLE};
    return std::ranges::find(kCodes, static_cast<LONG>(system_code)) != kCodes.end();
}

int not_connected() { return ERROR_NOT_CONNECTED; }

std::uint64_t count_reconnections() { return 0; }

}  // namespace brenik::platform
