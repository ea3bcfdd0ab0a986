// Counting the keys of an order that a caller has named.

#pragma once

#include <string>

#include "session/session.h"

namespace brenik {

inline std::size_t count_keys(Session& session, const Value& order, const std::string& index_file,
                              KeySet keys) {
    Table& table = session.areas.table("CMKEYCOUNT");
    const auto number = table.find_order(order, index_file);
    return number ? table.key_count(*number, keys) : 0;
}

inline std::size_t key_position(Session& session, const Value& order, const std::string& index_file,
                                KeySet keys) {
    Table& table = session.areas.table("CMKEYNO");
    const auto number = table.find_order(order, index_file);
    return number ? table.key_number(*number, keys) : 0;
}

}  // namespace brenik
