// Opens index files and updates their tags.

#include "engine/local/table_orders.h"

#include <algorithm>
#include <utility>

#include "engine/index/index_keys.h"
#include "engine/record/table_path.h"
#include "util/runtime.h"

namespace brenik::local {
namespace {

// Everything about a tag that could make an index wrong is checked here, when the tag is opened.
std::unique_ptr<index::Order> make_order(index::CdxTree& tag, const record::TableLayout& layout,
                                         const std::string& path) {
    const index::TagDescription& description = tag.description();
    const auto refuse = [&](const std::string& reason) {
        return EngineFault(FaultCode::kUnsupported, "open",
                           path + ": tag " + description.name + ": " + reason);
    };
    if (!description.unsupported.empty()) throw refuse(description.unsupported);
    try {
        expression::Expression key = expression::Expression::compile(description.key, layout);
        std::optional<expression::Expression> condition;
        if (!description.condition.empty()) {
            condition = expression::Expression::compile(description.condition, layout);
            if (condition->type() != expression::ResultType::kLogical) {
                throw refuse("the condition " + description.condition + " is not logical");
            }
        }
        const index::KeyFormat format =
            index::existing_key_format(key, description.key_length, description.nullable);
        tag.set_pad(format.pad());
        return std::make_unique<index::Order>(
            index::Order{&tag, std::move(key), std::move(condition), format});
    } catch (const expression::ExpressionError& error) {
        throw refuse(error.what());
    }
}

}  // namespace

void TableOrders::open_structural() {
    open_index(record::sibling_path(table_path_, "CDX"), true);
    attach_orders_of(indexes_.back());
}

void TableOrders::end_opening() noexcept {
    for (OpenIndex& one : indexes_) one.file->end_opening();
}

void TableOrders::open_index(const std::string& path, bool structural) {
    OpenIndex one;
    one.file = index::CdxFile::open(path, use_of(structural), index::CdxFile::Opened::kLocked);
    one.file->set_cache_bytes(cache_bytes_);
    one.structural = structural;
    for (const auto& tag : one.file->tags()) {
        one.orders.push_back(make_order(*tag, layout_, one.file->path()));
    }
    indexes_.push_back(std::move(one));
}

void TableOrders::reopen() {
    for (OpenIndex& one : indexes_) reopen(one);
}

// The old file is closed first, because the system may have restored its locks by itself.
void TableOrders::reopen(OpenIndex& one) {
    const std::string path = one.file->path();
    one.file->close();
    std::unique_ptr<index::CdxFile> file = index::CdxFile::open(path, use_of(one.structural));
    const auto same = [](const std::unique_ptr<index::Order>& order,
                         const std::unique_ptr<index::CdxTree>& tag) {
        const index::TagDescription& was = order->description();
        const index::TagDescription& is = tag->description();
        return was.name == is.name && was.key == is.key && was.condition == is.condition &&
               was.key_length == is.key_length && was.descending == is.descending;
    };
    if (!std::ranges::equal(one.orders, file->tags(), same)) {
        throw EngineFault(FaultCode::kInputOutput, "open again", path + ": now has other tags");
    }
    for (std::size_t i = 0; i < one.orders.size(); ++i) {
        one.orders[i]->tag = file->tags()[i].get();
        one.orders[i]->tag->set_pad(one.orders[i]->format.pad());
    }
    one.file = std::move(file);
    one.file->set_cache_bytes(cache_bytes_);
}

bool TableOrders::doubtful() const {
    return std::ranges::any_of(indexes_, [](const OpenIndex& one) { return one.file->doubtful(); });
}

// While the records are read, the index lock prevents additions of records and changes of keys.
void TableOrders::rebuild(const std::function<void(const RecordUse&)>& for_each) {
    for (OpenIndex& one : indexes_) {
        index::CdxFile::Change change(*one.file);
        std::vector<const index::Order*> orders;
        orders.reserve(one.orders.size());
        for (const auto& order : one.orders) orders.push_back(order.get());
        index::IndexKeys keys(std::move(orders), one.file->path(), index::kAnyMemory);
        for_each([&](const record::RecordView& record) {
            keys.add(record);
            return true;
        });
        change.rebuild([&](std::size_t number) { return keys.of(number).sorted(); });
        change.publish();
    }
}

locks::FileUse TableOrders::use_of(bool structural) const {
    return structural ? use_.covered() : use_;
}

void TableOrders::attach_orders_of(const OpenIndex& one) {
    for (const auto& order : one.orders) attached_.push_back(order.get());
}

const TableOrders::OpenIndex* TableOrders::find_index(const std::string& path) const {
    for (const OpenIndex& one : indexes_) {
        if (platform::is_same_path(one.file->path(), path)) return &one;
    }
    return nullptr;
}

std::string TableOrders::full_index_path(const std::string& name) const {
    std::string path = record::index_path(name);
    if (path.find_first_of("\\/:") == std::string::npos) {
        path = table_path_.substr(0, table_path_.find_last_of("\\/:") + 1) + path;
    }
    return platform::system_path(path);
}

void TableOrders::attach(const std::string& name) {
    const std::string path = full_index_path(name);
    if (find_index(path) == nullptr) {
        open_index(path, false);
        attach_orders_of(indexes_.back());
    } else if (const OpenIndex& known = *find_index(path); std::ranges::none_of(
                   attached_, [&](const index::Order* order) { return known.holds(order); })) {
        attach_orders_of(known);
    }
}

void TableOrders::detach_all() {
    attached_.clear();
    std::erase_if(indexes_, [](const OpenIndex& one) { return !one.structural; });
}

std::vector<std::size_t> TableOrders::numbers_of(const std::string& index_file) const {
    const OpenIndex* one = find_index(full_index_path(index_file));
    std::vector<std::size_t> numbers;
    for (std::size_t i = 0; one != nullptr && i < attached_.size(); ++i) {
        if (one->holds(attached_[i])) numbers.push_back(i + 1);
    }
    return numbers;
}

std::vector<TableOrders::KeyChange> TableOrders::key_changes(
    const OpenIndex& one, const std::optional<record::RecordView>& before,
    const std::optional<record::RecordView>& after, KeysBefore keys_before) const {
    std::vector<KeyChange> changes;
    const bool complete = keys_before == KeysBefore::kAll;
    for (const auto& order : one.orders) {
        if (complete && before && after && order->keeps_key(*before, *after)) continue;
        KeyChange change{order.get(), {}, {}};
        if (before && order->holds(*before)) change.removed = order->key_of(*before);
        if (after && order->holds(*after)) change.inserted = order->key_of(*after);
        if (change.removed == change.inserted) {
            if (!change.inserted || complete) continue;
            change.removed.reset();
        }
        changes.push_back(std::move(change));
    }
    return changes;
}

void TableOrders::require_room() const {
    for (const OpenIndex& one : indexes_) one.file->require_room();
}

void TableOrders::sync() {
    for (OpenIndex& one : indexes_) one.file->sync();
}

KeyUpdate::KeyUpdate(TableOrders& orders, const std::optional<record::RecordView>& before,
                     const std::optional<record::RecordView>& after, KeysBefore keys_before)
    : record_(after ? after->number : before->number) {
    for (const TableOrders::OpenIndex& one : orders.indexes_) {
        std::vector<TableOrders::KeyChange> keys =
            orders.key_changes(one, before, after, keys_before);
        if (!keys.empty()) files_.push_back({one.file.get(), std::move(keys)});
    }
}

bool KeyUpdate::lock_all(std::optional<LockTry> attempt, bool durable) {
    return std::all_of(files_.begin(), files_.end(), [&](FileChange& one) {
        one.change = std::make_unique<index::CdxFile::Change>(*one.file, attempt, durable);
        return one.change->begun();
    });
}

bool KeyUpdate::is_taken(const index::Order& order) {
    for (FileChange& one : files_) {
        for (const TableOrders::KeyChange& key : one.keys) {
            if (key.order != &order || !key.inserted) continue;
            return one.change->contains(*key.order->tag, as_bytes(*key.inserted));
        }
    }
    return false;
}

// Entries that a kill or a power failure left behind do not hold the key.
bool KeyUpdate::is_held(const TableOrders::KeyChange& key, const RecordHas& has) const {
    index::CdxTree& tag = *key.order->tag;
    index::IndexEntry entry;
    for (bool any = tag.at_or_after(as_bytes(*key.inserted), 0, entry);
         any && entry.key == *key.inserted; any = tag.after(entry, entry)) {
        if (entry.record != record_ && has(*key.order, entry)) return true;
    }
    return false;
}

void KeyUpdate::insert(const RecordHas& has) {
    for (FileChange& one : files_) {
        for (const TableOrders::KeyChange& key : one.keys) {
            if (!key.inserted) continue;
            const index::TagDescription& description = key.order->description();
            const bool held = (description.unique || description.candidate) && is_held(key, has);
            if (held && description.candidate) {
                throw EngineFault(FaultCode::kDuplicateKey, "write",
                                  one.file->path() + ": tag " + description.name +
                                      ": another record has this key already");
            }
            // A unique tag keeps the first record of a key.
            if (!held) one.change->insert(*key.order->tag, as_bytes(*key.inserted), record_);
        }
    }
}

void KeyUpdate::remove() {
    for (FileChange& one : files_) {
        for (const TableOrders::KeyChange& key : one.keys) {
            if (key.removed) one.change->remove(*key.order->tag, as_bytes(*key.removed), record_);
        }
    }
}

void KeyUpdate::write_new_pages() {
    for (FileChange& one : files_) one.change->write_new_pages();
}

void KeyUpdate::publish() {
    for (FileChange& one : files_) one.change->publish();
}

void KeyUpdate::take_back() noexcept {
    try {
        for (FileChange& one : files_) {
            for (const TableOrders::KeyChange& key : one.keys) {
                if (!key.inserted) continue;
                one.change->remove(*key.order->tag, as_bytes(*key.inserted), record_);
            }
            one.change->publish();
        }
    } catch (const std::exception&) {
        // The keys stay behind: entries of a record that does not exist, which every search passes
        // over.
    }
}

}  // namespace brenik::local
