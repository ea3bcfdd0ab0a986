// The names and numbers by which callers identify a table's orders, the same for every engine.

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "engine/table.h"

namespace brenik {

// Finds the order that a caller identifies by name, by number, or by nil for the controlling one (0
// in physical order). With an index file, only that file's orders are searched, numbers count from
// 1 within it, and nil means its first order. Returns nothing if there is no such order.
std::optional<std::size_t> find_order(const Table& table, const Value& order,
                                      const std::string& index_file = {});

// Makes the order with that name controlling; an empty name selects physical order. An unknown name
// changes nothing and returns false.
bool set_order(Table& table, std::string_view name);

}  // namespace brenik
