// Divides the memory among the tags, and computes the keys.

#include "engine/index/index_keys.h"

#include <utility>

namespace brenik::index {
namespace {

std::size_t rows_in(std::size_t memory, const std::vector<const Order*>& orders) {
    std::size_t bytes_per_row = SortSpace::kBytesPerRow;
    for (const Order* order : orders) bytes_per_row += KeySorter::row_bytes(order->format.length);
    return memory / bytes_per_row;
}

}  // namespace

IndexKeys::IndexKeys(std::vector<const Order*> orders, const std::string& index_path,
                     std::size_t memory)
    : orders_(std::move(orders)), space_(run_file_path(index_path), rows_in(memory, orders_)) {
    sorters_.reserve(orders_.size());
    for (const Order* order : orders_) sorters_.emplace_back(order->format.length, space_);
}

void IndexKeys::add(const record::RecordView& record) {
    for (std::size_t i = 0; i < orders_.size(); ++i) {
        const Order& order = *orders_[i];
        if (!order.holds(record)) continue;
        build_key(order.key, order.format, record, sorters_[i].claim());
        sorters_[i].keep(record.number);
    }
}

}  // namespace brenik::index
