// Parses and makes tag headers.

#include "engine/index/cdx_header.h"

#include <algorithm>

#include "engine/index/page_format.h"
#include "util/fault.h"

namespace brenik::index {
namespace {

constexpr std::size_t kKeyLengthOffset = 12;
constexpr std::size_t kOptionsOffset = 14;
constexpr std::size_t kSignatureOffset = 15;
constexpr std::size_t kVariantOffset = 16;
constexpr std::size_t kCollationOffset = 494;
constexpr std::size_t kCollationLength = 8;
constexpr std::size_t kDirectionOffset = 502;
constexpr std::size_t kConditionTextOffset = 504;
constexpr std::size_t kKeyTextOffset = 508;
constexpr std::size_t kTextPageSize = 512;

constexpr std::uint32_t kVariantMark = 0x0000ABCD;
constexpr Byte kUnique = 0x01;
constexpr Byte kNullable = 0x02;
constexpr Byte kCandidate = 0x04;
constexpr Byte kConditional = 0x08;
constexpr Byte kCompact = 0x20;
constexpr Byte kCompound = 0x40;
constexpr Byte kDirectory = 0x80;
constexpr Byte kKnownOptions =
    kUnique | kNullable | kCandidate | kConditional | kCompact | kCompound;
constexpr Byte kByteOrder = 0x01;
constexpr Byte kCollated = 0x02;
constexpr Byte kBitmap = 0x04;

std::string padded_text(Bytes bytes) {
    const auto end = std::find(bytes.begin(), bytes.end(), Byte{0});
    return {bytes.begin(), end};
}

// The texts as their page holds them, whatever the header says: each ends at its NUL.
struct Texts {
    std::string key;
    std::string condition;
};

[[noreturn]] void fault_outside(const std::string& path, std::uint64_t offset) {
    throw EngineFault(
        FaultCode::kDamagedFile, "open",
        path + ": at " + std::to_string(offset) + ": expected an expression inside its page");
}

Texts texts_in(Bytes header, const std::string& path, std::uint64_t offset) {
    const Bytes page = header.subspan(kTextPageSize);
    Texts texts;
    texts.key = padded_text(page);
    if (texts.key.size() == page.size()) fault_outside(path, offset + kTextPageSize);
    texts.condition = padded_text(page.subspan(texts.key.size() + 1));
    return texts;
}

// How the offset and length at `position` contradict the text; empty if they agree.
std::string contradiction(Bytes header, std::size_t position, std::size_t start,
                          const std::string& text) {
    const std::size_t said_start = load_le16(header.data() + position);
    const std::size_t said_length = load_le16(header.data() + position + 2);
    const std::size_t length = text.size() + 1;
    if (said_start == start && said_length == length && start + length <= kTextPageSize) return {};
    return "has offset " + std::to_string(said_start) + " and length " +
           std::to_string(said_length) + " in the header, but offset " + std::to_string(start) +
           " and length " + std::to_string(length) +
           " in its page; other programs may read another text";
}

// How the header contradicts its texts; empty if it does not. A header without a condition may
// leave out the condition's offset and length.
std::string wrong_place(Bytes header, const TagDescription& tag) {
    std::string wrong = contradiction(header, kKeyTextOffset, 0, tag.key);
    if (!wrong.empty()) return "its key expression " + wrong;
    const bool conditional = (header[kOptionsOffset] & kConditional) != 0;
    if (!conditional && load_le32(header.data() + kConditionTextOffset) == 0) return {};
    wrong = contradiction(header, kConditionTextOffset, tag.key.size() + 1, tag.condition);
    return wrong.empty() ? wrong : "its condition " + wrong;
}

std::string reason_against(Bytes header, const TagDescription& tag) {
    const Byte options = header[kOptionsOffset];
    const Byte signature = header[kSignatureOffset];
    if (tag.key_length < 1 || tag.key_length > kLongestCdxKey) {
        return "key length " + std::to_string(tag.key_length) + " is not 1 to 240";
    }
    if ((signature & kBitmap) != 0) return "a bitmap index";
    if (!tag.collation.empty()) return "keys in the collation " + tag.collation;
    if ((signature & kCollated) != 0) return "keys in a collation without a name";
    if ((signature & ~kByteOrder) != 0) return "unknown signature " + std::to_string(signature);
    if ((options & ~kKnownOptions) != 0 || (options & kCompact) == 0) {
        return "unknown options " + std::to_string(options);
    }
    if (load_le16(header.data() + kDirectionOffset) > 1) return "unknown direction";
    if (tag.key.empty()) return "no key expression";
    if ((options & kConditional) != 0 && tag.condition.empty()) return "no condition";
    return {};
}

void store_text(std::vector<Byte>& header, std::size_t position, std::size_t start,
                const std::string& text) {
    store_le16(header.data() + position, static_cast<std::uint16_t>(start));
    store_le16(header.data() + position + 2, static_cast<std::uint16_t>(text.size() + 1));
    std::copy(text.begin(), text.end(),
              header.begin() + static_cast<std::ptrdiff_t>(kTextPageSize + start));
}

std::vector<Byte> make_header(std::uint32_t root, std::size_t key_length, Byte options,
                              const std::string& key, const std::string& condition) {
    std::vector<Byte> header(kTagHeaderSize, 0);
    store_le32(header.data(), root);
    store_le16(header.data() + kKeyLengthOffset, static_cast<std::uint16_t>(key_length));
    header[kOptionsOffset] = options;
    header[kSignatureOffset] = kByteOrder;
    store_text(header, kKeyTextOffset, 0, key);
    store_text(header, kConditionTextOffset, key.size() + 1, condition);
    return header;
}

}  // namespace

TagDescription directory_description() {
    TagDescription directory;
    directory.name = "(directory)";
    directory.key_length = kTagNameLength;
    return directory;
}

void check_directory_header(Bytes header, const std::string& path) {
    const auto fault = [&](FaultCode code, const std::string& reason) {
        return EngineFault(code, "open", path + ": " + reason);
    };
    if (header.size() < kTagHeaderSize) {
        throw fault(FaultCode::kDamagedFile, "at 0: expected an index header of 1024 bytes");
    }
    if (load_le32(header.data() + kVariantOffset) == kVariantMark) {
        throw fault(FaultCode::kUnsupported, "a variant of the format with other page sizes");
    }
    constexpr Byte kNeeded = kCompact | kCompound;
    if ((header[kOptionsOffset] & kNeeded) != kNeeded) {
        throw fault(FaultCode::kDamagedFile, "at 14: expected the options of a compound index");
    }
    if (load_le16(header.data() + kKeyLengthOffset) != kTagNameLength) {
        throw fault(FaultCode::kDamagedFile, "at 12: expected tag names of 10 bytes");
    }
}

std::vector<Byte> make_directory_header(std::uint32_t root) {
    return make_header(root, kTagNameLength, kDirectory | kCompound | kCompact, "", "");
}

void require_texts_inside(Bytes header, const std::string& path, std::uint64_t offset) {
    for (const std::size_t position : {kConditionTextOffset, kKeyTextOffset}) {
        const Byte* const said = header.data() + position;
        if (load_le16(said) + std::size_t{load_le16(said + 2)} <= kTextPageSize) continue;
        fault_outside(path, offset + position);
    }
}

TagDescription parse_tag_header(Bytes header, const std::string& name, const std::string& path,
                                std::uint64_t offset) {
    const Byte options = header[kOptionsOffset];
    TagDescription tag;
    tag.name = name;
    tag.key_length = load_le16(header.data() + kKeyLengthOffset);
    const Texts texts = texts_in(header, path, offset);
    tag.key = texts.key;
    if ((options & kConditional) != 0) tag.condition = texts.condition;
    tag.wrong_place = wrong_place(header, tag);
    tag.unique = (options & kUnique) != 0;
    tag.nullable = (options & kNullable) != 0;
    tag.candidate = (options & kCandidate) != 0;
    tag.descending = load_le16(header.data() + kDirectionOffset) != 0;
    tag.collation = padded_text(header.subspan(kCollationOffset, kCollationLength));
    if (tag.collation == "MACHINE") tag.collation.clear();
    tag.unsupported = reason_against(header, tag);
    return tag;
}

std::vector<Byte> make_tag_header(const TagDescription& tag, std::uint32_t root,
                                  const std::string& path) {
    if (tag.name.empty() || tag.name.size() > kTagNameLength || tag.key_length < 1 ||
        tag.key_length > kLongestCdxKey ||
        tag.key.size() + tag.condition.size() + 2 > kTextPageSize) {
        throw EngineFault(FaultCode::kLimit, "create index",
                          path + ": tag " + tag.name +
                              ": name, key or expressions are longer than a tag header holds");
    }
    const auto options = static_cast<Byte>(
        kCompact | kCompound | (tag.unique ? kUnique : 0) | (tag.nullable ? kNullable : 0) |
        (tag.candidate ? kCandidate : 0) | (tag.condition.empty() ? 0 : kConditional));
    std::vector<Byte> header = make_header(root, tag.key_length, options, tag.key, tag.condition);
    store_le16(header.data() + kDirectionOffset, tag.descending ? 1 : 0);
    return header;
}

}  // namespace brenik::index
