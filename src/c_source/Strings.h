// Casting between values and text.
//
// Hosts hand in text and tables hold typed fields: CASTANY stands between the two. CAST makes text
// for messages; A2STR and STR2A carry an array of any nesting through a byte string.
//
// Array byte string, version 2: the character "2", then one encoding. An encoding is a type letter
// and its payload; the encodings of an array's elements follow it in order. Words are 2-byte signed
// integers, least significant byte first.
//
//   C  word: length without trailing blanks; the characters; word: length with them (memos too)
//   N  word: length; the number's trimmed default text form
//   D  YYYYMMDD, 8 blanks for the empty date
//   L  T or F
//   A  word: count of elements
//   U  nothing
//
// Version 1, which is only read, lacks the leading "2" and the second word of C.

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/ui.h"
#include "util/value.h"

namespace brenik {

// Deepest nesting of arrays that is read back from a byte string.
inline constexpr int kMaxArrayDepth = 300;

// The value as type `target` ("C", "N", "D", "L", "M" or "A"; any other gives empty text). Where no
// conversion exists the result is the target's neutral value or empty text, never a failure. True
// becomes 0 and false 1: kept, since hosts rely on it. `strict_date` reads text as YYYYMMDD only,
// otherwise MM/DD/YY is tried first. Text to "A" goes through STR2A and may show its messages.
Value CASTANY(platform::UserInterface& ui, const Value& value, char target,
              bool strict_date = false);

// The value as text to be read. Memos need a mode: "Y..." gives the text without soft line breaks
// and trailing blanks, "P..." the same for the part before "***"; otherwise they give empty text.
// The empty date is "00/00/00" with `blank_date`, else "  /  /  ".
std::string CAST(const Value& value, std::optional<std::string_view> memo_mode = std::nullopt,
                 bool blank_date = false);

// The array byte string of a value. Throws EngineFault(kLimit) for texts or arrays of 32768 or more
// and for an array within itself or a thousand others. STR2A reads less nesting than that.
std::string A2STR(const Value& value);

// The array of a byte string. Text that is none gives an empty array; a string that ends early
// gives what was read, after a message. A full length shorter than its text cuts the text.
ArrayReference STR2A(platform::UserInterface& ui, std::string_view text);

}  // namespace brenik
