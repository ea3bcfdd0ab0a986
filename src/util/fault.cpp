// The one constructor of the fault type, out of line to keep its header light.

#include "util/fault.h"

#include <utility>

namespace brenik {

EngineFault::EngineFault(FaultCode code, std::string operation, const std::string& text, int status)
    : std::runtime_error(text), code_(code), operation_(std::move(operation)), status_(status) {}

}  // namespace brenik
