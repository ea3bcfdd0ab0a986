// Reads a table's records without its orders, for tools that must read tables with a damaged index.

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/record/field_codec.h"
#include "engine/record/table_layout.h"
#include "platform/file.h"

namespace brenik::maintenance {

class RecordReader {
  public:
    // Null when the table cannot be opened or its header cannot be interpreted.
    static std::unique_ptr<RecordReader> open(const std::string& path);

    const std::string& path() const { return file_.path(); }
    const record::TableLayout& layout() const { return layout_; }
    // The current count in the header, but not more than the file holds.
    RecordNumber count() const;
    // Empty when there is no such record.
    std::vector<Byte> read(RecordNumber record) const;
    // The value of any field but a memo.
    Value value(const record::RecordView& record, const record::Field& field) const {
        return record::read_field(record, layout_, field);
    }
    void for_each(const std::function<void(const record::RecordView&)>& use) const;
    // True while another program has the record locked.
    bool in_use(RecordNumber record);

  private:
    RecordReader(platform::File file, record::TableLayout layout)
        : file_(std::move(file)), layout_(std::move(layout)) {}

    platform::File file_;
    record::TableLayout layout_;
};

}  // namespace brenik::maintenance
