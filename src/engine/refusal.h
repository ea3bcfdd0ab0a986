// The answer to opening what is not to be had.

#pragma once

#include <string>

#include "util/fault.h"

namespace brenik {

// Why a table, or an index file of one, is not to be had.
enum class RefusalReason {
    kHeld,           // somebody else's use excludes ours: it may be free a second later
    kMissing,        // no such file or folder
    kNotPermitted,   // no permission, read-only medium, not a plain file, or the system says no
    kOtherLockMode,  // in use with locks of the other kind
    kDamaged,        // there, but damaged or beyond what the engine can keep correct
};

struct Refusal {
    RefusalReason reason;
    FaultCode code;    // the same as an EngineFault says it
    std::string text;  // file and reason, for people; who holds it, where that is known
};

}  // namespace brenik
