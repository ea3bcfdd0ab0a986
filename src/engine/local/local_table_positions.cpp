// A table's keys by number: counts, the number of the current key, and far moves.
//
// While no records are hidden, an order uses its page counts, and physical order uses record
// numbers. A filter, or hidden deleted records, requires a read of each record; that uses a
// separate buffer, so that the current record stays as it is.

#include "engine/local/local_table.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace brenik::local {
namespace {

const index::Scope kNoScope;
constexpr RecordNumber kNoRecord = std::numeric_limits<RecordNumber>::max();

}  // namespace

void LocalTable::refuse_order(std::size_t order, const char* operation) const {
    throw EngineFault(FaultCode::kUnknownName, operation,
                      (file_ ? file_->path() + ": " : std::string()) + "no order number " +
                          std::to_string(order));
}

// One move over many records; false when it would pass the first or the last one.
bool LocalTable::leap(std::int64_t count) {
    const bool forward = count > 0;
    if (controlling_ == 0) {
        forget_moment();
        const RecordNumber last = record_count();
        const std::int64_t reach = forward ? std::int64_t{last} - record_ : record_ - 1;
        if ((forward ? count : -count) > reach) return false;
        place(static_cast<RecordNumber>(record_ + count));
        return true;
    }
    const bool any = walk().leap(current_entry(), count, found_);
    return place_near(any, found_, forward);
}

// True when navigation shows the record.
bool LocalTable::among(RecordNumber record, MutableBytes buffer) {
    if (!file_->holds(record)) return false;
    file_->read(record, buffer);
    return shows({buffer, record});
}

// Counts visible keys, up to and including that of `last`, in a table that hides some.
std::size_t LocalTable::count_visible(std::size_t order, RecordNumber last) {
    std::vector<Byte> buffer(layout().record_length);
    std::size_t shown = 0;
    if (order == 0) {
        const RecordNumber end = std::min(record_count(), last);
        enter_moment();
        for (RecordNumber record = 1; record <= end; ++record) {
            file_->read_in_scan(record, buffer);
            shown += shows({buffer, record});
        }
        return shown;
    }
    const index::OrderWalk keys = walk(order);
    index::IndexEntry entry, from;
    for (bool any = keys.first(entry); any; any = keys.next(from, entry)) {
        shown += among(entry.record, buffer);
        if (entry.record == last) break;
        std::swap(from, entry);
    }
    return shown;
}

std::size_t LocalTable::key_count(std::size_t order, KeySet keys) {
    if (order > order_count()) refuse_order(order, "key count");
    if (!file_) return 0;
    flush();
    return reaching([&] { return count_keys(order, keys); });
}

std::size_t LocalTable::count_keys(std::size_t order, KeySet keys) {
    if (keys == KeySet::kVisible && hides_records()) return count_visible(order, kNoRecord);
    if (order == 0) return record_count();
    return keys == KeySet::kVisible ? walk(order).count()
                                    : index::OrderWalk(orders_->attached(order), kNoScope).count();
}

std::size_t LocalTable::key_number(std::size_t order, KeySet keys) {
    if (order > order_count()) refuse_order(order, "key number");
    if (record_ == 0) return 0;
    flush();
    return reaching([&] { return number_of_key(order, keys); });
}

std::size_t LocalTable::number_of_key(std::size_t order, KeySet keys) {
    const bool judged = keys == KeySet::kVisible && hides_records();
    if (judged && !visible()) return 0;
    if (order == 0) return judged ? count_visible(0, record_) : record_;
    const index::Order& wanted = orders_->attached(order);
    const index::IndexEntry entry =
        order == controlling_ ? current_entry() : index::IndexEntry{wanted.key_of(view()), record_};
    const std::size_t number = keys == KeySet::kVisible
                                   ? walk(order).number_of(entry)
                                   : index::OrderWalk(wanted, kNoScope).number_of(entry);
    return judged && number != 0 ? count_visible(order, record_) : number;
}

}  // namespace brenik::local
