// Where the checkout keeps what tests read.
//
// Only places.cpp is compiled with the checkout's path. All other sources compile to the same bytes
// in every checkout, so checkouts can share a compiler cache.

#pragma once

namespace brenik {

extern const char* const kTestData;  // the folder tests/data
extern const char* const kChecker;   // the independent table checker, a Python program

}  // namespace brenik
