// Reads records directly from the table's file.

#include "engine/maintenance/record_reader.h"

#include <algorithm>

#include "engine/locks/short_lock.h"
#include "engine/record/dbf_file.h"
#include "engine/record/record_scan.h"
#include "engine/record/table_path.h"

namespace brenik::maintenance {

std::unique_ptr<RecordReader> RecordReader::open(const std::string& path) {
    platform::File file =
        platform::File::open(record::table_path(path), platform::OpenMode::kReadOnly);
    if (!file.is_open()) return nullptr;
    try {
        record::TableLayout layout = record::parse_layout(record::read_header(file), file.path());
        return std::unique_ptr<RecordReader>(new RecordReader(std::move(file), std::move(layout)));
    } catch (const EngineFault&) {
        return nullptr;
    }
}

RecordNumber RecordReader::count() const {
    const std::uint64_t size = file_.size();
    return std::min(record::read_record_count(file_).value_or(0),
                    record::records_in(layout_, size));
}

std::vector<Byte> RecordReader::read(RecordNumber record) const {
    std::vector<Byte> bytes(layout_.record_length);
    if (record == 0 || file_.read_at(record::record_offset(layout_, record), bytes) < bytes.size())
        return {};
    return bytes;
}

void RecordReader::for_each(const std::function<void(const record::RecordView&)>& use) const {
    const auto read = [this](RecordNumber first, MutableBytes into) {
        return file_.read_at(record::record_offset(layout_, first), into) == into.size();
    };
    record::scan_records(layout_, count(), read, [&](const record::RecordView& record) {
        use(record);
        return true;
    });
}

bool RecordReader::in_use(RecordNumber record) {
    return !locks::ShortLock::on_record(file_, layout_, record).held();
}

}  // namespace brenik::maintenance
