// The bytes of a table file: header, records, end mark.
//
// Header: 32 bytes, little-endian, then 32 bytes per field, then 0x0D.
//   offset size
//        0    1  version: 03 plain, 83 8B with .dbt, F5 with .fpt, 30 31 32 the later generation
//        1    3  last update: year of the century, month, day
//        4    4  records in the file, deleted ones counted
//        8    2  header length, the offset of record 1
//       10    2  record length, deletion mark included
//       15    1  not 0: the table is encrypted
//       28    1  bit 0: a structural .cdx belongs to the table; bit 1: memo fields
//       29    1  code page mark
// A field descriptor:
//        0   11  name, ended by 0
//       11    1  type
//       12    4  offset in the record; written but not read: widths add up to it
//       16    1  width; for text, its low byte
//       17    1  decimals; for text, the width's high byte
//       18    1  flags, in the later generation
//       19    4  next autoincrement value; the byte after it holds the step
// The records follow without gaps, then the end mark 0x1A. docs/reference/format-dbf.md has
// an example.

#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "engine/record/table_layout.h"
#include "platform/clock.h"
#include "platform/file.h"

namespace brenik::record {

inline constexpr std::size_t kTableHeaderSize = 32;
inline constexpr std::size_t kFieldDescriptorSize = 32;
inline constexpr std::size_t kLargestHeader = 65535;
inline constexpr std::uint32_t kLongestRecord = 65535;
inline constexpr std::uint64_t kCountOffset = 4;
inline constexpr std::size_t kHeaderLengthOffset = 8;
inline constexpr std::size_t kRecordLengthOffset = 10;
inline constexpr Byte kDescriptorsEnd = 0x0D;
// In the later generation this many bytes follow the descriptors: the path of an owning container,
// all zero for a free table.
inline constexpr std::size_t kBacklinkSize = 263;
inline constexpr Byte kEndMark = 0x1A;

// -- The header.

// Reads the file's leading bytes, up to the length of the longest header. `size` limits the read to
// what the file is known to hold.
std::vector<Byte> read_header(const platform::File& file,
                              std::uint64_t size = std::numeric_limits<std::uint64_t>::max());
// Throws EngineFault kDamagedFile or kUnsupported; the text names `path` and what is wrong.
TableLayout parse_layout(Bytes header, const std::string& path);
// Makes the header of an empty table with this layout and today's date, and sets the offsets,
// lengths and null bits of `layout`. EngineFault kLimit when the table would be too wide.
std::vector<Byte> make_header(TableLayout& layout, platform::LocalDay today);
// The width of the field that a descriptor describes.
std::uint32_t width_in(Bytes descriptor);

// Date of the last update and record count, which are adjacent, from kDateOffset on.
inline constexpr std::uint64_t kDateOffset = 1;
std::array<Byte, 7> date_and_count(platform::LocalDay today, RecordNumber count);
// The record count in a header. REQUIRES: `header` includes the count.
inline RecordNumber counted_in(Bytes header) { return load_le32(header.data() + kCountOffset); }
std::array<Byte, 4> count_bytes(RecordNumber count);
// Reads the count from the file; nothing when the file ends before it.
std::optional<RecordNumber> read_record_count(const platform::File& table);
// Sets the header flag that makes the structural index open with the table.
void mark_as_indexed(platform::File& table, const TableLayout& layout);

// An autoincrement column's counter: its offset in the header, next value and step.
struct Autoincrement {
    const Field* field;
    std::uint64_t offset;
    std::uint32_t next;
    std::uint32_t step;
};
std::vector<Autoincrement> read_autoincrements(const platform::File& table,
                                               const TableLayout& layout);

// -- The records.

constexpr std::uint64_t record_offset(std::uint64_t header_length, std::uint64_t record_length,
                                      RecordNumber record) {
    return header_length + (record - std::uint64_t{1}) * record_length;
}
inline std::uint64_t record_offset(const TableLayout& layout, RecordNumber record) {
    return record_offset(layout.header_length, layout.record_length, record);
}
// The offset of the end mark after this many records.
inline std::uint64_t end_of_records(const TableLayout& layout, RecordNumber count) {
    return layout.header_length + std::uint64_t{count} * layout.record_length;
}
// The number of whole records in a file of this size.
RecordNumber records_in(const TableLayout& layout, std::uint64_t file_size);

}  // namespace brenik::record
