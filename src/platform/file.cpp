// The parts of File that are the same on every system.

#include "platform/file.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "platform/share.h"

namespace brenik::platform {

File::File(File&& other) noexcept { *this = std::move(other); }

File& File::operator=(File&& other) noexcept {
    if (this == &other) return *this;
    close();
    handle_ = std::exchange(other.handle_, kNoHandle);
    failure_ = other.failure_;
    failure_code_ = other.failure_code_;
    unsynced_ = other.unsynced_;
    mode_ = other.mode_;
    sharing_ = other.sharing_;
    size_at_open_ = other.size_at_open_;
    locks_ = std::exchange(other.locks_, 0);
    remote_ = other.remote_;
    session_ = other.session_;
    losses_ = other.losses_;
    path_ = std::move(other.path_);
    return *this;
}

FileError::FileError(const std::string& operation, const std::string& path, std::uint64_t offset,
                     int system_code)
    : EngineFault(FaultCode::kInputOutput, operation,
                  path + ": " + operation + " at offset " + std::to_string(offset) +
                      " failed: " + system_text(system_code),
                  system_code),
      path_(path),
      offset_(offset) {}

bool ConnectionLost::unreachable() const { return is_unreachable(status()); }

std::string File::why_not_open() const {
    const std::string system =
        failure_code_ != 0 ? " (" + system_text(failure_code_) + ")" : std::string();
    switch (failure_) {
        case OpenFailure::kMissing:
            return "no such file";
        case OpenFailure::kSharing:
            return "in use by another program";
        case OpenFailure::kDenied:
            if (!system.empty()) return "no permission" + system;
            return writable() ? "no plain file, or marked as read-only" : "no plain file";
        case OpenFailure::kNone:
        case OpenFailure::kSystem:
            break;
    }
    return "cannot be opened" + system;
}

bool File::lost() const { return remote() && (!is_open() || session_->losses() != losses_); }

void File::reopen() {
    close();
    File again = open(path_, mode_ == OpenMode::kCreate ? OpenMode::kReadWrite : mode_, sharing_);
    if (!again.is_open()) {
        const int code = again.failure_code_ != 0 ? again.failure_code_ : not_connected();
        throw ConnectionLost("open again", path_, 0, code);
    }
    again.unsynced_ = unsynced_;
    *this = std::move(again);
}

void File::require_same_session() const {
    if (remote()) session_->look();
    require_session("use", 0);
}

void File::require_kept(std::uint64_t offset, std::span<const std::uint8_t> written) const {
    if (!remote()) return;
    std::vector<std::uint8_t> found(written.size());
    found.resize(read_at(offset, found));
    require_same_session();
    if (std::equal(found.begin(), found.end(), written.begin(), written.end())) return;
    throw EngineFault(FaultCode::kInputOutput, "read back",
                      path_ + ": the share does not return what was just written at offset " +
                          std::to_string(offset) +
                          "; check how it is mounted, and which other programs use its files");
}

// On a share every file takes it. While nobody holds a lock, a server may let workstations cache a
// file's data until one of them takes a lock; the message that revokes the cache may arrive too
// late.
bool File::takes_sharing_byte() const {
    return !is_log(mode_) && mode_ != OpenMode::kSettings &&
           (sharing_ != Sharing::kCovered || remote());
}

void File::require_session(const char* operation, std::uint64_t offset) const {
    if (lost()) throw ConnectionLost(operation, path_, offset, not_connected());
}

void File::fail(const char* operation, std::uint64_t offset, int system_code) const {
    if (remote() && ends_session(system_code)) {
        session_->lose(system_code);
        throw ConnectionLost(operation, path_, offset, system_code);
    }
    throw FileError(operation, path_, offset, system_code);
}

bool File::is_out_of_reach() const { return lost() && !session_->reachable(); }

// Nothing depends on the outcome for a lock that was lost before.
void File::unlocked(bool was_lost, int system_code) noexcept {
    if (was_lost) return;
    if (system_code != 0 && remote()) session_->lose(system_code);
    --locks_;
}

// A handle whose session has ended refuses locks until something was read through it. A File that
// holds no locks loses nothing when its session ends.
bool File::reached_again() {
    if (!remote() || locks_ != 0) return false;
    session_->lose();
    losses_ = session_->losses();
    std::uint8_t first;
    read_at(0, {&first, 1});
    return true;
}

}  // namespace brenik::platform
