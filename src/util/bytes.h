// Loads and stores numbers of files.
//
// Tables are little-endian; memo files and index keys are big-endian. All code uses these functions
// for numbers on disk. They work byte by byte: no struct is laid over a buffer, so alignment and
// host byte order never matter. Callers check bounds first.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace brenik {

using Byte = std::uint8_t;
using Bytes = std::span<const Byte>;
using MutableBytes = std::span<Byte>;

inline std::uint16_t load_le16(const Byte* p) {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}

inline std::uint32_t load_le32(const Byte* p) {
    return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
           static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

inline std::uint64_t load_le64(const Byte* p) {
    return static_cast<std::uint64_t>(load_le32(p + 4)) << 32 | load_le32(p);
}

inline std::uint16_t load_be16(const Byte* p) {
    return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}

inline std::uint32_t load_be32(const Byte* p) {
    return static_cast<std::uint32_t>(p[0]) << 24 | static_cast<std::uint32_t>(p[1]) << 16 |
           static_cast<std::uint32_t>(p[2]) << 8 | static_cast<std::uint32_t>(p[3]);
}

inline void store_le16(Byte* p, std::uint16_t v) {
    p[0] = static_cast<Byte>(v);
    p[1] = static_cast<Byte>(v >> 8);
}

inline void store_le32(Byte* p, std::uint32_t v) {
    store_le16(p, static_cast<std::uint16_t>(v));
    store_le16(p + 2, static_cast<std::uint16_t>(v >> 16));
}

inline void store_le64(Byte* p, std::uint64_t v) {
    store_le32(p, static_cast<std::uint32_t>(v));
    store_le32(p + 4, static_cast<std::uint32_t>(v >> 32));
}

inline void store_be16(Byte* p, std::uint16_t v) {
    p[0] = static_cast<Byte>(v >> 8);
    p[1] = static_cast<Byte>(v);
}

inline void store_be32(Byte* p, std::uint32_t v) {
    store_be16(p, static_cast<std::uint16_t>(v >> 16));
    store_be16(p + 2, static_cast<std::uint16_t>(v));
}

inline void store_be64(Byte* p, std::uint64_t v) {
    store_be32(p, static_cast<std::uint32_t>(v >> 32));
    store_be32(p + 4, static_cast<std::uint32_t>(v));
}

// Text is never recoded, so its characters are the bytes on disk.
inline Bytes as_bytes(std::string_view text) {
    return {reinterpret_cast<const Byte*>(text.data()), text.size()};
}

inline std::string_view as_text(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace brenik
