// The constructor stands here so that the type has one home.

#include "util/fault.h"

#include <utility>

namespace brenik {

EngineFault::EngineFault(FaultCode code, std::string operation, const std::string& text)
    : std::runtime_error(text), code_(code), operation_(std::move(operation)) {}

}  // namespace brenik
