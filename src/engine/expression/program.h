// The compiled form of an expression, and the machine that runs it.
//
// Instructions are in postfix order and work on a stack of cells. Each has a routine, which takes
// its operands from the stack and stores the result in place of the first. A text that neither the
// record nor a literal holds is built in the arena. Each instruction that builds one has its own
// slot there, as wide as its widest result, so a run allocates nothing.

#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "engine/expression/expression.h"
#include "engine/record/code_page.h"
#include "engine/record/table_layout.h"

namespace brenik::expression {

// A value on the stack; the instruction that reads it knows its type. Logicals are 0 and 1, dates
// are Julian day numbers (0: empty), times of day are fractions of a day.
struct Cell {
    double number = 0;
    std::string_view text{};
    bool is_null = false;
};

struct Run;
struct Instruction;
// `operands` points to the first operand and receives the result.
using Routine = void (*)(const Instruction& step, const Run& run, Cell* operands);

struct Instruction {
    Routine routine = nullptr;
    std::uint8_t operands = 0;
    // If false, a NULL operand makes the result NULL without a call of the routine.
    bool sees_null = false;
    ResultType operand_type = ResultType::kLogical;  // of the first operand
    std::uint32_t index = 0;                         // of the field or the literal
    std::uint32_t slot = 0;                          // offset of a text result in the arena
};

// A bit of the null flags column; a mask of 0 means that the field has no such bit.
struct FlagBit {
    std::uint32_t offset = 0;
    std::uint8_t mask = 0;

    bool is_set(Bytes record) const { return mask != 0 && (record[offset] & mask) != 0; }
};

// A field's position in the record, resolved at compile time.
struct FieldPlace {
    std::uint32_t offset = 0;
    std::uint32_t width = 0;
    FlagBit null;
    FlagBit shorter;

    bool is_same(Bytes one, Bytes other) const {
        return std::memcmp(one.data() + offset, other.data() + offset, width) == 0 &&
               null.is_set(one) == null.is_set(other) &&
               shorter.is_set(one) == shorter.is_set(other);
    }
};

struct ExpressionProgram {
    std::vector<Instruction> steps;
    std::vector<FieldPlace> fields;
    std::vector<Cell> literals;
    record::CaseTable upper_case{};
    record::CaseTable lower_case{};
    std::vector<Cell> stack;
    std::vector<char> arena;
    std::size_t record_length = 0;
    ResultType type = ResultType::kLogical;
    std::size_t width = 0;  // of a text result
    bool nullable = false;
    bool depends_on_settings = false;
    std::optional<record::Field> lone_field;

    // The record must have `record_length` bytes. The result is valid until the next run.
    const Cell& run(const record::RecordView& record);
    // The deletion mark, the fields and their bits in the null flags column are all that a program
    // reads of a record.
    bool reads_same(Bytes one, Bytes other) const;
};

// What the routines of one run work on.
struct Run {
    const record::RecordView& record;
    ExpressionProgram& program;

    char* slot(const Instruction& step) const { return program.arena.data() + step.slot; }
};

// What is known about a value at compile time.
struct Operand {
    ResultType type = ResultType::kLogical;
    std::size_t width = 0;           // text only: its greatest width
    std::optional<double> constant;  // numbers that are the same for every record
};

}  // namespace brenik::expression
