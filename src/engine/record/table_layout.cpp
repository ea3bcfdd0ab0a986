// Reading and making table headers.

#include "engine/record/table_layout.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "util/runtime.h"

namespace brenik::record {
namespace {

constexpr Byte kDescriptorsEnd = 0x0D;
constexpr std::size_t kBacklinkSize =
    263;  // path of an owning container, all zero for a free table
constexpr std::uint8_t kHasStructuralIndex = 0x01;
constexpr std::uint8_t kHasMemo = 0x02;
constexpr std::uint8_t kMayBeNull = 0x02;
constexpr std::uint8_t kHiddenSystemField = 0x05;
constexpr std::size_t kMaxFieldNameLength = 10;
constexpr std::uint32_t kMaxRecordLength = 65535;

constexpr std::array<std::uint8_t, 7> kReadableVersions = {0x03, 0x30, 0x31, 0x32,
                                                           0x83, 0x8B, 0xF5};

[[noreturn]] void damaged(const std::string& path, std::size_t offset, const std::string& what) {
    throw EngineFault(FaultCode::kDamagedFile, "open",
                      path + ": damaged header at " + std::to_string(offset) + ": " + what);
}

[[noreturn]] void unsupported(const std::string& path, const std::string& what) {
    throw EngineFault(FaultCode::kUnsupported, "open", path + ": " + what);
}

bool width_suits(const Field& field) {
    switch (field.type) {
        case 'C':
            return field.width >= 1;
        case 'V':
        case 'Q':
            return field.width >= 1 && field.width <= 254;
        case 'N':
        case 'F':
            return field.width >= 1 && (field.decimals == 0 || field.decimals < field.width);
        case 'D':
        case 'T':
        case 'Y':
            return field.width == 8;
        case 'L':
            return field.width == 1;
        case 'I':
            return field.width == 4;
        case 'B':
            return field.width == 8 || field.width == 10;
        case 'M':
        case 'G':
        case 'P':
            return field.width == 4 || field.width == 10;
        case 'W':
            return field.width == 4;
        case '0':
            return field.width >= 1;
        default:
            return false;
    }
}

Field read_descriptor(Bytes descriptor, bool later_generation) {
    Field field;
    const auto name_end = std::find(descriptor.begin(), descriptor.begin() + 11, Byte{0});
    field.name = upper(std::string(descriptor.begin(), name_end));
    while (!field.name.empty() && field.name.back() == ' ') field.name.pop_back();
    field.type = static_cast<char>(std::toupper(descriptor[11]));
    field.width = descriptor[16];
    field.decimals = descriptor[17];
    if (field.type == 'C') {
        field.width += 256 * field.decimals;
        field.decimals = 0;
    }
    if (later_generation) field.flags = descriptor[18];
    return field;
}

// Gives every field its offset and, in the later generation, its bits of the null flags column.
void place_fields(TableLayout& layout) {
    std::uint32_t offset = 1;
    std::uint32_t bit = 0;
    for (Field& field : layout.fields) {
        field.offset = offset;
        offset += field.width;
        field.length_bit.reset();
        field.null_bit.reset();
        if (field.type == 'V' || field.type == 'Q') field.length_bit = bit++;
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
        if (!width_suits(field)) {
            damaged(path, at,
                    "field " + field.name + " cannot be of type " + std::string(1, field.type) +
                        " with width " + std::to_string(field.width) + " and " +
                        std::to_string(field.decimals) + " decimals");
        }
        if (field.type == '0') {
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
        damaged(path, 10,
                "record length " + std::to_string(layout.record_length) +
                    " where the fields add up to " + std::to_string(length));
    }
    if (bits_needed(layout) > (layout.null_flags ? 8 * layout.null_flags->width : 0)) {
        damaged(path, kTableHeaderSize, "the null flags column is too narrow for the fields");
    }
}

void write_descriptor(Byte* at, const Field& field) {
    std::copy_n(field.name.begin(), std::min(field.name.size(), kMaxFieldNameLength), at);
    at[11] = static_cast<Byte>(field.type);
    store_le32(at + 12, field.offset);
    at[16] = static_cast<Byte>(field.width & 0xFF);
    at[17] = static_cast<Byte>(field.type == 'C' ? field.width >> 8 : field.decimals);
    at[18] = field.flags;
}

bool has_memo_field(const TableLayout& layout) {
    return std::any_of(layout.fields.begin(), layout.fields.end(), [](const Field& field) {
        return field.type == 'M' || field.type == 'G' || field.type == 'P' || field.type == 'W';
    });
}

}  // namespace

const Field* TableLayout::find(std::string_view name) const {
    const auto found = std::find_if(fields.begin(), fields.end(), [&](const Field& field) {
        return equal_ignoring_case(field.name, name);
    });
    return found == fields.end() ? nullptr : &*found;
}

TableLayout parse_layout(Bytes header, const std::string& path) {
    if (header.size() <= kTableHeaderSize) damaged(path, 0, "the file is shorter than a header");
    TableLayout layout;
    layout.version = header[0];
    if (std::find(kReadableVersions.begin(), kReadableVersions.end(), layout.version) ==
        kReadableVersions.end()) {
        unsupported(path, "version byte " + std::to_string(layout.version) + " is not one we read");
    }
    if (header[15] != 0) unsupported(path, "the table is encrypted");
    layout.flags = header[28];
    if (layout.version == 0x83 || layout.version == 0x8B) layout.flags &= kHasMemo;
    layout.code_page = header[29];
    layout.header_length = load_le16(header.data() + 8);
    layout.record_length = load_le16(header.data() + 10);
    if (layout.header_length <= kTableHeaderSize || layout.header_length > header.size()) {
        damaged(path, 8,
                "header length " + std::to_string(layout.header_length) + " does not fit the file");
    }
    read_fields(layout, header, path);
    place_fields(layout);
    check_lengths(layout, path);
    return layout;
}

std::vector<Byte> make_header(TableLayout& layout) {
    layout.null_flags.reset();
    place_fields(layout);
    if (const std::uint32_t bits = bits_needed(layout); bits > 0) {
        Field column;
        column.name = "_NullFlags";
        column.type = '0';
        column.width = (bits + 7) / 8;
        column.flags = kHiddenSystemField;
        layout.null_flags = column;
        place_fields(layout);
    }
    const std::size_t columns = layout.fields.size() + (layout.null_flags ? 1 : 0);
    std::size_t length = kTableHeaderSize + kFieldDescriptorSize * columns + 1;
    const std::size_t descriptors_end = length - 1;
    if (layout.is_later_generation()) length += kBacklinkSize;
    const Field& last = layout.null_flags ? *layout.null_flags : layout.fields.back();
    layout.record_length = last.offset + last.width;
    if (length > 65535 || layout.record_length > kMaxRecordLength) {
        throw EngineFault(FaultCode::kLimit, "create", "too many or too wide fields for one table");
    }
    layout.header_length = static_cast<std::uint32_t>(length);
    layout.flags = static_cast<std::uint8_t>((layout.flags & kHasStructuralIndex) |
                                             (has_memo_field(layout) ? kHasMemo : 0));
    if (layout.version == 0xF5) layout.flags &= kHasStructuralIndex;

    std::vector<Byte> header(length, 0);
    header[0] = layout.version;
    store_le16(header.data() + 8, static_cast<std::uint16_t>(layout.header_length));
    store_le16(header.data() + 10, static_cast<std::uint16_t>(layout.record_length));
    header[28] = layout.flags;
    header[29] = layout.code_page;
    Byte* at = header.data() + kTableHeaderSize;
    for (const Field& field : layout.fields) {
        write_descriptor(at, field);
        at += kFieldDescriptorSize;
    }
    if (layout.null_flags) write_descriptor(at, *layout.null_flags);
    header[descriptors_end] = kDescriptorsEnd;
    return header;
}

bool is_null(const RecordView& record, const TableLayout& layout, const Field& field) {
    if (!field.null_bit || !layout.null_flags) return false;
    const Bytes flags = record.field(*layout.null_flags);
    return (flags[*field.null_bit / 8] >> (*field.null_bit % 8) & 1) != 0;
}

}  // namespace brenik::record
