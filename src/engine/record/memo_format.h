// The bytes of a memo file: its header and how a memo lies in its blocks.
//
// .FPT, all numbers big-endian. The header takes the first 512 bytes:
//   offset size
//        0    4  next free block
//        6    2  block size in bytes
// A memo begins at a block's first byte and runs on over block borders:
//        0    4  type: 0 picture, 1 text, 2 object
//        4    4  length of the data
//        8       the data
// .DBT of generation III: blocks of 512 bytes, text up to the first 0x1A. .DBT of generation IV:
// the block size at offset 20 of the header, 16 bits, little-endian; a memo begins with FF FF 08 00
// and its length, these 8 bytes counted. docs/format-fpt.md has an example.

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

// How the memos of one file lie in it.
struct MemoFormat {
    MemoKind kind = MemoKind::kFpt;
    std::uint32_t block_size = kGeneration3BlockSize;

    std::uint64_t offset_of(std::uint64_t block) const { return block * block_size; }
    // Where the first memo may begin.
    std::uint64_t first_offset() const {
        return kind == MemoKind::kFpt ? kFptHeaderSize : block_size;
    }
    // Blocks for so many bytes, and for a memo with so many bytes of data.
    std::uint64_t blocks_in(std::uint64_t bytes) const {
        return (bytes + block_size - 1) / block_size;
    }
    std::uint64_t blocks_for(std::uint64_t data_length) const {
        return blocks_in(kBlockHeaderSize + data_length);
    }
};

// What the file's header says; nothing when the file is shorter than a header.
std::optional<MemoFormat> read_memo_format(const platform::File& memo, MemoKind kind);
// The next free block by the header of an .FPT file; nothing when it is shorter than that number.
std::optional<std::uint32_t> read_next_free(const platform::File& memo);
void write_next_free(platform::File& memo, std::uint32_t block);
void write_block_size(platform::File& memo, std::uint16_t size);
// The header of an .FPT file without memos.
std::vector<Byte> make_memo_header();

// What the first bytes of a memo say.
struct MemoHeader {
    bool is_known_type = true;
    std::uint64_t length = 0;  // of the data, in bytes
};
// Of kBlockHeaderSize bytes; nothing when no memo of this kind begins so. Generation III has no
// such header.
std::optional<MemoHeader> parse_memo_header(MemoKind kind, Bytes bytes);
// The whole blocks of an .FPT memo.
std::vector<Byte> make_memo(const MemoFormat& format, std::string_view data, bool binary);

// The block that a memo field of a record names, 0 for none.
struct MemoPointer {
    std::uint32_t block = 0;
    bool is_number = true;  // false: the field holds something else behind the digits, or no digits
};
MemoPointer read_memo_pointer(const RecordView& record, const Field& field);
void set_memo_block(MutableBytes record, const Field& field, std::uint32_t block);

}  // namespace brenik::record
