// How many entries lie before each leaf of a tag's tree.
//
// The pages of a compound index say how many entries they hold, not how many lie below them. So the
// chain of leaves is followed once, by the headers of the pages alone, and remembered for as long
// as the index stays as it is. From then on the number of an entry, and the entry of a number, are
// one way down the tree and one search in here.

#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace brenik::index {

class LeafCounts {
  public:
    struct Leaf {
        std::uint32_t offset;
        std::size_t before;  // entries of all leaves further left
    };

    // Leaves come from left to right, then finish().
    void add(std::uint32_t offset, std::size_t entries);
    void finish();

    std::size_t total() const { return total_; }
    std::optional<std::size_t> before(std::uint32_t offset) const;
    // The leaf of the entry with this number, counted from 0; the number must be below total().
    const Leaf& holding(std::size_t number) const;

  private:
    std::vector<Leaf> leaves_;              // leaves without entries left out
    std::vector<std::uint32_t> by_offset_;  // indexes into leaves_
    std::size_t total_ = 0;
};

}  // namespace brenik::index
