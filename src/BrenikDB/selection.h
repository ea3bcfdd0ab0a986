// What the selecting operations share: making a table number's work area current.

#pragma once

#include <string>
#include <string_view>

#include "session/session.h"

namespace brenik {

// Makes the host's table current for `operation`. Returns kBadTable if the number is outside 1 to
// 255, which changes nothing, or if the area holds no table, which is then current.
[[nodiscard]] int select_table(Session& session, const std::string& operation, int table);

// Seeks a key in the named order of the current table; the order stays active. Also false if the
// table has no such order.
[[nodiscard]] bool seek_in_order(Session& session, std::string_view order, const Value& key);

}  // namespace brenik
