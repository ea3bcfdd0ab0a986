// Any text as an expression, evaluated on a blank record and on one that is full of nines.

#include "engine/expression/expression.h"

#include <vector>

#include "engine/index/index_key.h"
#include "engine/record/dbf_file.h"
#include "engine/record/field_codec.h"
#include "fuzz.h"

using namespace brenik;
using namespace brenik;

namespace {

record::TableLayout make_layout() {
    record::TableLayout layout;
    layout.version = 0x30;
    layout.code_page = 0x03;
    const struct {
        const char* name;
        char type;
        std::uint32_t width, decimals;
        std::uint8_t flags;
    } columns[] = {{"C", 'C', 12, 0, 0}, {"N", 'N', 9, 2, 0}, {"D", 'D', 8, 0, 0},
                   {"L", 'L', 1, 0, 0},  {"I", 'I', 4, 0, 0}, {"T", 'T', 8, 0, 0},
                   {"Y", 'Y', 8, 4, 0},  {"B", 'B', 8, 2, 0}, {"V", 'C', 5, 0, 2}};
    for (const auto& column : columns) {
        record::Field field;
        field.name = column.name;
        field.type = column.type;
        field.width = column.width;
        field.decimals = column.decimals;
        field.flags = column.flags;
        layout.fields.push_back(field);
    }
    record::make_header(layout, {1998, 1, 1});
    return layout;
}

void evaluate(const expression::Expression& expression, const record::RecordView& record) {
    const expression::ExpressionResult result = expression.evaluate(record);
    if (result.type == expression::ResultType::kCharacter)
        fuzz::require(result.text.size() < 1 << 20);
    expression.is_true(record);
    try {
        const index::KeyFormat format = index::natural_key_format(expression, false);
        std::vector<Byte> key(format.length);
        index::build_key(expression, format, record, key);
    } catch (const expression::ExpressionError&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const record::TableLayout layout = make_layout();
    static const std::vector<Byte> blank = [] {
        std::vector<Byte> record(layout.record_length);
        record::make_blank_record(record, layout);
        return record;
    }();
    static const std::vector<Byte> nines(layout.record_length, '9');
    try {
        const std::string_view text(reinterpret_cast<const char*>(bytes), size);
        const expression::Expression expression = expression::Expression::compile(text, layout);
        evaluate(expression, {blank, 1});
        evaluate(expression, {nines, 99999999});
    } catch (const expression::ExpressionError&) {
    }
    return 0;
}
