// Counts keys of an order that a caller has named. `routine` is the calling routine's name.

#pragma once

#include <string>

#include "engine/orders.h"
#include "session/session.h"

namespace brenik {

inline std::size_t count_keys(Session& session, const char* routine, const Value& order,
                              const std::string& index_file, KeySet keys) {
    Table& table = session.areas.table(routine);
    const auto number = find_order(table, order, session.path_of(index_file));
    return number ? table.key_count(*number, keys) : 0;
}

inline std::size_t key_position(Session& session, const char* routine, const Value& order,
                                const std::string& index_file, KeySet keys) {
    Table& table = session.areas.table(routine);
    const auto number = find_order(table, order, session.path_of(index_file));
    return number ? table.key_number(*number, keys) : 0;
}

}  // namespace brenik
