// What the bytes of a field are before they are read as a value.
//
// read_field() makes the best of every field: 0 of asterisks, the empty date of 31 February. Those
// who show or check a table want to know that the value is not what was stored.

#pragma once

#include "engine/record/table_layout.h"

namespace brenik::record {

enum class StoredValue {
    kSound,
    kNull,
    kBlank,
    kOverflow,           // asterisks: the number was too wide for the field
    kUnreadableNumber,   // neither blank nor a number from end to end
    kImpossibleDate,     // no day of the calendar, or no time of a day
    kUnreadableLogical,  // no letter for true or false
};

StoredValue stored_value(const RecordView& record, const TableLayout& layout, const Field& field);

}  // namespace brenik::record
