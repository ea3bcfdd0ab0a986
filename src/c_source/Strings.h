// Casts between values and text.
//
// Hosts pass text and tables hold typed fields: CASTANY converts between the two. CAST makes text
// for messages. A2STR and STR2A carry an array of any nesting through a byte string.
//
// An array byte string, version 2, is the character "2" and one encoding. An encoding is a type
// letter and its payload; the encodings of an array's elements follow it in order. A word is a
// 2-byte signed integer, least significant byte first.
//
//   C  word: length without trailing blanks; the characters; word: full length (memos too)
//   N  word: length; the number's default text form, trimmed
//   D  YYYYMMDD; 8 blanks for the empty date
//   L  T or F
//   A  word: number of elements
//   U  nothing
//
// Version 1 has neither the leading "2" nor the second word of C. It is read but never written.

#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/ui.h"
#include "util/value.h"

namespace brenik {

// Deepest nesting that STR2A reads.
inline constexpr int kMaxArrayDepth = 300;

// Converts the value to type `target`: "C", "N", "D", "L", "M" or "A"; any other gives empty text.
// Never fails: without a conversion, the result is the target's neutral value or empty text. Kept
// for hosts that rely on it: true becomes 0, false becomes 1. With `strict_date`, text is read as
// YYYYMMDD only; otherwise MM/DD/YY is tried first. Text to "A" calls STR2A, which may show
// messages.
Value CASTANY(platform::UserInterface& ui, const Value& value, char target,
              bool strict_date = false);

// The value as text for people. A memo gives empty text unless `memo_mode` begins with "Y", which
// gives the text with soft line breaks as blanks and without trailing blanks, or with "P", which
// gives the same for the part before "***". The empty date is "00/00/00" with `blank_date`, else "
// /  /  ".
std::string CAST(const Value& value, std::optional<std::string_view> memo_mode = std::nullopt,
                 bool blank_date = false);

// Encodes a value as an array byte string. Throws EngineFault(kLimit) for a text or array of length
// 32768 or more, and for arrays nested more than 1000 deep, which includes an array that contains
// itself. STR2A reads at most kMaxArrayDepth levels.
std::string A2STR(const Value& value);

// Decodes an array byte string. Text that is not one gives an empty array. A string that ends early
// shows a message and gives what was read. A full length shorter than its text cuts the text.
ArrayReference STR2A(platform::UserInterface& ui, std::string_view text);

}  // namespace brenik
