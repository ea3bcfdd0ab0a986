// Closes inherited files in the child of a fork.
//
// A child shares its parent's open files: an unlock in the child releases the parent's lock, and a
// lock outlives the parent while the child has the file open. So the child closes all of them
// before the fork returns. It calls only functions that are safe in the child of a process with
// several threads.

#include "platform/process.h"

#include <pthread.h>
#include <unistd.h>

#include <bitset>
#include <ctime>

#include "platform/posix/descriptors.h"

namespace brenik::platform {

namespace {

unsigned generation = 0;

std::bitset<(1 << kDescriptorBits)> noted;
int highest = -1;  // greatest descriptor noted so far

// Detects a second lock by its owner: hosts may fork in a signal handler, or call the library from
// a fork handler of their own.
constexpr pthread_mutex_t kUnlocked = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
pthread_mutex_t mutex = kUnlocked;

// Bounds the delay of a fork while another thread waits for a server in an open.
constexpr int kLongestWait_s = 1;

// False after a timeout, or if the forking thread itself is inside a step.
thread_local bool locked_for_fork = false;

void before_fork() {
    std::timespec until = {};
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += kLongestWait_s;
    locked_for_fork = pthread_mutex_timedlock(&mutex, &until) == 0;
}

void after_fork() {
    if (locked_for_fork) pthread_mutex_unlock(&mutex);
}

void in_child() {
    for (int descriptor = 0; descriptor <= highest; ++descriptor) {
        if (noted[static_cast<std::size_t>(descriptor)]) ::close(descriptor);
        noted[static_cast<std::size_t>(descriptor)] = false;
    }
    highest = -1;
    ++generation;
    mutex = kUnlocked;  // the child's thread is not the owner that the mutex recorded
}

const bool kForksAreNoticed = pthread_atfork(before_fork, after_fork, in_child) == 0;

}  // namespace

unsigned process_generation() noexcept { return generation; }

ForksWait::ForksWait() noexcept : locked_(pthread_mutex_lock(&mutex) == 0) {}

ForksWait::~ForksWait() {
    if (locked_) pthread_mutex_unlock(&mutex);
}

bool note_descriptor(int descriptor) noexcept {
    if (!kForksAreNoticed || static_cast<std::size_t>(descriptor) >= noted.size()) return false;
    noted[static_cast<std::size_t>(descriptor)] = true;
    if (descriptor > highest) highest = descriptor;
    return true;
}

void forget_descriptor(int descriptor) noexcept {
    noted[static_cast<std::size_t>(descriptor)] = false;
}

}  // namespace brenik::platform
