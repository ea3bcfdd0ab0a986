// Fills a new table with many records at once, for tools that make whole tables.
//
// The records go straight to the file through one large buffer, without locks, count updates or
// keys; create_index builds the indexes afterwards. The writer has the table in exclusive use until
// it is closed.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/local/memo_file.h"
#include "engine/record/table_layout.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "util/value.h"

namespace brenik::make {

class TableWriter {
  public:
    // Makes the table as create_table does. Throws EngineFault.
    TableWriter(const std::string& path, const record::TableLayout& layout,
                platform::LocalDay updated = platform::system_clock().today());
    // Without close() the records are lost, because the header does not count them.
    ~TableWriter() = default;
    TableWriter(const TableWriter&) = delete;
    TableWriter& operator=(const TableWriter&) = delete;

    // Adds a record with one value per field, in field order; nil leaves the field blank. Throws
    // EngineFault for a value that its field cannot hold, and when the table is full.
    void append(const std::vector<Value>& values, bool deleted = false);
    // Writes the buffered records, then the record count. No append may follow.
    void close();

    RecordNumber record_count() const { return count_; }

  private:
    void put(const record::Field& field, const Value& value);
    void write_buffer();

    platform::File file_;
    record::TableLayout layout_;
    std::unique_ptr<local::MemoFile> memo_;  // null when no field needs it
    std::vector<Byte> blank_;
    std::vector<Byte> record_;
    std::vector<Byte> buffer_;
    std::uint64_t written_to_ = 0;  // file offset after the last written record
    RecordNumber count_ = 0;
    RecordNumber limit_ = 0;
};

}  // namespace brenik::make
