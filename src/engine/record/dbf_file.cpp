// Parses and makes table headers.

#include "engine/record/dbf_file.h"

#include <algorithm>
#include <cctype>

#include "engine/record/memo_format.h"
#include "util/runtime.h"

namespace brenik::record {
namespace {

constexpr std::size_t kFlagsOffset = 28;
constexpr std::size_t kCodePageOffset = 29;
constexpr std::size_t kEncryptionOffset = 15;
// Within a field descriptor.
constexpr std::size_t kTypeOffset = 11;
constexpr std::size_t kPlaceOffset = 12;
constexpr std::size_t kWidthOffset = 16;
constexpr std::size_t kDecimalsOffset = 17;
constexpr std::size_t kFieldFlagsOffset = 18;
constexpr std::size_t kAutoincrementOffset = 19;

constexpr std::size_t kMaxFieldNameLength = 10;

[[noreturn]] void damaged(const std::string& path, std::size_t offset, const std::string& what) {
    throw EngineFault(FaultCode::kDamagedFile, "open",
                      path + ": damaged header at " + std::to_string(offset) + ": " + what);
}

[[noreturn]] void unsupported(const std::string& path, const std::string& what) {
    throw EngineFault(FaultCode::kUnsupported, "open", path + ": " + what);
}

bool suits(const Field& field) {
    if (!field.kind) return false;
    return field.kind->form != FieldForm::kDecimal || field.decimals == 0 ||
           field.decimals < field.width;
}

// Only text may be wider than 255: it has no decimals, so their byte holds the width's high byte.
bool has_wide_text(char type) { return type == 'C'; }

Field read_descriptor(Bytes descriptor, bool later_generation) {
    Field field;
    const auto name_end = std::find(descriptor.begin(), descriptor.begin() + kTypeOffset, Byte{0});
    field.name = upper(std::string(descriptor.begin(), name_end));
    while (!field.name.empty() && field.name.back() == ' ') field.name.pop_back();
    field.type = static_cast<char>(std::toupper(descriptor[kTypeOffset]));
    field.width = width_in(descriptor);
    field.decimals = has_wide_text(field.type) ? 0 : descriptor[kDecimalsOffset];
    if (later_generation) field.flags = descriptor[kFieldFlagsOffset];
    field.kind = find_field_type(field.type, field.width);
    return field;
}

// Gives every field its type, its offset and, in the later generation, its bits in the null flags
// column.
void place_fields(TableLayout& layout) {
    std::uint32_t offset = 1;
    std::uint32_t bit = 0;
    for (Field& field : layout.fields) {
        field.kind = find_field_type(field.type, field.width);
        field.offset = offset;
        offset += field.width;
        field.length_bit.reset();
        field.null_bit.reset();
        if (field.kind->form == FieldForm::kVariableText) field.length_bit = bit++;
        if ((field.flags & kMayBeNull) != 0) field.null_bit = bit++;
    }
    if (layout.null_flags) layout.null_flags->offset = offset;
}

std::uint32_t bits_needed(const TableLayout& layout) {
    std::uint32_t bits = 0;
    for (const Field& field : layout.fields) {
        bits += (field.length_bit ? 1U : 0U) + (field.null_bit ? 1U : 0U);
    }
    return bits;
}

void read_fields(TableLayout& layout, Bytes header, const std::string& path) {
    std::size_t at = kTableHeaderSize;
    for (; at < layout.header_length && header[at] != kDescriptorsEnd; at += kFieldDescriptorSize) {
        if (at + kFieldDescriptorSize > layout.header_length) {
            damaged(path, at, "a field descriptor runs over the header's end");
        }
        if (layout.null_flags) damaged(path, at, "a field follows the null flags column");
        const Field field =
            read_descriptor(header.subspan(at, kFieldDescriptorSize), layout.is_later_generation());
        if (field.name.empty()) damaged(path, at, "a field without a name");
        if (!suits(field)) {
            damaged(path, at,
                    "field " + field.name + " cannot be of type " + std::string(1, field.type) +
                        " with width " + std::to_string(field.width) + " and " +
                        counted(field.decimals, "decimal"));
        }
        if (field.kind->form == FieldForm::kNullFlags) {
            layout.null_flags = field;
        } else {
            layout.fields.push_back(field);
        }
    }
    if (layout.fields.empty()) damaged(path, kTableHeaderSize, "no fields");
}

void check_lengths(const TableLayout& layout, const std::string& path) {
    std::uint64_t length = 1;
    for (const Field& field : layout.fields) length += field.width;
    if (layout.null_flags) length += layout.null_flags->width;
    if (length != layout.record_length) {
        damaged(path, kRecordLengthOffset,
                "record length " + std::to_string(layout.record_length) +
                    " where the fields add up to " + std::to_string(length));
    }
    if (bits_needed(layout) > (layout.null_flags ? 8 * layout.null_flags->width : 0)) {
        damaged(path, kTableHeaderSize, "the null flags column is too narrow for the fields");
    }
}

void write_descriptor(Byte* at, const Field& field) {
    std::copy_n(field.name.begin(), std::min(field.name.size(), kMaxFieldNameLength), at);
    at[kTypeOffset] = static_cast<Byte>(field.type);
    store_le32(at + kPlaceOffset, field.offset);
    at[kWidthOffset] = static_cast<Byte>(field.width & 0xFF);
    at[kDecimalsOffset] =
        static_cast<Byte>(has_wide_text(field.type) ? field.width >> 8 : field.decimals);
    at[kFieldFlagsOffset] = field.flags;
}

}  // namespace

std::vector<Byte> read_header(const platform::File& file, std::uint64_t size) {
    std::vector<Byte> header(
        static_cast<std::size_t>(std::min<std::uint64_t>(kLargestHeader, size)));
    header.resize(file.read_at(0, header));
    return header;
}

std::uint32_t width_in(Bytes descriptor) {
    const bool wide = has_wide_text(static_cast<char>(std::toupper(descriptor[kTypeOffset])));
    return descriptor[kWidthOffset] + (wide ? 256U * descriptor[kDecimalsOffset] : 0U);
}

TableLayout parse_layout(Bytes header, const std::string& path) {
    if (header.size() <= kTableHeaderSize) damaged(path, 0, "the file is shorter than a header");
    TableLayout layout;
    layout.version = header[0];
    if (!is_readable(layout.version)) {
        unsupported(path, "version byte " + std::to_string(layout.version) + " is not one we read");
    }
    if (header[kEncryptionOffset] != 0) unsupported(path, "the table is encrypted");
    layout.flags = header[kFlagsOffset];
    if (memo_kind(layout.version) != MemoKind::kFpt) layout.flags &= kHasMemo;
    layout.code_page = header[kCodePageOffset];
    layout.header_length = load_le16(header.data() + kHeaderLengthOffset);
    layout.record_length = load_le16(header.data() + kRecordLengthOffset);
    if (layout.header_length <= kTableHeaderSize || layout.header_length > header.size()) {
        damaged(path, kHeaderLengthOffset,
                "header length " + std::to_string(layout.header_length) + " does not fit the file");
    }
    read_fields(layout, header, path);
    place_fields(layout);
    check_lengths(layout, path);
    return layout;
}

std::vector<Byte> make_header(TableLayout& layout, platform::LocalDay today) {
    layout.null_flags.reset();
    place_fields(layout);
    if (const std::uint32_t bits = bits_needed(layout); bits > 0) {
        Field column;
        column.name = "_NullFlags";
        column.type = '0';
        column.width = (bits + 7) / 8;
        column.flags = kHidden | kBinary;
        layout.null_flags = column;
        place_fields(layout);
    }
    const std::size_t columns = layout.fields.size() + (layout.null_flags ? 1 : 0);
    std::size_t length = kTableHeaderSize + kFieldDescriptorSize * columns + 1;
    const std::size_t descriptors_end = length - 1;
    if (layout.is_later_generation()) length += kBacklinkSize;
    const Field& last = layout.null_flags ? *layout.null_flags : layout.fields.back();
    layout.record_length = last.offset + last.width;
    if (length > kLargestHeader || layout.record_length > kLongestRecord) {
        throw EngineFault(FaultCode::kLimit, "create", "too many or too wide fields for one table");
    }
    layout.header_length = static_cast<std::uint32_t>(length);
    layout.flags = static_cast<std::uint8_t>((layout.flags & kHasStructuralIndex) |
                                             (layout.has_memos() ? kHasMemo : 0));
    if (layout.version == kFptMemos) layout.flags &= kHasStructuralIndex;

    std::vector<Byte> header(length, 0);
    header[0] = layout.version;
    std::ranges::copy(date_and_count(today, 0), header.begin() + kDateOffset);
    store_le16(header.data() + kHeaderLengthOffset,
               static_cast<std::uint16_t>(layout.header_length));
    store_le16(header.data() + kRecordLengthOffset,
               static_cast<std::uint16_t>(layout.record_length));
    header[kFlagsOffset] = layout.flags;
    header[kCodePageOffset] = layout.code_page;
    Byte* at = header.data() + kTableHeaderSize;
    for (const Field& field : layout.fields) {
        write_descriptor(at, field);
        at += kFieldDescriptorSize;
    }
    if (layout.null_flags) write_descriptor(at, *layout.null_flags);
    header[descriptors_end] = kDescriptorsEnd;
    return header;
}

std::array<Byte, 7> date_and_count(platform::LocalDay today, RecordNumber count) {
    std::array<Byte, 7> bytes = {static_cast<Byte>(today.year % 100),
                                 static_cast<Byte>(today.month), static_cast<Byte>(today.day)};
    store_le32(bytes.data() + kCountOffset - kDateOffset, count);
    return bytes;
}

std::array<Byte, 4> count_bytes(RecordNumber count) {
    std::array<Byte, 4> bytes{};
    store_le32(bytes.data(), count);
    return bytes;
}

std::optional<RecordNumber> read_record_count(const platform::File& table) {
    std::array<Byte, 4> count{};
    if (table.read_at(kCountOffset, count) != count.size()) return std::nullopt;
    return load_le32(count.data());
}

void mark_as_indexed(platform::File& table, const TableLayout& layout) {
    const Byte flags = layout.flags | kHasStructuralIndex;
    table.write_at(kFlagsOffset, {&flags, 1});
}

std::vector<Autoincrement> read_autoincrements(const platform::File& table,
                                               const TableLayout& layout) {
    std::vector<Autoincrement> columns;
    for (std::size_t i = 0; i < layout.fields.size(); ++i) {
        if (!layout.fields[i].is_autoincrement()) continue;
        const std::uint64_t at = kTableHeaderSize + i * kFieldDescriptorSize + kAutoincrementOffset;
        std::array<Byte, 5> next_and_step{};
        if (table.read_at(at, next_and_step) != next_and_step.size()) break;
        columns.push_back(
            {&layout.fields[i], at, load_le32(next_and_step.data()), next_and_step.back()});
    }
    return columns;
}

RecordNumber records_in(const TableLayout& layout, std::uint64_t file_size) {
    if (file_size < layout.header_length) return 0;
    constexpr std::uint64_t kMost = std::numeric_limits<RecordNumber>::max();
    return static_cast<RecordNumber>(
        std::min((file_size - layout.header_length) / layout.record_length, kMost));
}

}  // namespace brenik::record
