// Where the checkout keeps what tests read.
//
// One small source knows it, so that all others compile to the same bytes in every checkout, and a
// compiler cache serves them all.

#pragma once

namespace brenik {

extern const char* const kTestData;  // the folder tests/data
extern const char* const kChecker;   // the independent table checker, a Python program

}  // namespace brenik
