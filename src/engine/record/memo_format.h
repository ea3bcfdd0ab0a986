// The bytes of a memo file: its header, and the blocks that hold a memo.
//
// .FPT, all numbers big-endian. The header takes the first 512 bytes:
//   offset size
//        0    4  next free block
//        6    2  block size in bytes
// A memo starts at the first byte of a block and continues across block boundaries:
//        0    4  type: 0 picture, 1 text, 2 object
//        4    4  length of the data
//        8       the data
// .DBT of generation III: blocks of 512 bytes; text ends at the first 0x1A. .DBT of generation IV:
// the block size is at offset 20 of the header, 16 bits, little-endian; a memo begins with
// FF FF 08 00 and its length, which includes these 8 bytes. docs/reference/format-fpt.md has
// an example.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/record/table_layout.h"
#include "platform/file.h"

namespace brenik::record {

enum class MemoKind { kFpt, kGeneration3, kGeneration4 };

// The kind of memo file that a table of this version has, and its extension.
MemoKind memo_kind(std::uint8_t version);
const char* memo_extension(std::uint8_t version);

inline constexpr std::uint64_t kFptHeaderSize = 512;
inline constexpr std::size_t kBlockHeaderSize = 8;
inline constexpr std::uint64_t kNextFreeOffset = 0;
inline constexpr std::uint64_t kBlockSizeOffset = 6;
inline constexpr std::size_t kGeneration3BlockSize = 512;
inline constexpr Byte kTextEnd = 0x1A;  // of generation III

// How one file stores its memos.
struct MemoFormat {
    MemoKind kind = MemoKind::kFpt;
    std::uint32_t block_size = kGeneration3BlockSize;

    std::uint64_t offset_of(std::uint64_t block) const { return block * block_size; }
    // The lowest offset of a memo.
    std::uint64_t first_offset() const {
        return kind == MemoKind::kFpt ? kFptHeaderSize : block_size;
    }
    // The blocks that this many bytes take, and those that a memo with this many bytes of data
    // takes.
    std::uint64_t blocks_in(std::uint64_t bytes) const {
        return (bytes + block_size - 1) / block_size;
    }
    std::uint64_t blocks_for(std::uint64_t data_length) const {
        return blocks_in(kBlockHeaderSize + data_length);
    }
};

// Reads the file's header; nothing when the file is shorter than a header.
std::optional<MemoFormat> read_memo_format(const platform::File& memo, MemoKind kind);
// Reads the next free block from an .FPT file's header; nothing when the file ends before it.
std::optional<std::uint32_t> read_next_free(const platform::File& memo);
void write_next_free(platform::File& memo, std::uint32_t block);
void write_block_size(platform::File& memo, std::uint16_t size);
// The header of an .FPT file without memos.
std::vector<Byte> make_memo_header();

// The header of one memo.
struct MemoHeader {
    bool is_known_type = true;
    std::uint64_t length = 0;  // of the data, in bytes
};
// Parses kBlockHeaderSize bytes; nothing when no memo of this kind begins with them. Generation III
// has no such header.
std::optional<MemoHeader> parse_memo_header(MemoKind kind, Bytes bytes);
// Encodes an .FPT memo as whole blocks.
std::vector<Byte> make_memo(const MemoFormat& format, std::string_view data, bool binary);

// The block number in a memo field; 0 for no memo.
struct MemoPointer {
    std::uint32_t block = 0;
    bool is_number = true;  // false: the field is neither blank nor a plain number
};
MemoPointer read_memo_pointer(const RecordView& record, const Field& field);
void set_memo_block(MutableBytes record, const Field& field, std::uint32_t block);

}  // namespace brenik::record
