// Explains why an open was refused.

#include "engine/locks/open_file.h"

#include "platform/holder.h"

namespace brenik::locks {
namespace {

constexpr Obstacle obstacle_of(platform::Sharing sharing) {
    return {{platform::kSharingByte, 1},
            sharing == platform::Sharing::kExclusive ? platform::LockKind::kExclusive
                                                     : platform::LockKind::kShared};
}

// How another program uses a file that it keeps us from opening; "by" follows.
const char* use_of(const FileUse& use) { return use.exclusive() ? "in use" : "in exclusive use"; }

std::string held(const std::string& path, const std::string& use, const std::string& holders) {
    return path + ": " + use + " by " + holders;
}

bool is_held(const platform::File& file) {
    return file.failure() == platform::OpenFailure::kSharing;
}

RefusalReason reason_of(const platform::File& file) {
    switch (file.failure()) {
        case platform::OpenFailure::kSharing:
            return RefusalReason::kHeld;
        case platform::OpenFailure::kMissing:
            return RefusalReason::kMissing;
        default:
            return RefusalReason::kNotPermitted;
    }
}

}  // namespace

Refused::Refused(const platform::File& file, const FileUse& use)
    : OpenRefused(reason_of(file), is_held(file) ? FaultCode::kBusy : FaultCode::kInputOutput,
                  is_held(file) ? held(file.path(), use_of(use), "another program")
                                : file.path() + ": " + file.why_not_open()),
      path_(file.path()),
      use_(use_of(use)) {
    if (is_held(file)) obstacle_ = obstacle_of(use.sharing);
}

Refused::Refused(const std::string& path, const std::string& use, Obstacle obstacle,
                 RefusalReason reason)
    : OpenRefused(reason, FaultCode::kBusy, held(path, use, "another program")),
      path_(path),
      use_(use),
      obstacle_(obstacle) {}

Refusal Refused::refusal() const {
    Refusal refusal{reason(), code(), what()};
    if (obstacle_) refusal.name_holders = [refused = *this] { return refused.explanation(); };
    return refusal;
}

std::string Refused::explanation() const {
    if (!obstacle_) return what();
    const std::string holders = platform::lock_holders(path_, obstacle_->range, obstacle_->wanted);
    return holders.empty() ? what() + std::string("; this computer cannot tell which one")
                           : held(path_, use_, holders);
}

void refuse_busy(const char* operation, const std::string& path, const std::string& use,
                 Obstacle obstacle) {
    throw EngineFault(FaultCode::kBusy, operation, Refused(path, use, obstacle).explanation());
}

platform::File open_file(const std::string& path, const FileUse& use) {
    platform::File file = platform::File::open(path, use.access, use.sharing);
    if (!file.is_open()) throw Refused(file, use);
    return file;
}

platform::File create_file(const std::string& path) {
    return open_file(
        path, {platform::Sharing::kExclusive, LockMode::kCompatible, platform::OpenMode::kCreate});
}

}  // namespace brenik::locks
