// Field values as a person or a JSON reader wants them.
//
// Text in tables is bytes; what is not valid UTF-8 is taken for code page 1252. Trailing blanks are
// padding and left out. Fields that are marked binary are shown as hexadecimal digits after "0x".

#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "engine/table.h"
#include "util/value.h"

namespace brenik::tools {

std::string to_utf8(std::string_view bytes);

// JSON as text; bytes that are no UTF-8, as paths may have, become replacement characters.
std::string dump(const nlohmann::ordered_json& json, int indent = -1);

// Dates as YYYY-MM-DD, times as YYYY-MM-DD hh:mm:ss, numbers and logicals as such; empty dates and
// times, numbers that are none, and NULL are null.
nlohmann::ordered_json to_json(const record::Field& field, const Value& value);

// The same on one line of text, empty for null; control characters are shown as \xNN.
std::string to_line(const record::Field& field, const Value& value);

}  // namespace brenik::tools
