// Parses and makes memo headers, blocks and pointers.

#include "engine/record/memo_format.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "util/runtime.h"

namespace brenik::record {
namespace {

constexpr std::uint16_t kNewBlockSize = 64;
constexpr std::size_t kGeneration4BlockSizeOffset = 20;
constexpr std::size_t kGeneration4HeaderSize = 24;
constexpr std::uint32_t kGeneration4Mark = 0x0008FFFF;  // FF FF 08 00
constexpr std::size_t kLengthOffset = 4;                // within a block's header
constexpr std::uint32_t kBinaryBlock = 0;
constexpr std::uint32_t kTextBlock = 1;
constexpr std::uint32_t kBlockTypes = 3;
constexpr std::uint32_t kBinaryPointerWidth = 4;

}  // namespace

MemoKind memo_kind(std::uint8_t version) {
    if (version == kGeneration3Memos) return MemoKind::kGeneration3;
    return version == kGeneration4Memos ? MemoKind::kGeneration4 : MemoKind::kFpt;
}

const char* memo_extension(std::uint8_t version) {
    return memo_kind(version) == MemoKind::kFpt ? "FPT" : "DBT";
}

std::optional<MemoFormat> read_memo_format(const platform::File& memo, MemoKind kind) {
    MemoFormat format{kind};
    std::array<Byte, kGeneration4HeaderSize> header{};
    if (memo.read_at(0, header) < kBlockSizeOffset + 2) return std::nullopt;
    if (kind == MemoKind::kFpt) {
        format.block_size = std::max<std::uint32_t>(load_be16(header.data() + kBlockSizeOffset), 1);
    } else if (kind == MemoKind::kGeneration4) {
        const std::uint16_t size = load_le16(header.data() + kGeneration4BlockSizeOffset);
        if (size != 0) format.block_size = size;
    }
    return format;
}

std::optional<std::uint32_t> read_next_free(const platform::File& memo) {
    std::array<Byte, 4> number{};
    if (memo.read_at(kNextFreeOffset, number) < number.size()) return std::nullopt;
    return load_be32(number.data());
}

void write_next_free(platform::File& memo, std::uint32_t block) {
    std::array<Byte, 4> number{};
    store_be32(number.data(), block);
    memo.write_at(kNextFreeOffset, number);
}

void write_block_size(platform::File& memo, std::uint16_t size) {
    std::array<Byte, 2> bytes{};
    store_be16(bytes.data(), size);
    memo.write_at(kBlockSizeOffset, bytes);
}

std::vector<Byte> make_memo_header() {
    std::vector<Byte> header(kFptHeaderSize, 0);
    store_be32(header.data() + kNextFreeOffset, kFptHeaderSize / kNewBlockSize);
    store_be16(header.data() + kBlockSizeOffset, kNewBlockSize);
    return header;
}

std::optional<MemoHeader> parse_memo_header(MemoKind kind, Bytes bytes) {
    if (kind == MemoKind::kFpt) {
        return MemoHeader{load_be32(bytes.data()) < kBlockTypes,
                          load_be32(bytes.data() + kLengthOffset)};
    }
    const std::uint32_t whole = load_le32(bytes.data() + kLengthOffset);
    if (load_le32(bytes.data()) != kGeneration4Mark || whole < kBlockHeaderSize) {
        return std::nullopt;
    }
    return MemoHeader{true, whole - kBlockHeaderSize};
}

std::vector<Byte> make_memo(const MemoFormat& format, std::string_view data, bool binary) {
    std::vector<Byte> bytes(
        static_cast<std::size_t>(format.offset_of(format.blocks_for(data.size()))), 0);
    store_be32(bytes.data(), binary ? kBinaryBlock : kTextBlock);
    store_be32(bytes.data() + kLengthOffset, static_cast<std::uint32_t>(data.size()));
    std::ranges::copy(data, bytes.begin() + kBlockHeaderSize);
    return bytes;
}

MemoPointer read_memo_pointer(const RecordView& record, const Field& field) {
    if (field.width == kBinaryPointerWidth) return {load_le32(record.field(field).data())};
    std::string_view text = as_text(record.field(field));
    while (text.ends_with('\0')) text.remove_suffix(1);
    text = trim_both(text);
    MemoPointer pointer;
    if (text.empty()) return pointer;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), pointer.block);
    pointer.is_number = error == std::errc() && end == text.data() + text.size();
    return pointer;
}

void set_memo_block(MutableBytes record, const Field& field, std::uint32_t block) {
    const MutableBytes at = record.subspan(field.offset, field.width);
    if (field.width == kBinaryPointerWidth) return store_le32(at.data(), block);
    const std::string digits = block == 0 ? std::string() : std::to_string(block);
    std::ranges::fill(at, Byte{' '});
    std::ranges::copy(digits, at.end() - static_cast<std::ptrdiff_t>(digits.size()));
}

}  // namespace brenik::record
