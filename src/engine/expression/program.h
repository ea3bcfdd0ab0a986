// The small program that an expression becomes, and the machine that runs it.
//
// Instructions are in postfix order and work on a stack of cells. Each carries the routine that
// does its work, which takes its operands from the stack and leaves the result in place of the
// first. Texts that no record or literal holds ready are made in the arena, where every instruction
// that makes one has its own slot, as wide as its result can ever be; so nothing is allocated while
// a program runs.

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "engine/expression/expression.h"
#include "engine/record/code_page.h"
#include "engine/record/table_layout.h"

namespace brenik::expression {

// A value on the stack; the instruction that reads it knows its type. Logicals are 0 and 1, dates
// Julian day numbers (0 empty), times of a day their fraction.
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
    // Without this, a NULL operand makes the result NULL and the routine is not called.
    bool sees_null = false;
    ResultType operand_type = ResultType::kLogical;  // of the first operand
    std::uint32_t index = 0;                         // of the field or the literal
    std::uint32_t slot = 0;                          // where in the arena a text result is made
};

// A bit of the null flags column; the mask is 0 where a field has no such bit.
struct FlagBit {
    std::uint32_t offset = 0;
    std::uint8_t mask = 0;

    bool is_set(Bytes record) const { return mask != 0 && (record[offset] & mask) != 0; }
};

// Where a field's bytes are, settled when the expression is compiled.
struct FieldPlace {
    std::uint32_t offset = 0;
    std::uint32_t width = 0;
    FlagBit null;
    FlagBit shorter;
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
};

// What the routines of one run may look at.
struct Run {
    const record::RecordView& record;
    ExpressionProgram& program;

    char* slot(const Instruction& step) const { return program.arena.data() + step.slot; }
};

// What the compiler knows about a value before any record is seen.
struct Operand {
    ResultType type = ResultType::kLogical;
    std::size_t width = 0;           // text only: the longest it can be
    std::optional<double> constant;  // numbers that are the same for every record
};

}  // namespace brenik::expression
