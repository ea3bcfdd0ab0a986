// Tables that a test makes in a folder of its own.

#pragma once

#include <string>
#include <vector>

#include "engine/local/local_engine.h"
#include "engine/make/create_table.h"
#include "temporary_folder.h"

namespace brenik::fake {

struct Column {
    const char* name;
    char type;
    std::uint32_t width;
    std::uint32_t decimals = 0;
    std::uint8_t flags = 0;
};

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

class TableFolder {
  public:
    std::string path(const std::string& file) const { return (folder_ / file).string(); }

    // The index is built from the records.
    void make(const std::string& name, const std::vector<Column>& columns,
              const std::vector<make::TagDefinition>& tags = {},
              const std::vector<Array>& rows = {}, std::uint8_t version = 0x03) const {
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
        const std::string file = path(name + ".DBF");
        make::create_table(file, layout);
        if (!rows.empty()) {
            local::LocalEngine engine;
            const auto table = engine.open(file, TableSharing::kExclusive);
            for (const Array& row : rows) append(*table, row);
        }
        if (!tags.empty()) make::create_index(file, tags);
    }

  protected:
    TemporaryFolder folder_;
};

}  // namespace brenik::fake
