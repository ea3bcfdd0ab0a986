// Times contenders in turn, so that whatever else the machine does falls on all of them alike.

#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace brenik::bench {

// Per operation.
struct Cost {
    double processor_us = 0;  // of the slice with the least
    double elapsed_us = 0;    // likewise
};

// Runs an operation so many times.
using Slice = std::function<void(std::size_t runs)>;

struct Contender {
    std::string name;
    Slice slice;
    std::function<void()> before = [] {};  // called before each slice, not timed
};

struct Rounds {
    std::size_t rounds;  // each contender runs one slice per round
    std::size_t runs;    // per slice
    std::size_t batch;   // operations per run
};

// One slice of each contender, in turn, not timed.
void run_each(const std::vector<Contender>& contenders, std::size_t runs);

// The costs of the contenders, in their order.
std::vector<Cost> costs_in_turn(const std::vector<Contender>& contenders, const Rounds& rounds);

// Makes every call on a file take that much longer, asleep: what a round trip to a server takes.
void delay_file_calls(unsigned microseconds);

}  // namespace brenik::bench
