// Slices of contenders, in turn, by two clocks.

#include "measuring.h"

#include <sys/prctl.h>

#include <algorithm>
#include <ctime>
#include <limits>

#include "platform/file_calls.h"

namespace brenik::bench {
namespace {

timespec delay{};

double now_us(clockid_t clock) {
    timespec time;
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

}  // namespace

void run_each(const std::vector<Contender>& contenders, std::size_t runs) {
    for (const Contender& contender : contenders) {
        contender.before();
        contender.slice(runs);
    }
}

std::vector<Cost> costs_in_turn(const std::vector<Contender>& contenders, const Rounds& rounds) {
    constexpr double kNever = std::numeric_limits<double>::max();
    std::vector<Cost> costs(contenders.size(), {kNever, kNever});
    const auto operations = static_cast<double>(rounds.runs * rounds.batch);
    for (std::size_t round = 0; round < rounds.rounds; ++round) {
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            contenders[i].before();
            const double elapsed = now_us(CLOCK_MONOTONIC);
            const double processor = now_us(CLOCK_PROCESS_CPUTIME_ID);
            contenders[i].slice(rounds.runs);
            const double spent = now_us(CLOCK_PROCESS_CPUTIME_ID) - processor;
            costs[i].processor_us = std::min(costs[i].processor_us, spent / operations);
            costs[i].elapsed_us =
                std::min(costs[i].elapsed_us, (now_us(CLOCK_MONOTONIC) - elapsed) / operations);
        }
    }
    return costs;
}

void delay_file_calls(unsigned microseconds) {
    prctl(PR_SET_TIMERSLACK, 1UL);  // otherwise the system adds up to 50 us to each sleep
    delay = {microseconds / 1'000'000, static_cast<long>(microseconds % 1'000'000) * 1000};
    platform::before_file_call = nullptr;
    if (microseconds > 0) platform::before_file_call = [] { nanosleep(&delay, nullptr); };
}

}  // namespace brenik::bench
