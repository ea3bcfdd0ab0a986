// Writes whole tables through a buffer.

#include "engine/make/table_writer.h"

#include "engine/locks/lock_scheme.h"
#include "engine/make/create_table.h"
#include "engine/record/dbf_file.h"
#include "engine/record/field_codec.h"
#include "engine/record/memo_format.h"
#include "engine/record/table_path.h"
#include "util/runtime.h"

namespace brenik::make {
namespace {

constexpr std::size_t kBufferSize = 1 << 20;

}  // namespace

TableWriter::TableWriter(const std::string& path, const record::TableLayout& layout,
                         platform::LocalDay updated)
    : layout_(layout) {
    create_table(path, layout, updated);
    const std::string file_path = record::table_path(path);
    file_ = platform::File::open(file_path, platform::OpenMode::kReadWrite,
                                 platform::Sharing::kExclusive);
    if (!file_.is_open()) {
        throw EngineFault(FaultCode::kBusy, "create", file_path + ": cannot be opened for filling");
    }
    layout_ = record::parse_layout(record::read_header(file_), file_path);
    written_to_ = layout_.header_length;
    limit_ = locks::LockScheme(layout_).max_records();
    if (layout_.has_memos()) {
        memo_ = local::MemoFile::open(file_path, layout_.version, {platform::Sharing::kExclusive});
    }
    blank_.resize(layout_.record_length);
    record::make_blank_record(blank_, layout_);
    buffer_.reserve(kBufferSize + layout_.record_length);
}

void TableWriter::append(const std::vector<Value>& values, bool deleted) {
    if (values.size() != layout_.fields.size()) {
        throw EngineFault(FaultCode::kUnsuitableValue, "append",
                          file_.path() + ": " + counted(values.size(), "value") + " for " +
                              counted(layout_.fields.size(), "field"));
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
    if (!field.is_memo()) return record::write_field(record_, layout_, field, value);
    if (!value.is_text()) {
        throw EngineFault(FaultCode::kUnsuitableValue, "append",
                          file_.path() + ": field " + field.name + ": the value is not text");
    }
    record::set_memo_block(record_, field, memo_->write(value.text(), field.is_binary()));
}

void TableWriter::close() {
    buffer_.push_back(record::kEndMark);
    write_buffer();
    file_.write_at(record::kCountOffset, record::count_bytes(count_));
    file_.close();
    memo_.reset();
}

void TableWriter::write_buffer() {
    file_.write_at(written_to_, buffer_);
    written_to_ += buffer_.size();
    buffer_.clear();
}

}  // namespace brenik::make
