// Buffered writing of whole tables.

#include "engine/make/table_writer.h"

#include <algorithm>

#include "engine/locks/lock_scheme.h"
#include "engine/make/create_table.h"
#include "engine/record/field_codec.h"
#include "engine/record/table_path.h"

namespace brenik::make {
namespace {

constexpr std::size_t kBufferSize = 1 << 20;
constexpr std::uint64_t kCountOffset = 4;
constexpr Byte kEndOfFile = 0x1A;
constexpr std::uint8_t kBinary = 0x04;  // field flag: no text, never recoded

}  // namespace

TableWriter::TableWriter(const std::string& path, const record::TableLayout& layout)
    : layout_(layout) {
    create_table(path, layout);
    const std::string file_path = record::table_path(path);
    file_ = platform::File::open(file_path, platform::OpenMode::kReadWrite,
                                 platform::Sharing::kExclusive);
    if (!file_.is_open()) {
        throw EngineFault(FaultCode::kBusy, "create", file_path + ": cannot be had for filling");
    }
    written_to_ = record::make_header(layout_).size();
    limit_ = locks::LockScheme(layout_).max_records();
    if (std::any_of(layout_.fields.begin(), layout_.fields.end(), record::is_memo)) {
        memo_ = local::MemoFile::open(file_path, layout_.version, {platform::Sharing::kExclusive});
    }
    blank_.resize(layout_.record_length);
    record::make_blank_record(blank_, layout_);
    buffer_.reserve(kBufferSize + layout_.record_length);
}

void TableWriter::append(const std::vector<Value>& values, bool deleted) {
    if (values.size() != layout_.fields.size()) {
        throw EngineFault(FaultCode::kUnsuitableValue, "append",
                          file_.path() + ": " + std::to_string(values.size()) + " values for " +
                              std::to_string(layout_.fields.size()) + " fields");
    }
    if (count_ >= limit_) {
        throw EngineFault(FaultCode::kLimit, "append", file_.path() + ": the table is full");
    }
    record_ = blank_;
    for (std::size_t i = 0; i < values.size(); ++i) put(layout_.fields[i], values[i]);
    if (deleted) record_[0] = '*';
    buffer_.insert(buffer_.end(), record_.begin(), record_.end());
    ++count_;
    if (buffer_.size() >= kBufferSize) write_buffer();
}

void TableWriter::put(const record::Field& field, const Value& value) {
    if (value.is_nil()) return;
    if (!record::is_memo(field)) return record::write_field(record_, layout_, field, value);
    if (!value.is_text()) {
        throw EngineFault(FaultCode::kUnsuitableValue, "append",
                          file_.path() + ": field " + field.name + ": the value is not text");
    }
    const bool binary = (field.flags & kBinary) != 0;
    record::set_memo_block(record_, field, memo_->write(value.text(), binary));
}

void TableWriter::close() {
    buffer_.push_back(kEndOfFile);
    write_buffer();
    std::vector<Byte> count(4);
    store_le32(count.data(), count_);
    file_.write_at(kCountOffset, count);
    file_.close();
    memo_.reset();
}

void TableWriter::write_buffer() {
    file_.write_at(written_to_, buffer_);
    written_to_ += buffer_.size();
    buffer_.clear();
}

}  // namespace brenik::make
