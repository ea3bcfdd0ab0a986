// What the selecting operations share: the way from a table number to the current work area.

#pragma once

#include <string>
#include <string_view>

#include "session/session.h"

namespace brenik {

// Makes the host's table current for `operation`. kBadTable when the number is outside 1 to 255,
// which changes nothing, or when the area, current by then, holds no table.
[[nodiscard]] int select_table(Session& session, const std::string& operation, int table);

// Seeks a key in one order of the current table, which stays active. False also when the table has
// no such order.
[[nodiscard]] bool seek_in_order(Session& session, std::string_view order, const Value& key);

}  // namespace brenik
