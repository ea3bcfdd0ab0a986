// The number of entries before each leaf of a tag's tree.
//
// The pages of a compound index store how many entries they hold, not how many are below them. So
// the chain of leaves is followed once, by the page headers alone, and the counts are cached until
// the index changes. From then on, the number of an entry, or the entry with a number, costs one
// descent of the tree and one search in here.

#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace brenik::index {

class LeafCounts {
  public:
    struct Leaf {
        std::uint32_t offset;
        std::size_t before;  // entries of all leaves to the left
    };

    // Leaves are added from left to right, followed by finish().
    void add(std::uint32_t offset, std::size_t entries);
    void finish();

    std::size_t total() const { return total_; }
    std::optional<std::size_t> before(std::uint32_t offset) const;
    // The leaf that holds the entry with this number, counted from 0. REQUIRES: `number` < total().
    const Leaf& holding(std::size_t number) const;

  private:
    std::vector<Leaf> leaves_;              // without empty leaves
    std::vector<std::uint32_t> by_offset_;  // indexes into leaves_
    std::size_t total_ = 0;
};

}  // namespace brenik::index
