// Converts field values for people and for JSON readers.
//
// Text in tables is bytes; text that is not valid UTF-8 is read as code page 1252. Trailing blanks
// are padding and are dropped. Fields marked binary become hexadecimal digits after "0x".

#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "engine/table.h"
#include "util/value.h"

namespace brenik::tools {

std::string to_utf8(std::string_view bytes);

// JSON as text; invalid UTF-8, which paths may contain, becomes replacement characters.
std::string dump(const nlohmann::ordered_json& json, int indent = -1);

// Dates as YYYY-MM-DD, times as YYYY-MM-DD hh:mm:ss, numbers and logicals as they are. Empty dates
// and times, invalid numbers and NULL become null.
nlohmann::ordered_json to_json(const record::Field& field, const Value& value);

// The same as one line of text, empty for null. Control characters become \xNN.
std::string to_line(const record::Field& field, const Value& value);

}  // namespace brenik::tools
