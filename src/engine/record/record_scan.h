// Reads all records of a table in file order, many per read.

#pragma once

#include <algorithm>
#include <vector>

#include "engine/record/table_layout.h"

namespace brenik::record {

// `read(first, bytes)` fills the bytes with whole records from `first` on, and returns false if it
// cannot. `use(record)` receives each record and returns false to stop. True when every record was
// used.
template <typename Read, typename Use>
bool scan_records(const TableLayout& layout, RecordNumber count, Read read, Use use) {
    constexpr std::size_t kReadAheadBytes = 1 << 20;
    const std::size_t length = layout.record_length;
    const auto batch =
        static_cast<RecordNumber>(std::max<std::size_t>(kReadAheadBytes / length, 1));
    std::vector<Byte> buffer(length * std::min(batch, count));
    for (RecordNumber done = 0; done < count;) {
        const RecordNumber records = std::min(batch, count - done);
        const MutableBytes bytes = MutableBytes(buffer).first(records * length);
        if (!read(done + 1, bytes)) return false;
        for (RecordNumber i = 0; i < records; ++i) {
            if (!use(RecordView{bytes.subspan(i * length, length), done + i + 1})) return false;
        }
        done += records;
    }
    return true;
}

}  // namespace brenik::record
