// Any text as an expression, evaluated on a blank record and on one that is full of nines.

#include "engine/expression/expression.h"

#include "engine/index/index_key.h"
#include "engine/record/dbf_file.h"
#include "engine/record/field_codec.h"
#include "fuzz.h"
#include "unit/tables.h"

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
    const index::KeyFormat format = index::natural_key_format(expression, false);
    std::vector<Byte> key(format.length);
    index::build_key(expression, format, record, key);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const record::TableLayout layout = make_layout();
    static const std::vector<Byte> nines(layout.record_length, '9');
    std::vector<Byte> blank(layout.record_length);
    record::make_blank_record(blank, layout);
    fuzz::allow_faults<expression::ExpressionError>([&] {
        const auto expression = expression::Expression::compile(as_text({bytes, size}), layout);
        for (const record::RecordView& record : {record::RecordView{blank, 1}, {nines, 99999999}}) {
            fuzz::allow_faults<expression::ExpressionError>([&] { evaluate(expression, record); });
        }
    });
    return 0;
}
