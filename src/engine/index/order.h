// An order: a tag, its compiled key and condition, and walks through it.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "engine/expression/expression.h"
#include "engine/index/cdx_tree.h"
#include "engine/index/index_key.h"
#include "engine/record/table_layout.h"
#include "engine/table.h"

namespace brenik::index {

struct Order {
    CdxTree* tag;
    expression::Expression key;
    std::optional<expression::Expression> condition;
    KeyFormat format;

    const TagDescription& description() const { return tag->description(); }
    bool holds(const record::RecordView& record) const {
        return !condition || condition->is_true(record);
    }
    std::string key_of(const record::RecordView& record) const;
    // True when two versions of one record surely have the same key here, or both none.
    bool keeps_key(const record::RecordView& before, const record::RecordView& after) const {
        return key.reads_same(before, after) &&
               (!condition || condition->reads_same(before, after));
    }
    // False for an entry that an interrupted change or a failed append has left behind: the record
    // that it names has another key now, or none. Keys that two writers may compute differently
    // (the case of letters beyond ASCII, times of day, arithmetic) count as equal.
    bool agrees_with(const IndexEntry& entry, const record::RecordView& record) const;
};

// Limits of a walk: leading key bytes of the first and last entry, in walking order.
struct Scope {
    std::optional<std::string> top;
    std::optional<std::string> bottom;
};

// Steps through an order in its own direction: in a descending order, "next" moves to smaller keys.
// All return false when there is no such entry within the scope.
class OrderWalk {
  public:
    OrderWalk(const Order& order, const Scope& scope) : order_(order), scope_(scope) {}

    bool first(IndexEntry& found) const;
    bool last(IndexEntry& found) const;
    bool next(const IndexEntry& from, IndexEntry& found, Trust trust = Trust::kNothing) const;
    bool previous(const IndexEntry& from, IndexEntry& found, Trust trust = Trust::kNothing) const;
    // Finds the first or the last entry that begins with `key`. If there is none, `found` is the
    // one that a soft seek goes to.
    enum class Match { kFound, kGreater, kNone };
    Match seek(const std::string& key, SeekEnd end, IndexEntry& found) const;

    // The number of entries within the scope; the number of one of them, counted from 1, or 0 for
    // any other; and the entry `count` steps from another one, which need not exist itself.
    std::size_t count() const;
    std::size_t number_of(const IndexEntry& entry) const;
    bool leap(const IndexEntry& from, std::int64_t count, IndexEntry& found) const;

  private:
    bool descending() const { return order_.description().descending; }
    bool towards_end(const std::string& key, RecordNumber from, IndexEntry& found) const;
    bool towards_start(const std::string& key, RecordNumber from, IndexEntry& found) const;
    bool before_top(const IndexEntry& entry) const;
    bool behind_bottom(const IndexEntry& entry) const;
    bool inside(const IndexEntry& entry) const {
        return !before_top(entry) && !behind_bottom(entry);
    }
    // Numbers of entries in the tag, whatever the order's direction; `to` is one past the last.
    struct Range {
        std::size_t from;
        std::size_t to;
    };
    Range range() const;

    const Order& order_;
    const Scope& scope_;
};

}  // namespace brenik::index
