// What the library relies on, tried on scratch files.

#pragma once

#include <functional>
#include <string>

#include "doctor_partner.h"

namespace brenik::tools {

// A thing tried, and how it went.
struct Trial {
    std::string name;
    std::string fault;   // empty when it went well
    std::string remedy;  // likewise
    std::string good;    // what it shows when it went well
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

// Between two opens of this process.
RoundTrips try_alone(Scratch& scratch, const TrialReport& report);
// Between this workstation and another, which makes the same trials. `sound_here` is the verdict
// on what was found before. Throws NoAnswer.
RoundTrips try_with(Scratch& scratch, Partner& partner, bool sound_here, const TrialReport& report);

}  // namespace brenik::tools
