// Converts a key that a user gives to the type of an order's keys.

#pragma once

#include <string>

#include "engine/table.h"
#include "table_text.h"

namespace brenik::tools {

// For the order that is set. Numbers, dates, date-times and logicals are given as `show` prints
// them, text in UTF-8. Throws ToolError if no key of the order can be like that.
Value seek_key(const Table& table, const std::string& given, const TableText& text);

}  // namespace brenik::tools
