// Setting an environment variable for the program under test.

#pragma once

#include <cstdlib>

namespace brenik {

#ifdef _WIN32
inline void set_variable(const char* name, const char* value) { _putenv_s(name, value); }
#else
inline void set_variable(const char* name, const char* value) { setenv(name, value, 1); }
#endif

}  // namespace brenik
