// What went wrong, for the user: without the names that the C++ library gives its exceptions.

#pragma once

#include <exception>
#include <string>
#include <system_error>

namespace brenik::tools {

std::string reason_of(const std::exception& error);
std::string reason_of(const std::error_code& error);

}  // namespace brenik::tools
