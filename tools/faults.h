// The command `faults`: prints the faults that this user's sessions have met.

#pragma once

namespace brenik::tools {

struct FaultsRequest {
    bool json = false;
};

// Prints the earlier fault file, then the current one. If there is none, prints the path that it
// searched.
void print_faults(const FaultsRequest& request);

}  // namespace brenik::tools
