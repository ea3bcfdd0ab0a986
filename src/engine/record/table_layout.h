// What a table's header says: version, sizes and fields, checked against the file.
//
// Header: 32 bytes, little-endian, then 32 bytes a field, then 0x0D.
//   offset size
//        0    1  version: 03 plain, 83 8B with .dbt, F5 with .fpt, 30 31 32 the later generation
//        1    3  last update: year of the century, month, day
//        4    4  records in the file, deleted ones counted
//        8    2  header length, the offset of record 1
//       10    2  record length, deletion mark included
//       28    1  bit 0: a structural .cdx belongs to the table; bit 1: memo fields
//       29    1  code page mark
// A field's offset is never read from the file: widths are added up.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/engine.h"
#include "util/bytes.h"

namespace brenik::record {

inline constexpr std::size_t kTableHeaderSize = 32;
inline constexpr std::size_t kFieldDescriptorSize = 32;

struct Field {
    std::string name;  // upper case
    char type = 'C';
    std::uint32_t width = 0;
    std::uint32_t decimals = 0;
    std::uint8_t flags = 0;
    std::uint32_t offset = 0;  // in the record; the first field has 1
    // Bits of the null flags column: set while the value is NULL, or shorter than the field.
    std::optional<std::uint32_t> null_bit;
    std::optional<std::uint32_t> length_bit;

    bool hidden() const { return (flags & 0x01) != 0; }
};

struct TableLayout {
    std::uint8_t version = 0x03;
    std::uint8_t flags = 0;
    std::uint8_t code_page = 0;
    std::uint32_t header_length = 0;
    std::uint32_t record_length = 0;
    std::vector<Field> fields;  // hidden ones left out
    std::optional<Field> null_flags;

    bool has_structural_index() const { return (flags & 0x01) != 0; }
    // 0x30 and later: binary memo pointers, NULLs, 263 bytes after the field descriptors.
    bool is_later_generation() const { return version >= 0x30 && version <= 0x32; }
    const Field* find(std::string_view name) const;  // case-insensitive; null when absent
};

// Reads the layout out of the leading bytes of a file (all of the header). Throws EngineFault
// kDamagedFile or kUnsupported that names `path` and what is wrong.
TableLayout parse_layout(Bytes header, const std::string& path);

// The header bytes of a table with this layout and no records; fills in offsets, lengths and null
// bits of `layout` on the way.
std::vector<Byte> make_header(TableLayout& layout);

// One record as it lies in the file, deletion mark first.
struct RecordView {
    Bytes bytes;
    RecordNumber number = 0;

    bool deleted() const { return bytes[0] == '*'; }
    Bytes field(const Field& f) const { return bytes.subspan(f.offset, f.width); }
};

// True when the null flags column says that the field is NULL.
bool is_null(const RecordView& record, const TableLayout& layout, const Field& field);

}  // namespace brenik::record
