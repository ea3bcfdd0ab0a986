// Finds the name that a user probably meant: of a command, an option, a table, an order or a field.

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brenik {

// `; did you mean "NAME"?` for the closest name, or an empty text if none is close. Ignores case.
std::string did_you_mean(std::string_view given, const std::vector<std::string>& names);

}  // namespace brenik
