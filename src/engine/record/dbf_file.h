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
//       12    4  offset in the record; written, never read: widths are added up
//       16    1  width; of text its low byte
//       17    1  decimals; of text the width's high byte
//       18    1  flags, in the later generation
//       19    4  the next autoincrement value, and in the byte behind it the step
// The records follow without gaps, then the end mark 0x1A. docs/format-dbf.md has an example.

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
// Behind the descriptors of the later generation: the path of an owning container, all zero for a
// free table.
inline constexpr std::size_t kBacklinkSize = 263;
inline constexpr Byte kEndMark = 0x1A;

// -- The header.

// The leading bytes of the file, as many as the longest header has; fewer where the file is
// shorter. `size` spares reading more than the file is known to hold.
std::vector<Byte> read_header(const platform::File& file,
                              std::uint64_t size = std::numeric_limits<std::uint64_t>::max());
// Throws EngineFault kDamagedFile or kUnsupported that names `path` and what is wrong.
TableLayout parse_layout(Bytes header, const std::string& path);
// The header bytes of a table with this layout and no records, and today's date; fills in offsets,
// lengths and null bits of `layout` on the way. EngineFault kLimit when the table would be too
// wide.
std::vector<Byte> make_header(TableLayout& layout, platform::LocalDay today);
// The width of the field that a descriptor tells of.
std::uint32_t width_in(Bytes descriptor);

// Date of the last update and record count, as they lie next to each other from kDateOffset on.
inline constexpr std::uint64_t kDateOffset = 1;
std::array<Byte, 7> date_and_count(platform::LocalDay today, RecordNumber count);
// Records by the header; what is there of it must reach so far.
inline RecordNumber counted_in(Bytes header) { return load_le32(header.data() + kCountOffset); }
std::array<Byte, 4> count_bytes(RecordNumber count);
// Asks the file; nothing when it ends before the count.
std::optional<RecordNumber> read_record_count(const platform::File& table);
// Marks the header as that of a table which is opened with its index.
void mark_as_indexed(platform::File& table, const TableLayout& layout);

// An autoincrement column's place in the header, and what lies there.
struct Autoincrement {
    const Field* field;
    std::uint64_t offset;
    std::uint32_t next;
    std::uint32_t step;
};
std::vector<Autoincrement> read_autoincrements(const platform::File& table,
                                               const TableLayout& layout);

// -- The records.

inline std::uint64_t record_offset(const TableLayout& layout, RecordNumber record) {
    return layout.header_length + (record - std::uint64_t{1}) * layout.record_length;
}
// Where the end mark belongs behind so many records.
inline std::uint64_t end_of_records(const TableLayout& layout, RecordNumber count) {
    return layout.header_length + std::uint64_t{count} * layout.record_length;
}
// Whole records that a file of this size has room for.
RecordNumber records_in(const TableLayout& layout, std::uint64_t file_size);

}  // namespace brenik::record
