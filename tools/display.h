// Converts field values for people and for JSON readers. docs/reference/values.md has the rules.

#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "engine/table.h"
#include "table_text.h"

namespace brenik::tools {

// JSON as text; invalid UTF-8 becomes replacement characters.
std::string dump(const nlohmann::ordered_json& json, int indent = -1);

// A field of a table's current record, as JSON or as one line of text. A value is exact. A field
// that holds none is shown as it is stored: empty if it is blank, its bytes if nothing can be made
// of them. NULL is null, or the word NULL.
nlohmann::ordered_json to_json(Table& table, std::size_t field, const TableText& text);
std::string to_line(Table& table, std::size_t field, const TableText& text);

// The bytes of a field as they are stored, and those of its memo; or why there are none.
nlohmann::ordered_json raw_json(Table& table, const record::Field& field);
std::string raw_line(Table& table, const record::Field& field);

}  // namespace brenik::tools
