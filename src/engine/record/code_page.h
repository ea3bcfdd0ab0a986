// Upper and lower case in a table's code page.
//
// Without a mark only A to Z change case. The double-byte pages and marks that we do not know have
// no table: folding their bytes one by one could give keys that no other program finds.

#pragma once

#include <array>
#include <cstdint>

namespace brenik::record {

using CaseTable = std::array<char, 256>;

// Fills both tables; false, with nothing filled, when there is no table for the code page mark.
[[nodiscard]] bool load_case_tables(std::uint8_t code_page, CaseTable& upper, CaseTable& lower);

}  // namespace brenik::record
