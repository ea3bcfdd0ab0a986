// The code pages that a table's mark may name, and upper and lower case in them.
//
// Without a code page mark only A to Z change case. Double-byte pages and unknown marks have no
// table: folding their bytes one by one could produce keys that no other program finds.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace brenik::record {

// The code page in which text is shown if its table has no mark.
inline constexpr std::uint16_t kUsualCodePage = 1252;
inline constexpr std::uint16_t kUtf8 = 65001;  // no mark names it

// The code page that a mark names, by its number on Windows; nothing for 0 and unknown marks.
std::optional<std::uint16_t> code_page_of_mark(std::uint8_t mark);
// True for the code pages of DOS, which Windows calls OEM.
bool is_dos_code_page(std::uint16_t code_page);
// The code page that a user names: its number (437), one of its names ("cp437", "windows-1252",
// "macintosh", "utf-8", in any case), or a mark in hexadecimal ("0x01").
std::optional<std::uint16_t> code_page_named(std::string_view name);
// Bytes of the page's longest character.
std::size_t longest_character(std::uint16_t code_page);
// True for the few bytes of which systems, or their versions, make different characters.
bool is_disputed(std::uint16_t code_page, std::uint8_t byte);

using CaseTable = std::array<char, 256>;

// Fills both tables. False, with nothing filled, when the code page mark has no table.
[[nodiscard]] bool load_case_tables(std::uint8_t code_page, CaseTable& upper, CaseTable& lower);

}  // namespace brenik::record
