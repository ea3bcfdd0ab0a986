// A shared lock that prevents changes while a tool reads.
//
// A tool does not know which locking mode the running programs use, so it locks the positions of
// both. Nobody checks the positions of the mode that is not in use.

#pragma once

#include "engine/locks/lock_scheme.h"
#include "platform/file.h"

namespace brenik::locks {

class ShortLock {
  public:
    // Waits up to `timeout_ms`, 0 for a single try.
    ShortLock(platform::File& file, LockRange compatible, LockRange proprietary,
              int timeout_ms = platform::kShortLockTimeout_ms)
        : file_(file), ranges_{compatible, proprietary} {
        for (const LockRange& range : ranges_) {
            const bool locked =
                timeout_ms == 0 ? file.try_lock(range, platform::LockKind::kShared)
                                : file.lock_within(range, platform::LockKind::kShared, timeout_ms);
            if (!locked) return;
            ++held_;
        }
    }
    ~ShortLock() {
        while (held_ > 0) {
            --held_;
            file_.unlock(ranges_[held_]);
        }
    }
    ShortLock(const ShortLock&) = delete;
    ShortLock& operator=(const ShortLock&) = delete;

    bool held() const { return held_ == 2; }

    static ShortLock on_append(platform::File& table, const record::TableLayout& layout,
                               int timeout_ms) {
        return {table, LockScheme(layout).append(),
                LockScheme(layout, LockMode::kProprietary).append(), timeout_ms};
    }
    static ShortLock on_record(platform::File& table, const record::TableLayout& layout,
                               RecordNumber record) {
        return {table, LockScheme(layout).record(record),
                LockScheme(layout, LockMode::kProprietary).record(record), 0};
    }
    static ShortLock on_index(platform::File& index) {
        return {index, LockScheme::index(), LockScheme::index(LockMode::kProprietary)};
    }

  private:
    platform::File& file_;
    LockRange ranges_[2];
    int held_ = 0;
};

}  // namespace brenik::locks
