// Reading records straight from the table's file.

#include "engine/maintenance/record_reader.h"

#include <array>

#include "engine/locks/short_lock.h"
#include "engine/record/record_scan.h"
#include "engine/record/table_path.h"

namespace brenik::maintenance {

std::unique_ptr<RecordReader> RecordReader::open(const std::string& path) {
    constexpr std::size_t kLargestHeader = 65535;
    platform::File file =
        platform::File::open(record::table_path(path), platform::OpenMode::kReadOnly);
    if (!file.is_open()) return nullptr;
    std::vector<Byte> header(kLargestHeader);
    header.resize(file.read_at(0, header));
    try {
        record::TableLayout layout = record::parse_layout(header, file.path());
        return std::unique_ptr<RecordReader>(new RecordReader(std::move(file), std::move(layout)));
    } catch (const EngineFault&) {
        return nullptr;
    }
}

std::uint64_t RecordReader::offset_of(RecordNumber record) const {
    return layout_.header_length + (record - std::uint64_t{1}) * layout_.record_length;
}

RecordNumber RecordReader::count() const {
    std::array<Byte, 4> counted{};
    const std::uint64_t size = file_.size();
    if (file_.read_at(4, counted) < counted.size() || size < layout_.header_length) return 0;
    const std::uint64_t held = (size - layout_.header_length) / layout_.record_length;
    return static_cast<RecordNumber>(std::min<std::uint64_t>(load_le32(counted.data()), held));
}

std::vector<Byte> RecordReader::read(RecordNumber record) const {
    std::vector<Byte> bytes(layout_.record_length);
    if (record == 0 || file_.read_at(offset_of(record), bytes) < bytes.size()) return {};
    return bytes;
}

void RecordReader::for_each(const std::function<void(const record::RecordView&)>& use) const {
    const auto read = [this](RecordNumber first, MutableBytes into) {
        return file_.read_at(offset_of(first), into) == into.size();
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
