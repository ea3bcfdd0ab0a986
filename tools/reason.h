// What went wrong, for the user: without the names that the C++ library gives its exceptions.

#pragma once

#include <exception>
#include <string>

namespace brenik::tools {

std::string reason_of(const std::exception& error);

}  // namespace brenik::tools
