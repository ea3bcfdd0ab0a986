// The version byte of a table, offset 0 of its header, and what follows from it.

#pragma once

#include <cstdint>

namespace brenik::record {

// persistent: other programs write and read these values.
inline constexpr std::uint8_t kPlain = 0x03;             // without memos, or with an .FPT
inline constexpr std::uint8_t kGeneration3Memos = 0x83;  // with a .DBT of generation III
inline constexpr std::uint8_t kGeneration4Memos = 0x8B;  // with a .DBT of generation IV
inline constexpr std::uint8_t kFptMemos = 0xF5;          // with an .FPT
// The later generation: binary memo pointers, NULLs, a backlink after the field descriptors. A
// table with autoincrement fields or fields of variable width has one of the two higher values.
inline constexpr std::uint8_t kLater = 0x30;
inline constexpr std::uint8_t kLaterAutoincrement = 0x31;
inline constexpr std::uint8_t kLaterVariableWidth = 0x32;

constexpr bool is_later_generation(std::uint8_t version) {
    return version >= kLater && version <= kLaterVariableWidth;
}

// False for a table that the engine refuses to open.
constexpr bool is_readable(std::uint8_t version) {
    return version == kPlain || version == kGeneration3Memos || version == kGeneration4Memos ||
           version == kFptMemos || is_later_generation(version);
}

}  // namespace brenik::record
