// Upper and lower case in a table's code page.
//
// Without a code page mark only A to Z change case. Double-byte pages and unknown marks have no
// table: folding their bytes one by one could produce keys that no other program finds.

#pragma once

#include <array>
#include <cstdint>

namespace brenik::record {

using CaseTable = std::array<char, 256>;

// Fills both tables. False, with nothing filled, when the code page mark has no table.
[[nodiscard]] bool load_case_tables(std::uint8_t code_page, CaseTable& upper, CaseTable& lower);

}  // namespace brenik::record
