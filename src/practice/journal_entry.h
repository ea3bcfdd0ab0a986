// Entries of the change journal: their kinds, table codes, and the slots of an edit.
//
// An edit's data hold a slot of 6 bytes per field of the tracked table, in field order: the stamp
// of the field's last change, then the code of the workstation. A slot of zeros means that the
// field has never changed.

#pragma once

#include <charconv>

#include "practice/stamps.h"
#include "util/runtime.h"

namespace brenik::practice {

// persistent: the kinds of entries.
inline constexpr const char* kAddition = "A";
inline constexpr const char* kDeletion = "D";
inline constexpr const char* kEdit = "E";

// persistent: the fields of an entry, beside the identifier.
inline constexpr const char* kTableCodeField = "CDB";
inline constexpr const char* kKindField = "CCODE";
inline constexpr const char* kStampField = "CDT";
inline constexpr const char* kDataField = "CDATA";  // a memo

// The key of an entry: table code, identifier, kind.
inline constexpr const char* kEntryKey = "CDB+U_ID+CCODE";

// The table code of a work area: its last two digits, with a leading zero if needed.
inline std::string table_code_of(int area) {
    const std::string digits = "0" + std::to_string(area);
    return digits.substr(digits.size() - 2);
}

// The work area of a table code; 0 for a text that does not begin with a number.
inline int area_of_code(std::string_view code) {
    int area = 0;
    std::from_chars(code.data(), code.data() + code.size(), area);
    return area;
}

inline constexpr std::size_t kWorkstationSize = 2;
inline constexpr std::size_t kSlotSize = kStampSize + kWorkstationSize;

// Fields, and positions in an edit's data, count from 1.
constexpr std::size_t slot_position(std::size_t field) { return (field - 1) * kSlotSize + 1; }

inline std::string make_slot(const std::string& stamp, std::string_view workstation) {
    return stamp + pad_right(workstation, kWorkstationSize);
}

// The slot of a field; shorter or empty if the data end before the slot does.
inline std::string_view slot_of(std::string_view data, std::size_t field) {
    return substring(data, slot_position(field), kSlotSize);
}

}  // namespace brenik::practice
