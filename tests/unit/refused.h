// Faults as tests expect them.

#pragma once

#include <gtest/gtest.h>

#include <string>

#include "engine/engine.h"

namespace brenik {

// The action ends in a fault of this kind whose text contains `part`.
template <class Action>
testing::AssertionResult refused(Action action, FaultCode code, const std::string& part = "") {
    try {
        action();
    } catch (const EngineFault& fault) {
        const bool named = std::string(fault.what()).find(part) != std::string::npos;
        if (named && fault.code() == code) return testing::AssertionSuccess();
        return testing::AssertionFailure() << "refused otherwise: " << fault.what();
    }
    return testing::AssertionFailure() << "not refused";
}

}  // namespace brenik
