// Finds attached orders by name or number.

#include "engine/orders.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include "util/runtime.h"

namespace brenik {
namespace {

// All attached orders if no index file is named.
std::vector<std::size_t> numbers_of(const Table& table, const std::string& index_file) {
    if (!index_file.empty()) return table.orders_of(index_file);
    std::vector<std::size_t> numbers(table.order_count());
    std::iota(numbers.begin(), numbers.end(), std::size_t{1});
    return numbers;
}

}  // namespace

std::optional<std::size_t> find_order(const Table& table, const Value& order,
                                      const std::string& index_file) {
    const std::vector<std::size_t> numbers = numbers_of(table, index_file);
    if (!index_file.empty() && numbers.empty()) return {};
    if (order.is_nil()) return index_file.empty() ? table.order_number() : numbers.front();
    if (order.kind() == ValueKind::kNumber) {
        const std::int64_t wanted = order.whole();
        if (wanted == 0) return 0;
        if (wanted < 0 || static_cast<std::uint64_t>(wanted) > numbers.size()) return {};
        return numbers[static_cast<std::size_t>(wanted) - 1];
    }
    const std::string_view name = trim_right(order.text());
    const auto found = std::ranges::find_if(numbers, [&](std::size_t number) {
        return equal_ignoring_case(table.order_name(number), name);
    });
    return found == numbers.end() ? std::nullopt : std::optional(*found);
}

bool set_order(Table& table, std::string_view name) {
    if (name.empty()) return table.set_order(0);
    for (std::size_t number = 1; number <= table.order_count(); ++number) {
        if (equal_ignoring_case(table.order_name(number), name)) return table.set_order(number);
    }
    return false;
}

}  // namespace brenik
