// Opening the files of a table, and what is told where one of them cannot be had.
//
// A file that is missing, held by others or not permitted is no damage: it makes the open of the
// table fail, and may be there a second later. Refused carries that up to the engine, which answers
// its caller with a Refusal.

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
    // kReadOnly for those who never write and may be forbidden to: they stand in no line, and do
    // not look whether others use the table in the other mode.
    platform::OpenMode access = platform::OpenMode::kReadWrite;

    bool exclusive() const { return sharing == platform::Sharing::kExclusive; }
    // For files that belong to one that is open like this.
    FileUse covered() const { return {platform::covered(sharing), mode, access}; }
};

// The bytes that somebody else's lock kept from being locked.
struct Obstacle {
    LockRange range;
    platform::LockKind wanted;
};

class Refused : public EngineFault {
  public:
    // Of a file that is not open.
    Refused(const platform::File& file, const FileUse& use);
    // `use` says what others do with the file, up to the word "by".
    Refused(const std::string& path, const std::string& use, Obstacle obstacle,
            RefusalReason reason = RefusalReason::kHeld);

    // With who it is that holds the file, as far as this computer knows by now: the search takes
    // some milliseconds.
    Refusal refusal() const { return {reason_, code(), explanation()}; }
    std::string explanation() const;

  private:
    std::string path_;
    std::string use_;
    RefusalReason reason_;
    std::optional<Obstacle> obstacle_;
};

// Throws kBusy, with who holds the lock: one that others should hold for moments stayed theirs for
// seconds.
[[noreturn]] void refuse_busy(const char* operation, const std::string& path,
                              const std::string& use, Obstacle obstacle);

// Throws Refused.
platform::File open_file(const std::string& path, const FileUse& use);

}  // namespace brenik::locks
