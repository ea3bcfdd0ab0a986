// Sorts the keys of one tag in limited memory.
//
// A row is a key and its big-endian record number, so that comparing bytes compares entries. When
// the memory for rows is full, they are sorted and written to a temporary file as a run. The end of
// the collection merges the runs. Rows that arrive in order are not sorted.

#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "engine/index/run_file.h"
#include "engine/table.h"
#include "util/bytes.h"

namespace brenik::index {

// Entries for building a tag: keys with big-endian record numbers, in ascending order.
struct SortedEntries {
    RecordNumber largest_record = 0;
    // Supplies the next one, valid until the next call; false after the last.
    std::function<bool(Bytes& entry)> next;
};

// What the sorters of one index share: the file for their runs, and memory to sort one of them.
class SortSpace {
  public:
    // The part of a row that is being compared, and the row's number.
    struct Item {
        std::uint64_t word;
        std::uint32_t row;
    };
    static constexpr std::size_t kBytesPerRow = 2 * sizeof(Item);

    SortSpace(std::string run_path, std::size_t rows)
        : most_rows(std::max<std::size_t>(rows, 1)), runs(std::move(run_path)) {}
    // Makes room for so many items.
    void require(std::size_t count);

    const std::size_t most_rows;
    RunFile runs;
    std::unique_ptr<Item[]> items;
    std::unique_ptr<Item[]> spare;

  private:
    std::size_t capacity_ = 0;
};

class KeySorter {
  public:
    static constexpr std::size_t row_bytes(std::size_t key_length) { return key_length + 4; }

    // Holds at most `space.most_rows` in memory.
    KeySorter(std::size_t key_length, SortSpace& space);
    KeySorter(KeySorter&&) noexcept;
    ~KeySorter();

    // The place for the key of the next row, which keep() completes. EngineFault when a full run
    // cannot be written.
    MutableBytes claim();
    void keep(RecordNumber record);
    std::uint64_t count() const { return count_; }

    // Ends the collection. The entries are valid until another sorter of the space sorts.
    SortedEntries sorted();

  private:
    static constexpr std::size_t kRowsPerBlock = 4096;
    class Sorting;
    class Merge;
    struct Run {
        std::uint64_t offset;
        std::uint64_t rows;
    };

    Byte* row(std::size_t number) const {
        return blocks_[number / kRowsPerBlock].get() + number % kRowsPerBlock * stride_;
    }
    const Byte* sorted_row(std::size_t number) const;
    void write_run();
    bool next(Bytes& entry);

    std::size_t stride_;
    SortSpace& space_;
    std::uint64_t count_ = 0;
    RecordNumber largest_record_ = 0;

    // The rows in memory.
    std::vector<std::unique_ptr<Byte[]>> blocks_;
    std::size_t held_ = 0;
    bool ascending_ = true;
    std::size_t given_ = 0;

    std::vector<Run> runs_;
    std::unique_ptr<Merge> merge_;
};

}  // namespace brenik::index
