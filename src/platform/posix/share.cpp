// Reads Linux's descriptions of mounts.

#include "platform/share.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>

#include "platform/file.h"

namespace brenik::platform {

namespace {

// Reads a file of /proc to its end, because the system reports no size for it. Empty if there is no
// such file.
std::string read_system_file(const char* path) {
    std::string text;
    const int file = ::open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return text;
    char chunk[4096];
    for (ssize_t got; (got = ::read(file, chunk, sizeof chunk)) != 0;) {
        if (got > 0) {
            text.append(chunk, static_cast<std::size_t>(got));
        } else if (errno != EINTR) {
            break;
        }
    }
    ::close(file);
    return text;
}

std::string_view next_word(std::string_view& line) {
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    const std::size_t end = std::min(line.find(' '), line.size());
    const std::string_view word = line.substr(0, end);
    line.remove_prefix(end);
    return word;
}

// Finds the device in /proc/self/mountinfo, whose lines are "ID PARENT MAJOR:MINOR ROOT POINT
// OPTIONS [TAG...] - TYPE SOURCE OPTIONS" (see proc(5)). The last of several matches is the topmost
// mount.
void find_mount(const std::string& device, ShareFacts& facts) {
    const std::string mounts = read_system_file("/proc/self/mountinfo");
    for (std::string_view rest = mounts; !rest.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        next_word(line);
        next_word(line);
        if (next_word(line) != device) continue;
        const std::size_t behind_tags = line.find(" - ");
        if (behind_tags == std::string_view::npos) continue;
        line.remove_prefix(behind_tags + 3);
        facts.type = next_word(line);
        next_word(line);
        facts.options = next_word(line);
    }
}

bool has_option(const ShareFacts& facts, std::string_view option) {
    return ("," + facts.options + ",").find("," + std::string(option) + ",") != std::string::npos;
}

void judge_smb(ShareFacts& facts) {
    if (has_option(facts, "nobrl")) {
        facts.unsound =
            "it is mounted with nobrl, so locks stay on this workstation and the others "
            "damage what it writes; mount it without nobrl";
    }
    if (!has_option(facts, "cache=none")) {
        facts.doubtful =
            "it is mounted without cache=none, so this workstation may use stale data, "
            "and a change can be lost before the server gets it; mount it with cache=none";
    }
}

void judge_nfs(ShareFacts& facts) {
    for (const char* option : {"nolock", "local_lock=all", "local_lock=posix"}) {
        if (!has_option(facts, option)) continue;
        facts.unsound = std::string("it is mounted with ") + option +
                        ", so locks stay on this workstation and the others damage what it writes";
    }
}

}  // namespace

ShareFacts share_facts(const std::string& path) {
    ShareFacts facts;
    struct stat place;
    if (stat(system_path(path).c_str(), &place) != 0) return facts;
    find_mount(std::to_string(major(place.st_dev)) + ":" + std::to_string(minor(place.st_dev)),
               facts);
    const auto is = [&](std::string_view type) { return facts.type == type; };
    if (is("cifs") || is("smb3")) {
        judge_smb(facts);
    } else if (is("nfs") || is("nfs4")) {
        judge_nfs(facts);
    } else if (facts.type.starts_with("fuse")) {
        facts.doubtful = "what lies behind it decides whether locks reach other workstations";
    } else {
        return facts;
    }
    facts.remote = true;
    return facts;
}

bool ends_session(int system_code) {
    constexpr std::array kCodes{EIO,          EBADF,      EAGAIN,       ESTALE,   ETIMEDOUT,
                                ENOTCONN,     EHOSTDOWN,  EHOSTUNREACH, ENETDOWN, ENETUNREACH,
                                ECONNABORTED, ECONNRESET, ECONNREFUSED, EPIPE,    ESHUTDOWN};
    return std::ranges::find(kCodes, system_code) != kCodes.end();
}

bool is_unreachable(int system_code) {
    constexpr std::array kCodes{EHOSTDOWN,   EHOSTUNREACH, ENETDOWN,
                                ENETUNREACH, ETIMEDOUT,    ECONNREFUSED};
    return std::ranges::find(kCodes, system_code) != kCodes.end();
}

int not_connected() { return ENOTCONN; }

// The second line of the SMB client's statistics ends in "S session R share reconnects".
std::uint64_t count_reconnections() {
    const std::string counts = read_system_file("/proc/fs/cifs/Stats");
    const std::size_t end = counts.find(" share reconnects");
    std::uint64_t sum = 0;
    if (end == std::string::npos) return sum;
    const std::size_t begin = counts.rfind('\n', end) + 1;
    for (const char* at = counts.data() + begin; at < counts.data() + end;) {
        std::uint64_t number = 0;
        const auto read = std::from_chars(at, counts.data() + end, number);
        sum += number;
        at = read.ptr == at ? at + 1 : read.ptr;
    }
    return sum;
}

}  // namespace brenik::platform
