// Packs ascending entries straight into the bytes of an index page.
//
// A packer holds one page under construction, so packing
// an entry allocates nothing and looks only at the entry before it.

#pragma once

#include <array>
#include <cstdint>

#include "engine/index/page_format.h"
#include "util/bytes.h"

namespace brenik::index {

class PagePacker {
  public:
    // A leaf; `layout` must hold every count of the key and every record number added.
    PagePacker(const CdxForm& form, const LeafLayout& layout);
    // An interior page.
    explicit PagePacker(const CdxForm& form);

    // Appends an entry, a key and a big-endian record number, which must not be less than the last
    // one. False, with nothing changed, if the page would have less than `spare` bytes left. Only
    // interior pages use `child`.
    [[nodiscard]] bool add(Bytes entry, std::uint32_t child, std::size_t spare);
    std::size_t count() const { return count_; }
    // REQUIRES: count() > 0.
    Bytes last_entry() const { return Bytes(last_).first(form_.key_length + 4); }
    // The bytes of an empty page that entries can take.
    std::size_t room() const;
    // Where the key bytes of a leaf begin.
    std::size_t keys_begin() const { return back_; }
    // Completes the page. Its bytes are valid until the next call of add() or reset().
    Bytes finish(const PageLinks& links);
    // Begins the next page of the same kind.
    void reset();

  private:
    bool add_to_leaf(Bytes entry, std::size_t spare);
    bool add_to_branch(Bytes entry, std::uint32_t child, std::size_t spare);

    CdxForm form_;
    bool leaf_;
    LeafLayout layout_;
    std::size_t count_ = 0;
    std::size_t front_ = 0;     // end of the bytes filled from the front
    std::size_t back_ = 0;      // start of those filled from the end
    std::size_t trailing_ = 0;  // pad bytes at the end of the last key
    std::array<Byte, kLongestCdxKey + 4> last_{};
    std::array<Byte, kCdxPageSize> page_{};
};

}  // namespace brenik::index
