// Converts field bytes to values and back, for every field type but the text of memos.
//
// Encodings in a record: text blank-padded; numbers as right-aligned ASCII; dates as YYYYMMDD;
// logicals as one letter; integers, doubles, currency and date-times as little-endian binary; memos
// as the number of their first block. memo_format.h encodes the memos themselves.

#pragma once

#include <cstdint>
#include <string>

#include "engine/record/table_layout.h"
#include "util/fault.h"
#include "util/value.h"

namespace brenik::record {

inline constexpr std::uint32_t kMillisecondsPerDay = 86'400'000;
inline constexpr int kCurrencyDecimals = 4;

// The value of any field but a memo; nil for NULL.
Value read_field(const RecordView& record, const TableLayout& layout, const Field& field);
// True when read_field() would return exactly this value.
bool holds_value(const RecordView& record, const TableLayout& layout, const Field& field,
                 const Value& value);
// True when the field says this value already, be it in another form than write_field() would give
// it, so that nothing is to be written.
bool says_already(const RecordView& record, const TableLayout& layout, const Field& field,
                  const Value& value);
// Stores a value in any field but a memo. nil makes a nullable field NULL and empties any other. A
// value of an unsuitable kind, or outside a binary field's range, is EngineFault kUnsuitableValue.
void write_field(MutableBytes record, const TableLayout& layout, const Field& field,
                 const Value& value);

// The text form of a date-time, from its day number and milliseconds; blank when both are 0.
std::string date_time_text(std::int32_t day, std::uint32_t ms);

// Makes a record that is not deleted and whose fields are all empty.
void make_blank_record(MutableBytes record, const TableLayout& layout);

// Sets or clears a field's NULL mark; does nothing for a field that cannot be NULL.
void set_null(MutableBytes record, const TableLayout& layout, const Field& field, bool on);

}  // namespace brenik::record
