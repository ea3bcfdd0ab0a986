// Index keys, and the limits of expressions. docs/reference/expressions.md says what expressions
// give; a system test runs its examples.

#include "engine/expression/expression.h"

#include <gtest/gtest.h>

#include "engine/index/index_key.h"
#include "engine/record/field_codec.h"
#include "tables.h"

namespace brenik::local {
namespace {

constexpr std::uint8_t kNullable = 2;
const struct {
    fake::Column column;
    Value value;
    const char* key;
} kFields[] = {{{"CITY", 'C', 6}, "Ede", "456465202020"},
               {{"AGE", 'N', 6, 1}, Number{45.4}, "C046B33333333333"},
               {{"BORN", 'D', 8}, Date(2451545), "C142B42C80000000"},
               {{"NODATE", 'D', 8}, Date(), "8000000000000000"},
               {{"ACTIVE", 'L', 1}, true, "54"},
               {{"COUNTER", 'I', 4}, -2, "7FFFFFFE"},
               {{"FACTOR", 'B', 8}, Number{-0.5}, "401FFFFFFFFFFFFF"},
               {{"PRICE", 'Y', 8, 4}, Number{12.3456}, "800000000001E240"},
               {{"STAMP", 'T', 8}, "20000101120000400", "C142B42CC0000000"},
               {{"NICK", 'C', 4, 0, kNullable}, "x", "8078202020"},
               {{"SPARE", 'I', 4, 0, kNullable}, Value(), "0000000000"},
               {{"SHORT", 'V', 5}, "ab", "6162202020"},
               {{"WIDE", 'C', 240}, "", "2020202020202020"}};

// One record with a field of every type.
class ExpressionTest : public testing::Test {
  protected:
    ExpressionTest() {
        std::vector<fake::Column> columns;
        for (const auto& field : kFields) columns.push_back(field.column);
        layout_ = fake::layout_of(columns, 0x30);
        layout_.code_page = 0x03;
        bytes_.resize(layout_.record_length);
        record::make_blank_record(bytes_, layout_);
        for (const auto& field : kFields) set(field.column.name, field.value);
    }

    void set(const char* name, const Value& value) {
        record::write_field(bytes_, layout_, *layout_.find(name), value);
    }
    void put(const char* name, std::string_view text) {
        std::copy(text.begin(), text.end(), bytes_.begin() + layout_.find(name)->offset);
    }
    expression::Expression compile(std::string_view text) const {
        return expression::Expression::compile(text, layout_);
    }
    record::RecordView record() const { return {bytes_, 7}; }
    bool holds(std::string_view condition) const { return compile(condition).is_true(record()); }

    std::string key(std::string_view text, bool candidate = false) const {
        const expression::Expression expression = compile(text);
        const index::KeyFormat format = index::natural_key_format(expression, candidate);
        std::vector<Byte> out(format.length);
        index::build_key(expression, format, record(), out);
        return hex(out);
    }
    std::string sought(const char* text, const Value& value) const {
        return hex(
            as_bytes(index::seek_key(index::natural_key_format(compile(text), false), value)));
    }
    static std::string hex(Bytes bytes) {
        constexpr std::string_view kDigits = "0123456789ABCDEF";
        std::string digits;
        for (const Byte byte : bytes) digits += {kDigits[byte >> 4], kDigits[byte & 15]};
        return digits;
    }

    record::TableLayout layout_;
    std::vector<Byte> bytes_;
};

TEST_F(ExpressionTest, UnreadableFieldsHaveAValue) {
    for (const char* digits : {"******", "      ", "  -   ", "nan   ", "1e999 ", " -0.00"}) {
        put("AGE", digits);
        EXPECT_EQ(key("AGE"), "8000000000000000") << digits;
    }
    put("AGE", "+12x99");
    put("BORN", "20000230");
    put("ACTIVE", "?");
    put("SHORT", "abcd\xFF");
    EXPECT_TRUE(holds("AGE=12 .AND. BORN={} .AND. !ACTIVE .AND. SHORT=='abcd'"));
    EXPECT_TRUE(holds("'\xE9'>'z' .AND. UPPER('\xE9\xFF\xDF')=='\xC9\x9F\xDF'"));
}

TEST_F(ExpressionTest, KeysOfEveryFormAndOfTheValuesThatAreSought) {
    for (const auto& [column, value, wanted] : kFields) {
        EXPECT_EQ(key(column.name).substr(0, 16), wanted);
        const std::string bytes = sought(column.name, value);
        EXPECT_EQ(bytes, key(column.name).substr(0, bytes.size())) << column.name;
    }
    EXPECT_EQ(key("TRIM(CITY)+'-'"), "4564652D202020");
    EXPECT_EQ(key("SHORT+'.'"), "61622E202020");
    EXPECT_EQ(key("COUNTER+0"), "3FFFFFFFFFFFFFFF");
    EXPECT_TRUE(holds("DTOS(STAMP)='20000101'"));
    EXPECT_EQ(sought("CITY", Memo{"Edegem-Zuid"}), "45646567656D");
    set("NICK", Value());
    EXPECT_EQ(key("NICK"), "0000000000");
    EXPECT_EQ(key("NICK", true), "20202020") << "candidate keys do not tell NULL";
    EXPECT_EQ(key("SPARE", true), "80000000");
    EXPECT_FALSE(holds("SPARE<1 .OR. SPARE>=1"));
    const std::pair<const char*, Value> unsuitable[] = {
        {"CITY", Value()}, {"CITY", 1}, {"BORN", "20000101"}, {"COUNTER", Number{1.5}}};
    for (const auto& [text, value] : unsuitable)
        EXPECT_THROW(sought(text, value), EngineFault) << text;
}

TEST_F(ExpressionTest, HeadersDecideTheFormOfExistingKeys) {
    const auto form = [&](const char* text, std::size_t length, bool null_prefix = false) {
        return index::existing_key_format(compile(text), length, null_prefix).form;
    };
    EXPECT_EQ(form("COUNTER", 8), index::KeyForm::kDouble);
    EXPECT_EQ(form("SPARE", 5, true), index::KeyForm::kInteger);
    EXPECT_EQ(form("CITY", 3), index::KeyForm::kText);
    const std::tuple<const char*, std::size_t, bool> unsuitable[] = {
        {"AGE", 4, false},        {"BORN", 9, false}, {"ACTIVE", 2, false}, {"WIDE", 241, false},
        {"DTOC(BORN)", 8, false}, {"CITY", 7, true},  {"NICK", 4, true},    {"NICK", 1, true}};
    for (const auto& [text, length, null_prefix] : unsuitable) {
        EXPECT_THROW(form(text, length, null_prefix), expression::ExpressionError) << text;
    }
    for (const char* text : {"DTOC(BORN)", "WIDE+CITY", "LEFT(CITY,0)"})
        EXPECT_THROW(key(text), expression::ExpressionError) << text;
}

TEST_F(ExpressionTest, AChangeIsNoticedInWhateverTheExpressionReadsAndNowhereElse) {
    const auto notices = [&](const char* text, const std::vector<Byte>& before) {
        return !compile(text).reads_same({before, 7}, record());
    };
    // Only a bit of the null flags changes in NULL and zero, and in the two texts of five bytes.
    const std::pair<const char*, Value> changes[] = {
        {"CITY", "Edf"}, {"SPARE", 0}, {"SHORT", std::string("ab\0\0\2", 5)}, {"PRICE", 1}};
    for (const auto& [changed, value] : changes) {
        const std::vector<Byte> before = bytes_;
        set(changed, value);
        for (const auto& field : kFields) {
            const std::string name = field.column.name;
            EXPECT_EQ(notices(name.c_str(), before), name == changed) << name << ' ' << changed;
        }
    }
    const std::vector<Byte> before = bytes_;
    bytes_[0] = '*';
    EXPECT_TRUE(notices("DELETED()", before));
}

TEST_F(ExpressionTest, NoTextExhaustsMemoryOrStackOrReadsOutsideTheRecord) {
    std::string chain = "WIDE";
    for (int i = 0; i < 250; ++i) chain += "+WIDE";
    for (const std::string& text : {chain, std::string(50000, '('), std::string(16000, '-')}) {
        EXPECT_THROW(compile(text), expression::ExpressionError) << text.substr(0, 60);
    }
    EXPECT_THROW(compile("CITY").evaluate({Bytes(bytes_).first(6), 1}),
                 expression::ExpressionError);
    layout_.record_length = 12;
    EXPECT_THROW(compile("BORN"), expression::ExpressionError);
    layout_.code_page = 0x7B;
    EXPECT_THROW(compile("UPPER(CITY)"), expression::ExpressionError);
}

}  // namespace
}  // namespace brenik::local
