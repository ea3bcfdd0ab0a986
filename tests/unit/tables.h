// Tables that a test makes in a folder of its own, opened in one place.

#pragma once

#include <string>
#include <vector>

#include "engine/local/local_engine.h"
#include "engine/make/create_table.h"
#include "engine/orders.h"
#include "engine/record/dbf_file.h"
#include "temporary_folder.h"

namespace brenik::fake {

using RecordNumbers = std::vector<RecordNumber>;

struct Column {
    const char* name;
    char type;
    std::uint32_t width;
    std::uint32_t decimals = 0;
    std::uint8_t flags = 0;
};

// With offsets and null bits, as in a file's header.
inline record::TableLayout layout_of(const std::vector<Column>& columns, std::uint8_t version) {
    record::TableLayout layout;
    layout.version = version;
    for (const Column& column : columns) {
        record::Field& field = layout.fields.emplace_back();
        field.name = column.name;
        field.type = column.type;
        field.width = column.width;
        field.decimals = column.decimals;
        field.flags = column.flags;
    }
    record::make_header(layout, {1998, 1, 1});
    return layout;
}

// Null when the table is refused; a damaged one is an EngineFault.
inline std::unique_ptr<brenik::Table> open(brenik::Engine& engine, const std::string& path,
                                           TableSharing sharing = TableSharing::kShared,
                                           int controlling = 1) {
    OpenAnswer answer = engine.open(path, sharing, controlling);
    const auto* refusal = std::get_if<Refusal>(&answer);
    if (!refusal) return std::move(std::get<std::unique_ptr<brenik::Table>>(answer));
    if (refusal->reason != RefusalReason::kDamaged) return nullptr;
    throw EngineFault(refusal->code, "open", refusal->text);
}

// Makes a record current; false when its lock is refused.
[[nodiscard]] inline bool take(brenik::Table& table, RecordNumber record) {
    table.go_to(record);
    return table.lock_record(record);
}

// Fills the fields of the current record, from the first.
inline void put_and_unlock(brenik::Table& table, const Array& values) {
    for (std::size_t i = 0; i < values.size(); ++i) table.field_put(i + 1, values[i]);
    table.unlock_all();
}

// Appends a record and leaves it unlocked; false when it may not be appended.
inline bool append(brenik::Table& table, const Array& values) {
    const bool appended = table.append_blank(false);
    if (appended) put_and_unlock(table, values);
    return appended;
}

// In the controlling order.
inline RecordNumbers walk(brenik::Table& table) {
    RecordNumbers records;
    for (table.go_top(); !table.end_of_file(); table.skip(1)) {
        records.push_back(table.record_number());
    }
    return records;
}

inline bool find(brenik::Table& table, const Value& key) {
    return table.seek(key, SeekMode::kHard, SeekEnd::kFirst);
}

class TableFolder {
  public:
    std::string path(const std::string& file) const { return (folder_ / file).string(); }
    std::string data_path() const { return folder_.string() + "\\"; }

    // The index is built from the records.
    void make(const std::string& name, const std::vector<Column>& columns,
              const std::vector<make::TagDefinition>& tags = {},
              const std::vector<Array>& rows = {}, std::uint8_t version = 0x03) const {
        const std::string file = path(name + ".DBF");
        make::create_table(file, layout_of(columns, version));
        if (!rows.empty()) {
            local::LocalEngine engine;
            const auto table = open(engine, file, TableSharing::kExclusive);
            for (const Array& row : rows) append(*table, row);
        }
        if (!tags.empty()) make::create_index(file, tags);
    }

  private:
    TemporaryFolder folder_;
};

}  // namespace brenik::fake
