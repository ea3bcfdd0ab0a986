// The command `faults`: what the sessions of this user have met.

#pragma once

namespace brenik::tools {

struct FaultsRequest {
    bool json = false;
};

// Prints the fault file, and the earlier one before it. Where there is none it says so, and where
// it has looked.
void print_faults(const FaultsRequest& request);

}  // namespace brenik::tools
