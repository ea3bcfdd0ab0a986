// Any text as an expression, evaluated on a blank record and on one that is full of nines.

#include "engine/expression/expression.h"

#include <vector>

#include "engine/index/index_key.h"
#include "engine/record/dbf_file.h"
#include "engine/record/field_codec.h"
#include "fuzz.h"
#include "unit/tables.h"

using namespace brenik;
using namespace brenik;

namespace {

record::TableLayout make_layout() {
    record::TableLayout layout = fake::layout_of({{"C", 'C', 12},
                                                  {"N", 'N', 9, 2},
                                                  {"D", 'D', 8},
                                                  {"L", 'L', 1},
                                                  {"I", 'I', 4},
                                                  {"T", 'T', 8},
                                                  {"Y", 'Y', 8, 4},
                                                  {"B", 'B', 8, 2},
                                                  {"V", 'C', 5, 0, 2}},
                                                 0x30);
    layout.code_page = 0x03;
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
