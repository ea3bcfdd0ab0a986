// The keys of all tags of an index, collected in one pass over the records.

#pragma once

#include <limits>
#include <string>
#include <vector>

#include "engine/index/key_sorter.h"
#include "engine/index/order.h"

namespace brenik::index {

// Keeps a rebuild within 64 MB; the check that follows it takes more for a large index.
inline constexpr std::size_t kMemoryForKeys = std::size_t{50} << 20;
// For a rebuild that must not depend on room for one more file.
inline constexpr std::size_t kAnyMemory = std::numeric_limits<std::size_t>::max();

class IndexKeys {
  public:
    // Uses no more than `memory` bytes, and beyond that a temporary file beside the index. The
    // orders must outlive this.
    IndexKeys(std::vector<const Order*> orders, const std::string& index_path, std::size_t memory);

    // Each record once. EngineFault when the temporary file cannot be written.
    void add(const record::RecordView& record);
    KeySorter& of(std::size_t number) { return sorters_[number]; }

  private:
    std::vector<const Order*> orders_;
    SortSpace space_;
    std::vector<KeySorter> sorters_;  // in the order of `orders_`
};

}  // namespace brenik::index
