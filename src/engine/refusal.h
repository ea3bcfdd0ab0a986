// Why a table or an index file could not be opened.

#pragma once

#include <functional>
#include <string>

#include "util/fault.h"

namespace brenik {

enum class RefusalReason {
    kHeld,           // another use of the file excludes ours; a retry may succeed
    kMissing,        // no such file or folder
    kNotPermitted,   // no permission, read-only medium, not a plain file, or refused by the system
    kOtherLockMode,  // in use under the other locking mode
    kDamaged,        // exists, but is damaged or holds what the engine cannot maintain
};

struct Refusal {
    RefusalReason reason;
    FaultCode code;    // as in an EngineFault for the same reason
    std::string text;  // file and reason, for people
    int status = 0;    // the engine's own number, 0 for none
    // The same text with the names of the holders. The search for them can take half a second, so
    // it is not made for a try that will be repeated. Empty: nobody holds the file.
    std::function<std::string()> name_holders = {};

    std::string explanation() const { return name_holders ? name_holders() : text; }
};

// A refusal as an exception, where the caller can only give up.
class OpenRefused : public EngineFault {
  public:
    OpenRefused(RefusalReason reason, FaultCode code, const std::string& text)
        : EngineFault(code, "open", text), reason_(reason) {}
    RefusalReason reason() const { return reason_; }

  private:
    RefusalReason reason_;
};

// True for faults that an open answers with RefusalReason::kDamaged.
inline bool is_damage(const EngineFault& fault) {
    return fault.code() == FaultCode::kDamagedFile || fault.code() == FaultCode::kUnsupported;
}
inline Refusal damaged(const EngineFault& fault) {
    return {RefusalReason::kDamaged, fault.code(), fault.what(), fault.status()};
}

}  // namespace brenik
