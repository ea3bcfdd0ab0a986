// The header of a tag, and of the tag directory: two pages.
//
//   offset size
//        0    4  offset of the root page
//        4    4  directory only: first page of the free list, 0 or FFFFFFFF when there is none
//        8    4  directory only: update counter, big-endian
//       12    2  key length
//       14    1  options: 1 unique, 2 null prefix, 4 candidate, 8 condition, 20 compact,
//                40 compound, 80 directory
//       15    1  signature: 0 or 1 byte order, 2 a collation, 4 a bitmap
//       16    4  directory only: 0000ABCD marks a variant with other page sizes
//      494    8  name of the collation, all zero for byte order
//      502    2  1 when the tag is descending
//      504    8  offset and length of the condition in the second page, then of the key; lengths
//                count the closing NUL
//      512  512  key text, NUL, condition text, NUL
//
// Some programs use the lengths, others the NULs. Here the texts end at their NULs, and
// `TagDescription::wrong_place` reports a contradiction.

#pragma once

#include <string>
#include <vector>

#include "util/bytes.h"

namespace brenik::index {

// A tag's definition: its name in the directory, and what its header says about its keys. Pointers
// to pages are not part of it.
struct TagDescription {
    std::string name;       // upper case, up to 10 characters
    std::string key;        // expression texts as typed
    std::string condition;  // empty when there is none
    std::size_t key_length = 0;
    Byte pad = 0x20;  // not stored in the file: 0x20 for plain text keys, 0x00 for all others
    bool unique = false;
    bool candidate = false;
    bool nullable = false;  // keys carry the null prefix byte
    bool descending = false;
    bool custom = false;
    std::string collation;  // empty: machine order
    // Why this engine cannot maintain the tag (bitmap, collation, unknown options); empty when it
    // can.
    std::string unsupported;
    // How the header contradicts its texts; empty when it does not.
    std::string wrong_place;
};

inline constexpr std::size_t kTagHeaderSize = 1024;
inline constexpr std::size_t kTagNameLength = 10;

TagDescription directory_description();
// Throws EngineFault when the directory cannot be used.
void check_directory_header(Bytes header, const std::string& path);
std::vector<Byte> make_directory_header(std::uint32_t root);

// Throws EngineFault kDamagedFile when the header places a text outside its page.
void require_texts_inside(Bytes header, const std::string& path, std::uint64_t offset);
// If the tag cannot be maintained, `unsupported` holds the reason. Throws EngineFault kDamagedFile
// if the key text does not end in its page.
TagDescription parse_tag_header(Bytes header, const std::string& name, const std::string& path,
                                std::uint64_t offset);
// Throws EngineFault kLimit when name, key or texts are too long.
std::vector<Byte> make_tag_header(const TagDescription& tag, std::uint32_t root,
                                  const std::string& path);

}  // namespace brenik::index
