// Reasons, in plain words.

#include "engine/local/opening.h"

#include "platform/holder.h"

namespace brenik::local {
namespace {

constexpr Obstacle obstacle_of(platform::Sharing sharing) {
    return {{platform::kSharingByte, 1},
            sharing == platform::Sharing::kExclusive ? platform::LockKind::kExclusive
                                                     : platform::LockKind::kShared};
}

std::string reason_of(const platform::File& file, const FileUse& use) {
    switch (file.failure()) {
        case platform::OpenFailure::kNone:
            break;
        case platform::OpenFailure::kMissing:
            return "no such file";
        case platform::OpenFailure::kSharing:
            return use.exclusive() ? "in use" : "in exclusive use";
        case platform::OpenFailure::kDenied:
            return file.system_reason().empty() ? "marked as read-only, or no plain file"
                                                : "no permission";
        case platform::OpenFailure::kSystem:
            break;
    }
    return "cannot be opened";
}

std::string with_system_reason(const std::string& reason, const platform::File& file) {
    const std::string text = file.system_reason();
    return text.empty() ? reason : reason + " (" + text + ")";
}

std::string held(const std::string& path, const std::string& use, const std::string& holders) {
    return path + ": " + use + " by " + holders;
}

bool is_held(const platform::File& file) {
    return file.failure() == platform::OpenFailure::kSharing;
}

}  // namespace

Refused::Refused(const platform::File& file, const FileUse& use)
    : EngineFault(is_held(file) ? FaultCode::kBusy : FaultCode::kInputOutput, "open",
                  is_held(file)
                      ? held(file.path(), reason_of(file, use), "another program")
                      : file.path() + ": " + with_system_reason(reason_of(file, use), file)),
      path_(file.path()),
      use_(reason_of(file, use)) {
    if (is_held(file)) obstacle_ = obstacle_of(use.sharing);
}

Refused::Refused(const std::string& path, const std::string& use, Obstacle obstacle)
    : EngineFault(FaultCode::kBusy, "open", held(path, use, "another program")),
      path_(path),
      use_(use),
      obstacle_(obstacle) {}

std::string Refused::explanation() const {
    if (!obstacle_) return what();
    const std::string holders = platform::lock_holders(path_, obstacle_->range.offset,
                                                       obstacle_->range.length, obstacle_->wanted);
    return holders.empty() ? what() + std::string("; which one, this computer does not tell")
                           : held(path_, use_, holders);
}

platform::File open_file(const std::string& path, const FileUse& use) {
    platform::File file = platform::File::open(path, use.access, use.sharing);
    if (!file.is_open()) throw Refused(file, use);
    return file;
}

}  // namespace brenik::local
