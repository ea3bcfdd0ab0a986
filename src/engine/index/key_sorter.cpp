// Collects, sorts and merges rows.

#include "engine/index/key_sorter.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace brenik::index {
namespace {

constexpr std::size_t kWord = 8;
constexpr std::size_t kLongestStep = std::size_t{1} << 18;  // of reading or writing a run

// Eight bytes of a row as a number that compares like them; zeros follow its end.
std::uint64_t word_of(const Byte* row, std::size_t stride, std::size_t at) {
    std::uint64_t word = 0;
    if (at + kWord <= stride) {
        return std::uint64_t{load_be32(row + at)} << 32 | load_be32(row + at + 4);
    }
    for (std::size_t i = at; i < at + kWord; ++i) word = word << 8 | (i < stride ? row[i] : 0U);
    return word;
}

std::size_t byte_of(std::uint64_t word, std::size_t number) {
    return static_cast<std::size_t>(word >> (8 * number) & 0xFF);
}

}  // namespace

// Sorts rows by their first word, then each group of equal ones by the next.
class KeySorter::Sorting {
  public:
    explicit Sorting(const KeySorter& sorter) : sorter_(sorter) {
        SortSpace& space = sorter.space_;
        space.require(sorter.held_);
        items_ = space.items.get();
        spare_ = space.spare.get();
    }

    void run() {
        for (std::size_t i = 0; i < sorter_.held_; ++i) {
            items_[i].row = static_cast<std::uint32_t>(i);
        }
        sort(0, sorter_.held_, 0);
    }

  private:
    using Item = SortSpace::Item;

    void sort(std::size_t first, std::size_t last, std::size_t at) {
        while (load_words(first, last, at)) {
            if (at + kWord >= sorter_.stride_) return;
            at += kWord;
        }
        if (!ordered_) sort_words({items_ + first, last - first});
        if (at + kWord >= sorter_.stride_) return;
        for (std::size_t i = first; i < last;) {
            const std::size_t group = i;
            while (i < last && items_[i].word == items_[group].word) ++i;
            if (i - group > 1) sort(group, i, at + kWord);
        }
    }

    // True when all words are equal.
    bool load_words(std::size_t first, std::size_t last, std::size_t at) {
        bool equal = true;
        std::uint64_t before = 0;
        ordered_ = true;
        for (std::size_t i = first; i < last; ++i) {
            const std::uint64_t word = word_of(sorter_.row(items_[i].row), sorter_.stride_, at);
            if (i > first) {
                equal = equal && word == before;
                ordered_ = ordered_ && before <= word;
            }
            items_[i].word = before = word;
        }
        return equal;
    }

    // Few items are compared, many are distributed byte by byte.
    void sort_words(std::span<Item> items) {
        constexpr std::size_t kFew = 256;
        if (items.size() > kFew) return distribute(items);
        std::sort(items.begin(), items.end(),
                  [](const Item& a, const Item& b) { return a.word < b.word; });
    }

    // From the last byte of the words to the first. Bytes in which all agree are left out.
    void distribute(std::span<Item> items) {
        std::array<std::array<std::uint32_t, 256>, kWord> counts{};
        for (const Item& item : items) {
            for (std::size_t i = 0; i < kWord; ++i) ++counts[i][byte_of(item.word, i)];
        }
        Item* from = items.data();
        Item* to = spare_;
        for (std::size_t i = 0; i < kWord; ++i) {
            auto& places = counts[i];
            if (places[byte_of(from->word, i)] == items.size()) continue;
            std::uint32_t place = 0;
            for (std::uint32_t& next : places) place += std::exchange(next, place);
            for (std::size_t k = 0; k < items.size(); ++k) {
                to[places[byte_of(from[k].word, i)]++] = from[k];
            }
            std::swap(from, to);
        }
        if (from != items.data()) std::copy_n(from, items.size(), items.data());
    }

    const KeySorter& sorter_;
    Item* items_ = nullptr;
    Item* spare_ = nullptr;
    bool ordered_ = true;
};

// Reads all runs at once, each through a buffer of its own, and supplies the least row.
class KeySorter::Merge {
  public:
    Merge(const std::vector<Run>& runs, const RunFile& file, std::size_t stride, std::size_t memory)
        : file_(file), stride_(stride) {
        const std::size_t step = std::min(memory / runs.size(), kLongestStep) / stride;
        step_ = std::max<std::size_t>(step, 1) * stride;
        for (const Run& run : runs) {
            readers_.push_back({0, {}, 0, run.offset, run.offset + run.rows * stride});
            readers_.back().buffer.reserve(step_);
            fill(readers_.back());
        }
        for (std::size_t i = readers_.size(); i-- > 0;) sink(i);
    }

    bool next(Bytes& row) {
        if (begun_) {
            Reader& least = readers_.front();
            least.used += stride_;
            if (least.used < least.buffer.size()) {
                least.word = word_of(least.row(), stride_, 0);
            } else if (least.offset < least.end) {
                fill(least);
            } else {
                std::swap(least, readers_.back());
                readers_.pop_back();
            }
            if (!readers_.empty()) sink(0);
        }
        begun_ = true;
        if (readers_.empty()) return false;
        row = {readers_.front().row(), stride_};
        return true;
    }

  private:
    struct Reader {
        std::uint64_t word;  // the row's first
        std::vector<Byte> buffer;
        std::size_t used;
        std::uint64_t offset;  // in the file: what follows the buffer, and the end of the run
        std::uint64_t end;

        const Byte* row() const { return buffer.data() + used; }
    };

    void fill(Reader& reader) {
        reader.buffer.resize(
            static_cast<std::size_t>(std::min<std::uint64_t>(step_, reader.end - reader.offset)));
        file_.read(reader.offset, reader.buffer);
        reader.offset += reader.buffer.size();
        reader.used = 0;
        reader.word = word_of(reader.row(), stride_, 0);
    }

    bool is_less(const Reader& a, const Reader& b) const {
        if (a.word != b.word) return a.word < b.word;
        return std::memcmp(a.row(), b.row(), stride_) < 0;
    }

    // Restores the heap of readers, whose least is in front, below one that may have grown.
    void sink(std::size_t parent) {
        for (;;) {
            std::size_t least = parent;
            for (std::size_t child = 2 * parent + 1; child <= 2 * parent + 2; ++child) {
                if (child < readers_.size() && is_less(readers_[child], readers_[least])) {
                    least = child;
                }
            }
            if (least == parent) return;
            std::swap(readers_[parent], readers_[least]);
            parent = least;
        }
    }

    const RunFile& file_;
    std::size_t stride_;
    std::size_t step_ = 0;
    std::vector<Reader> readers_;
    bool begun_ = false;
};

void SortSpace::require(std::size_t count) {
    if (count <= capacity_) return;
    capacity_ = 0;
    items = std::make_unique_for_overwrite<Item[]>(count);
    spare = std::make_unique_for_overwrite<Item[]>(count);
    capacity_ = count;
}

KeySorter::KeySorter(std::size_t key_length, SortSpace& space)
    : stride_(row_bytes(key_length)), space_(space) {}

KeySorter::KeySorter(KeySorter&&) noexcept = default;

KeySorter::~KeySorter() = default;

MutableBytes KeySorter::claim() {
    if (held_ == space_.most_rows) write_run();
    if (held_ == blocks_.size() * kRowsPerBlock) {
        blocks_.push_back(std::make_unique_for_overwrite<Byte[]>(kRowsPerBlock * stride_));
    }
    return {row(held_), stride_ - 4};
}

void KeySorter::keep(RecordNumber record) {
    Byte* added = row(held_);
    store_be32(added + stride_ - 4, record);
    ascending_ = ascending_ && (held_ == 0 || std::memcmp(row(held_ - 1), added, stride_) <= 0);
    largest_record_ = std::max(largest_record_, record);
    ++held_;
    ++count_;
}

const Byte* KeySorter::sorted_row(std::size_t number) const {
    return row(ascending_ ? number : space_.items[number].row);
}

void KeySorter::write_run() {
    if (!ascending_) Sorting(*this).run();
    runs_.push_back({space_.runs.size(), held_});
    std::vector<Byte> buffer;
    buffer.reserve(kLongestStep);
    for (std::size_t i = 0; i < held_; ++i) {
        if (buffer.size() + stride_ > kLongestStep) {
            space_.runs.append(buffer);
            buffer.clear();
        }
        const Byte* next = sorted_row(i);
        buffer.insert(buffer.end(), next, next + stride_);
    }
    space_.runs.append(buffer);
    held_ = 0;
    ascending_ = true;
}

SortedEntries KeySorter::sorted() {
    if (!runs_.empty()) {
        if (held_ > 0) write_run();
        blocks_.clear();
        merge_ = std::make_unique<Merge>(runs_, space_.runs, stride_, space_.most_rows * stride_);
    } else if (!ascending_) {
        Sorting(*this).run();
    }
    return {largest_record_, [this](Bytes& entry) { return next(entry); }};
}

bool KeySorter::next(Bytes& entry) {
    if (merge_ ? merge_->next(entry) : given_ < held_) {
        if (!merge_) entry = {sorted_row(given_++), stride_};
        return true;
    }
    merge_.reset();
    blocks_.clear();
    return false;
}

}  // namespace brenik::index
