// Identifiers of records, and the digits in which counters are written.
//
// An identifier is the prefix of the installation that issued it (MYUDN), followed by a counter in
// 5 base-62 digits. The first identifier encodes 1.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brenik::practice {

inline constexpr std::size_t kIdentifierDigits = 5;
inline constexpr std::int64_t kMostIdentifiers = 62LL * 62 * 62 * 62 * 62;

// Convert between a number and exactly `digits` digits of base 62 or 26. Throw EngineFault(kLimit)
// if the number does not fit. In a text, a character that is no digit counts as -1.
std::string RSN2ADS(std::int64_t number, int digits = 2);
std::int64_t RSADS2N(std::string_view text);
std::string RSN2ALPHA(std::int64_t number, int digits = 2);
std::int64_t RSALPHA2N(std::string_view text);

std::string identifier_of(std::string_view prefix, std::int64_t number);
// The number of an identifier with that prefix; empty for any other text.
std::optional<std::int64_t> number_of(std::string_view prefix, std::string_view identifier);

}  // namespace brenik::practice
