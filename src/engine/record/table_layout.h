// A table's fields and their offsets in a record. dbf_file.h reads a layout from a file's header.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/record/field_types.h"
#include "engine/record/table_version.h"
#include "engine/record_number.h"
#include "util/bytes.h"

namespace brenik::record {

// Flags of a table.
inline constexpr std::uint8_t kHasStructuralIndex = 0x01;
inline constexpr std::uint8_t kHasMemo = 0x02;
// Flags of a field.
inline constexpr std::uint8_t kHidden = 0x01;
inline constexpr std::uint8_t kMayBeNull = 0x02;
inline constexpr std::uint8_t kBinary = 0x04;
inline constexpr std::uint8_t kAutoincrement = 0x0C;

struct Field {
    std::string name;  // upper case
    char type = 'C';
    std::uint32_t width = 0;
    std::uint32_t decimals = 0;
    std::uint8_t flags = 0;
    // Reading a layout from a header, or making a header from it, sets the members below.
    const FieldType* kind = nullptr;
    std::uint32_t offset = 0;  // in the record; the first field has 1
    // Bits of the null flags column, set while the value is NULL or shorter than the field.
    std::optional<std::uint32_t> null_bit;
    std::optional<std::uint32_t> length_bit;

    bool is_memo() const { return kind->is_memo(); }
    // Holds bytes rather than text: never shown or recoded as text.
    bool is_binary() const { return (flags & kBinary) != 0; }
    // The engine fills this column when a record is added.
    bool is_autoincrement() const {
        return kind->form == FieldForm::kInteger && (flags & kAutoincrement) == kAutoincrement;
    }
};

struct TableLayout {
    std::uint8_t version = kPlain;
    std::uint8_t flags = 0;
    std::uint8_t code_page = 0;
    std::uint32_t header_length = 0;
    std::uint32_t record_length = 0;
    std::vector<Field> fields;  // hidden ones left out
    std::optional<Field> null_flags;

    bool has_structural_index() const { return (flags & kHasStructuralIndex) != 0; }
    bool has_memos() const;
    bool is_later_generation() const { return record::is_later_generation(version); }
    const Field* find(std::string_view name) const;  // case-insensitive; null when absent
};

// One record as stored in the file, deletion mark first.
struct RecordView {
    Bytes bytes;
    RecordNumber number = 0;

    bool deleted() const { return bytes[0] == '*'; }
    Bytes field(const Field& f) const { return bytes.subspan(f.offset, f.width); }
};

// True when the null flags column marks the field as NULL.
bool is_null(const RecordView& record, const TableLayout& layout, const Field& field);

}  // namespace brenik::record
