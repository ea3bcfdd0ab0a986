// The library's one exception type. A sharing conflict is never a fault.
//
// A fault is a damaged file, an I/O error, or a call on an empty work area, for example. It reaches
// the exports, which turn it into a return code and a trace line.

#pragma once

#include <stdexcept>
#include <string>

namespace brenik {

// persistent: hosts see these numbers in trace logs.
enum class FaultCode {
    kEmptyWorkArea = 2001,    // a table was needed and the work area holds none
    kDamagedFile = 2101,      // a table, memo or index file that contradicts itself
    kInputOutput = 2102,      // the system refused a read or write (full disk, vanished share)
    kUnsupported = 2103,      // a file that this engine cannot keep correct, hence refuses
    kNotLocked = 2104,        // a write to a record that this session has not locked
    kUnsuitableValue = 2105,  // a value that a field's type cannot hold
    kLimit = 2106,            // growth past what the format or its lock positions allow
    kBusy = 2107,             // a lock that is held for milliseconds stayed held for seconds
    kDuplicateKey = 2108,     // a second record for a key that must be unique
    kUnknownName = 2109,      // no such field, order or table driver
    kOtherProcess = 2110,     // a call in the child of a fork, which has begun no session
    kNoEngine = 2111,         // an engine whose own library cannot be used on this machine
};

class EngineFault : public std::runtime_error {
  public:
    // `text` says what, where and what next; it begins with the file's name if a file is involved.
    // `status` is the engine's or the system's own number for the failure; 0 for none.
    EngineFault(FaultCode code, std::string operation, const std::string& text, int status = 0);
    FaultCode code() const { return code_; }
    int status() const { return status_; }
    const std::string& operation() const { return operation_; }

  private:
    FaultCode code_;
    std::string operation_;
    int status_;
};

}  // namespace brenik
