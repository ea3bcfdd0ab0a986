// Field bytes to values and back, for every field type but the text of memos.
//
// What a field holds in a record: text blank-padded; numbers as right-aligned ASCII; dates as
// YYYYMMDD; logicals as one letter; integers, doubles, currency and date-times as little-endian
// binary; memos as the number of their first block. Memos themselves are memo_format.h's.

#pragma once

#include <cstdint>
#include <string>

#include "engine/record/table_layout.h"
#include "util/fault.h"
#include "util/value.h"

namespace brenik::record {

// The value of any field but a memo; nil for NULL.
Value read_field(const RecordView& record, const TableLayout& layout, const Field& field);
// Stores a value in any field but a memo; nil makes a nullable field NULL and empties any other. A
// value of an unsuitable kind, or beyond a binary field's range, is EngineFault kUnsuitableValue.
void write_field(MutableBytes record, const TableLayout& layout, const Field& field,
                 const Value& value);

// Day number and milliseconds as the text that date-times are given in, blank when both are 0.
std::string date_time_text(std::int32_t day, std::uint32_t ms);

// A live record in which every field is empty.
void make_blank_record(MutableBytes record, const TableLayout& layout);

// The NULL mark of a field; nothing happens for a field that cannot be NULL.
void set_null(MutableBytes record, const TableLayout& layout, const Field& field, bool on);

}  // namespace brenik::record
