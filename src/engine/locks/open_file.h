// Opens the files of a table and explains refusals.
//
// A file that is missing, held by others or not permitted is not damaged: the open of the table
// fails, and a retry may succeed. Refused carries the reason up to the engine, which returns it as
// a Refusal.

#pragma once

#include <optional>
#include <string>

#include "engine/locks/lock_scheme.h"
#include "engine/refusal.h"
#include "platform/file.h"

namespace brenik::locks {

// How the files of a table are opened.
struct FileUse {
    platform::Sharing sharing = platform::Sharing::kShared;
    LockMode mode = LockMode::kCompatible;
    // kReadOnly for callers that never write and may lack write permission. They do not queue, and
    // do not check whether others use the table in the other mode.
    platform::OpenMode access = platform::OpenMode::kReadWrite;

    bool exclusive() const { return sharing == platform::Sharing::kExclusive; }
    // For files that belong to a file opened like this.
    FileUse covered() const { return {platform::covered(sharing), mode, access}; }
};

// The bytes that another process's lock kept us from locking.
struct Obstacle {
    LockRange range;
    platform::LockKind wanted;
};

class Refused : public OpenRefused {
  public:
    // For a file that is not open.
    Refused(const platform::File& file, const FileUse& use);
    // `use` says how others use the file; "by" follows.
    Refused(const std::string& path, const std::string& use, Obstacle obstacle,
            RefusalReason reason = RefusalReason::kHeld);

    Refusal refusal() const;
    // Names the holders of the file, as far as this computer knows them now. The search takes some
    // milliseconds.
    std::string explanation() const;

  private:
    std::string path_;
    std::string use_;
    std::optional<Obstacle> obstacle_;
};

// Throws kBusy and names the holder of a lock that is meant to be held for moments, but was held
// for seconds.
[[noreturn]] void refuse_busy(const char* operation, const std::string& path,
                              const std::string& use, Obstacle obstacle);

// Throws Refused.
platform::File open_file(const std::string& path, const FileUse& use);
// Creates or empties a file for exclusive use. Throws Refused.
platform::File create_file(const std::string& path);

}  // namespace brenik::locks
