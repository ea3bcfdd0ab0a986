// The names and numbers by which callers mean a table's orders, the same for every engine.

#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "engine/table.h"

namespace brenik {

// The number of an order as callers name it: by name, by number, or nil for the controlling one (0
// in physical order). With an index file only that file's orders are looked at, numbered from 1
// within it, and nil is its first. Nothing when there is no such order.
std::optional<std::size_t> find_order(const Table& table, const Value& order,
                                      const std::string& index_file = {});

// Makes the order of that name controlling; an empty name selects physical order. An unknown one
// changes nothing and answers false.
bool set_order(Table& table, std::string_view name);

}  // namespace brenik
