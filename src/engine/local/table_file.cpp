// Record input and output, appends and locks.

#include "engine/local/table_file.h"

#include <algorithm>
#include <array>

#include "engine/local/field_codec.h"
#include "platform/clock.h"

namespace brenik::local {
namespace {

constexpr std::uint64_t kDateOffset = 1;  // year, month, day, then the count
constexpr std::uint64_t kCountOffset = 4;
constexpr std::uint64_t kFlagsOffset = 28;
constexpr Byte kHasStructuralIndex = 0x01;
constexpr std::size_t kLargestHeader = 65535;
constexpr std::size_t kAutoincrementNext = 19;  // within a field descriptor
constexpr std::size_t kAutoincrementStep = 23;
constexpr Byte kEndOfFile = 0x1A;
// Another append holds its lock for less than a millisecond; whoever holds it longer holds the
// whole table, and the caller's own retries are the place to wait for that.
constexpr int kAppendLockTimeout_ms = 200;

}  // namespace

std::unique_ptr<TableFile> TableFile::open(const std::string& path, platform::Sharing sharing) {
    platform::File file = platform::File::open(path, platform::OpenMode::kReadWrite, sharing);
    if (!file.is_open()) return nullptr;
    const bool exclusive = sharing == platform::Sharing::kExclusive;
    return std::unique_ptr<TableFile>(new TableFile(std::move(file), exclusive));
}

TableLayout TableFile::read_layout() const {
    std::vector<Byte> header(kLargestHeader);
    header.resize(file_.read_at(0, header));
    return parse_layout(header, file_.path());
}

std::uint64_t TableFile::offset_of(RecordNumber record) const {
    return layout_.header_length + (record - std::uint64_t{1}) * layout_.record_length;
}

RecordNumber TableFile::counted_in_header() const {
    std::array<Byte, 4> count;
    if (file_.read_at(kCountOffset, count) != count.size()) {
        throw EngineFault(FaultCode::kDamagedFile, "record count", path() + ": the header is gone");
    }
    return load_le32(count.data());
}

RecordNumber TableFile::count() {
    const RecordNumber counted = counted_in_header();
    if (counted <= known_count_) return known_count_ = counted;
    const std::uint64_t size = file_.size();
    const std::uint64_t held =
        size < layout_.header_length ? 0 : (size - layout_.header_length) / layout_.record_length;
    return known_count_ = static_cast<RecordNumber>(std::min<std::uint64_t>(counted, held));
}

void TableFile::read(RecordNumber record, MutableBytes into) const {
    if (file_.read_at(offset_of(record), into) != into.size()) {
        throw EngineFault(FaultCode::kDamagedFile, "read",
                          path() + ": record " + std::to_string(record) + " is cut short");
    }
}

void TableFile::write(RecordNumber record, Bytes bytes) {
    file_.write_at(offset_of(record), bytes);
}

RecordNumber TableFile::append(MutableBytes bytes) {
    if (exclusive_ || table_locked_) return append_locked(bytes);
    const LockRange range = locks_.append();
    if (!file_.lock_within(range.offset, range.length, platform::LockKind::kExclusive,
                           kAppendLockTimeout_ms)) {
        return 0;
    }
    struct Unlock {
        platform::File& file;
        LockRange range;
        ~Unlock() { file.unlock(range.offset, range.length); }
    } unlock{file_, range};
    return append_locked(bytes);
}

// Under the append lock the header's count is exact.
RecordNumber TableFile::append_locked(MutableBytes bytes) {
    const RecordNumber counted = counted_in_header();
    if (counted != count()) {
        throw EngineFault(FaultCode::kDamagedFile, "append",
                          path() + ": cut short: the header counts " + std::to_string(counted) +
                              " records, the file holds " + std::to_string(known_count_) +
                              "; repair the table before adding to it");
    }
    if (counted >= locks_.max_records()) {
        throw EngineFault(FaultCode::kLimit, "append",
                          path() + ": the table has reached 1 GB, the most that can be shared");
    }
    const RecordNumber record = counted + 1;
    if (!lock(record)) return 0;
    assign_autoincrement(bytes);
    std::vector<Byte> record_and_end(bytes.begin(), bytes.end());
    record_and_end.push_back(kEndOfFile);
    file_.write_at(offset_of(record), record_and_end);

    const platform::LocalDay today = platform::system_clock().today();
    std::array<Byte, 7> date_and_count = {static_cast<Byte>(today.year % 100),
                                          static_cast<Byte>(today.month),
                                          static_cast<Byte>(today.day)};
    store_le32(date_and_count.data() + 3, record);
    file_.write_at(kDateOffset, date_and_count);
    known_count_ = record;
    return record;
}

void TableFile::mark_as_indexed() {
    const Byte marked = layout_.flags | kHasStructuralIndex;
    file_.write_at(kFlagsOffset, {&marked, 1});
}

void TableFile::assign_autoincrement(MutableBytes bytes) {
    for (std::size_t i = 0; i < layout_.fields.size(); ++i) {
        const Field& field = layout_.fields[i];
        if (!is_autoincrement(field)) continue;
        const std::uint64_t descriptor = kTableHeaderSize + i * kFieldDescriptorSize;
        std::array<Byte, 5> next_and_step;
        if (file_.read_at(descriptor + kAutoincrementNext, next_and_step) != 5) return;
        const std::uint32_t next = load_le32(next_and_step.data());
        store_le32(bytes.data() + field.offset, next);
        const std::uint32_t step = next_and_step[kAutoincrementStep - kAutoincrementNext];
        store_le32(next_and_step.data(), next + step);
        file_.write_at(descriptor + kAutoincrementNext, Bytes(next_and_step).first(4));
    }
}

bool TableFile::lock(RecordNumber record) {
    if (owns(record)) return true;
    const LockRange range = locks_.record(record);
    if (!file_.try_lock(range.offset, range.length)) return false;
    locked_records_.insert(record);
    return true;
}

// Own record locks lie inside the table's range and would stand in its way, so they are given up
// first; should the table be refused, those that can be had again are taken again.
bool TableFile::lock_all() {
    if (exclusive_ || table_locked_) return true;
    const std::set<RecordNumber> held = locked_records_;
    unlock_all();
    table_locked_ = file_.try_lock(LockScheme::table().offset, LockScheme::table().length);
    if (!table_locked_) {
        for (const RecordNumber record : held) lock(record);
    }
    return table_locked_;
}

void TableFile::unlock(RecordNumber record) {
    if (locked_records_.erase(record) == 0) return;
    const LockRange range = locks_.record(record);
    file_.unlock(range.offset, range.length);
}

void TableFile::unlock_all() {
    while (!locked_records_.empty()) unlock(*locked_records_.begin());
    if (!table_locked_) return;
    file_.unlock(LockScheme::table().offset, LockScheme::table().length);
    table_locked_ = false;
}

bool TableFile::owns(RecordNumber record) const {
    return exclusive_ || table_locked_ || locked_records_.contains(record);
}

}  // namespace brenik::local
