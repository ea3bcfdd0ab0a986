// Tests on scratch files what the library relies on.

#pragma once

#include <functional>
#include <string>

#include "doctor_partner.h"

namespace brenik::tools {

// One test and its result.
struct Trial {
    std::string name;
    std::string fault;   // empty on success
    std::string remedy;  // empty on success
    std::string good;    // what a success shows
};

struct Times {
    double median_ms = 0;
    double longest_ms = 0;
};

struct RoundTrips {
    int count = 0;
    Times lock;  // with its unlock
    Times size;
};

using TrialReport = std::function<void(const Trial&)>;

// How many trials the functions below report if nothing stops them.
int trials_alone();
int trials_with();

// Between two opens of this process.
RoundTrips try_alone(Scratch& scratch, const TrialReport& report);
// Between this workstation and another that runs the same trials. `sound_here` is the verdict so
// far. Throws NoAnswer.
RoundTrips try_with(Scratch& scratch, Partner& partner, bool sound_here, const TrialReport& report);

}  // namespace brenik::tools
