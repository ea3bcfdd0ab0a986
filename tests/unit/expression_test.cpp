// Expressions and index keys: what each function and operator gives, and the bytes it ends in.

#include "engine/expression/expression.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdio>
#include <regex>

#include "engine/index/index_key.h"
#include "tables.h"
#include "util/fault.h"

namespace brenik::local {
namespace {

// Flag 2 allows null.
const std::vector<fake::Column> kColumns = {
    {"NAME", 'C', 8},   {"CITY", 'C', 6},        {"AGE", 'N', 6},     {"BORN", 'D', 8},
    {"NODATE", 'D', 8}, {"ACTIVE", 'L', 1},      {"COUNTER", 'I', 4}, {"FACTOR", 'B', 8},
    {"PRICE", 'Y', 8},  {"STAMP", 'T', 8},       {"NOTES", 'M', 4},   {"NICK", 'C', 4, 0, 2},
    {"SHORT", 'V', 5},  {"SPARE", 'I', 4, 0, 2}, {"WIDE", 'C', 300}};

// One record with a field of every type.
class ExpressionTest : public testing::Test {
  protected:
    ExpressionTest() {
        layout_.code_page = 0x03;
        bytes_.assign(layout_.record_length, ' ');
        set_null(kShortened);
        const std::pair<const char*, const char*> texts[] = {
            {"NAME", "De Vries"}, {"CITY", "Ede"}, {"AGE", "  45.4"},
            {"BORN", "20000101"}, {"ACTIVE", "T"}, {"SHORT", "ab  \2"}};
        for (const auto& [field, text] : texts) put(field, text);
        store_le32(at("COUNTER"), static_cast<std::uint32_t>(-2));
        store_le64(at("FACTOR"), std::bit_cast<std::uint64_t>(-0.5));
        store_le64(at("PRICE"), 123456);
        store_le32(at("STAMP"), 2451545);
        store_le32(at("STAMP") + 4, 43200400);
    }

    Byte* at(const std::string& name) { return bytes_.data() + layout_.find(name)->offset; }
    void put(const std::string& name, std::string_view text) {
        std::copy(text.begin(), text.end(), at(name));
    }
    void set_null(std::uint8_t bits) { bytes_[layout_.null_flags->offset] = bits; }
    expression::Expression compile(std::string_view text) const {
        return expression::Expression::compile(text, layout_);
    }
    record::RecordView record() const { return {bytes_, 7}; }

    // The result in a plain form: text in brackets with its static width behind, numbers with six
    // significant digits, dates as "d" and their day number.
    std::string show(std::string_view text) const {
        const expression::Expression expression = compile(text);
        const expression::ExpressionResult result = expression.evaluate(record());
        if (result.is_null) return "null";
        char buffer[40];
        std::snprintf(buffer, sizeof buffer, "%.9g", result.number);
        if (result.type == expression::ResultType::kCharacter) {
            return "[" + std::string(result.text) + "]" + std::to_string(expression.width());
        }
        if (result.type == expression::ResultType::kLogical)
            return result.logical ? "true" : "false";
        return (result.type == expression::ResultType::kDate ? "d" : "") + std::string(buffer);
    }

    std::string key(std::string_view text, bool candidate = false) const {
        const expression::Expression expression = compile(text);
        const index::KeyFormat format = index::natural_key_format(expression, candidate);
        std::vector<Byte> out(format.length);
        index::build_key(expression, format, record(), out);
        return hex(as_text(out));
    }

    static std::string hex(std::string_view bytes) {
        std::string digits;
        for (const char c : bytes) {
            char pair[3];
            std::snprintf(pair, sizeof pair, "%02X", static_cast<unsigned char>(c));
            digits += pair;
        }
        return digits;
    }

    // Calls check(expression, wanted) for cases "expression ~ wanted", with "; " or a line's end
    // between them.
    template <class Check>
    static void each(Check check, const std::string& cases) {
        static const std::regex form("(\\S.*?) ~ (.*?)(; |\n)");
        for (std::sregex_iterator at(cases.begin(), cases.end(), form), end; at != end; ++at) {
            check((*at)[1].str(), (*at)[2].str());
        }
    }
    void check(const std::string& cases) const {
        each(
            [this](const auto& text, const auto& wanted) { EXPECT_EQ(show(text), wanted) << text; },
            cases);
    }

    // The null bits: SHORT is shorter than its field, NICK and SPARE are null.
    static constexpr std::uint8_t kShortened = 0x02, kAllNull = 0x07;
    record::TableLayout layout_ = fake::layout_of(kColumns, 0x30);
    std::vector<Byte> bytes_;
};

TEST_F(ExpressionTest, TextFunctionsCountTrimmedTextInFull) {
    check(R"(
        upper(name) ~ [DE VRIES]8; LOWE(name) ~ [de vries]8; trim(city) ~ [Ede]6
        RTRIM(CITY)+'.' ~ [Ede.]7; LTRIM('  a ') ~ [a ]4; ALLT('  a ') ~ [a]4
        LEFT(NAME,2) ~ [De]2; LEFT(NAME,99) ~ [De Vries]8; LEFT(NAME,1+2) ~ [De ]3
        RIGHT(CITY,4) ~ [e   ]4; SUBSTR(NAME,4) ~ [Vries]5; SUBS(NAME,4,2) ~ [Vr]2
        SUBSTR(NAME,9,3) ~ []0; PADL(COUNTER,5,'0') ~ [000-2]5; PADR('abc',2) ~ [ab]2
        PADL('abc',2) ~ [ab]2; PADC('ab',5,'*') ~ [*ab**]5; PADL(FACTOR,6) ~ [  -0.5]6
        [x]+SHORT ~ [xab]6
    )");
    EXPECT_EQ(show("UPPER(\"\xE9\xFF\xDF\")"), "[\xC9\x9F\xDF]3");
}

TEST_F(ExpressionTest, NumbersAndDatesBecomeTextAndDayNumbers) {
    check(R"(
        STR(AGE) ~ [        45]10; STR(45.5,3) ~ [ 46]3; STR(-45.5,4) ~ [ -46]4
        STR(AGE,6,2) ~ [ 45.40]6; STR(2.675,5,2) ~ [ 2.68]5; STR(99.96,5,1) ~ [100.0]5
        STR(123.456,5,2) ~ [123.5]5; STR(123456,5) ~ [*****]5; STR(-0.4,3) ~ [  0]3
        STR(0.0006,6,3) ~ [ 0.001]6; VAL(' 12.5x') ~ 12.5; VAL('x1') ~ 0
        DTOS(BORN) ~ [20000101]8; DTOS(NODATE) ~ [        ]8; DTOC(BORN) ~ [01/01/00]8
        DTOC(BORN,1) ~ [20000101]8; DTOS(STAMP) ~ [20000101]8
        CTOD('01/02/1999') ~ d2451181; STOD('20000102') ~ d2451546; STOD('20001399') ~ d0
        {^2000-01-31} ~ d2451575; {} ~ d0; {  /  /  } ~ d0; BORN+31 ~ d2451576
        1+BORN ~ d2451546; BORN-1 ~ d2451544; BORN-{^1999-12-25} ~ 7; NODATE+5 ~ d0
        YEAR(BORN)*100+MONTH(BORN)+DAY(NODATE) ~ 200001; DESCEND(BORN) ~ 2780263
        DESCEND(AGE) ~ -45.4; STAMP ~ 2451545.5; RECNO() ~ 7
    )");
    EXPECT_EQ(show("BINTOC(COUNTER)"), "[\x7F\xFF\xFF\xFE]4");
    EXPECT_EQ(show("BINTOC(1,1)"), "[\x81]1");
}

TEST_F(ExpressionTest, OperatorsBindAsTheyShouldAndCompareUpToTheRightSide) {
    check(R"(
        2+3*4 ~ 14; (2+3)*4 ~ 20; 2^3^2 ~ 64; 2**-1 ~ 0.5; -2^2 ~ 4; 7%4-10/4 ~ 0.5
        1/0 ~ 0; 1-2-3 ~ -4; FACTOR*PRICE ~ -6.1728; .T. .OR. .T. .AND. .F. ~ true
        NOT .F. AND .F. ~ false; !AGE>18.AND.ACTIVE ~ false
        T1->AGE=>45 and X.AGE=<46 ~ true; .NOT.1=2 ~ true; AGE=45.4 .and. AGE#45 ~ true
        CITY-'!' ~ [Ede!   ]7; CITY+'!' ~ [Ede   !]7
        CITY='Ed' ~ true; CITY='' ~ true; 'Ed'=CITY ~ false; CITY=='Ede' ~ false
        CITY==[Ede   ] ~ true; CITY<>'Ed' ~ false; CITY!='X' ~ true; CITY>'Ed' ~ false
        CITY>='Ed' ~ true; CITY<'Ee' ~ true; 'de'$CITY ~ true; 'x'$CITY ~ false
        NODATE<BORN ~ true; ACTIVE=.Y. ~ true
    )");
    EXPECT_EQ(show("'\xE9'>'z'"), "true");
}

TEST_F(ExpressionTest, NullSpreadsExceptWhereItIsAskedFor) {
    check(R"(
        NICK ~ [    ]4; EMPTY(NICK) ~ true; EMPTY(CITY+'') ~ false; EMPTY(NODATE) ~ true
        EMPTY(COUNTER) ~ false
    )");
    set_null(kAllNull);
    check(R"(
        NICK+'x' ~ null; UPPER(NICK) ~ null; SPARE>1 ~ null; NVL(NICK,'none!!') ~ [none!!]6
        ISNULL(SPARE) ~ true; EMPTY(NICK) ~ false; IIF(SPARE>1,1,2) ~ 2
        IIF(ACTIVE,NICK,'a') ~ null; IIF(ACTIVE,'yes','n') ~ [yes]3
        .F. .AND. SPARE>1 ~ false; SPARE>1 .OR. .T. ~ true; SPARE>1 .AND. .T. ~ null
    )");
    EXPECT_FALSE(compile("SPARE>1").is_true(record()));
}

TEST_F(ExpressionTest, UnreadableFieldsHaveAValue) {
    for (const std::string_view digits : {"******", "      ", "  -   ", "nan   ", "1e999 "}) {
        put("AGE", digits);
        EXPECT_EQ(show("AGE"), "0") << digits;
    }
    put("AGE", "+12x99");
    EXPECT_EQ(show("AGE"), "12");
    put("AGE", " -0.00");
    EXPECT_EQ(key("AGE"), "8000000000000000");
    put("BORN", "20000230");
    EXPECT_EQ(show("BORN"), "d0");
    put("ACTIVE", "?");
    put("SHORT", "abcd\xFF");
    EXPECT_EQ(show("SHORT"), "[abcd]5");
    bytes_[0] = '*';
    EXPECT_EQ(show("DELETED().AND.!ACTIVE"), "true");
}

TEST_F(ExpressionTest, KeysOfEveryForm) {
    bool candidate = false;
    const auto check_key = [&](const std::string& text, const std::string& wanted) {
        EXPECT_EQ(key(text, candidate), wanted) << text;
    };
    each(check_key, R"(
        CITY ~ 456465202020; TRIM(CITY)+'-' ~ 4564652D202020; AGE ~ C046B33333333333
        FACTOR ~ 401FFFFFFFFFFFFF; BORN ~ C142B42C80000000; NODATE ~ 8000000000000000
        COUNTER ~ 7FFFFFFE; COUNTER+0 ~ 3FFFFFFFFFFFFFFF; PRICE ~ 800000000001E240
        STAMP ~ C142B42CC0000000; ACTIVE ~ 54; -(AGE-AGE) ~ 8000000000000000
        NICK ~ 8020202020; SPARE ~ 80A0202020
    )");
    set_null(kAllNull);
    each(check_key, "NICK ~ 0000000000; SPARE ~ 0000000000\n");
    candidate = true;
    each(check_key, "NICK ~ 20202020; SPARE ~ 80000000\n");
    set_null(0);
    EXPECT_EQ(key("NICK", true), "20202020");
}

TEST_F(ExpressionTest, HeadersDecideTheFormOfExistingKeys) {
    const auto form = [&](const char* text, std::size_t length, bool null_prefix = false) {
        return index::existing_key_format(compile(text), length, null_prefix).form;
    };
    using index::KeyForm;
    EXPECT_EQ(form("COUNTER", 4), KeyForm::kInteger);
    EXPECT_EQ(form("COUNTER", 8), KeyForm::kDouble);
    EXPECT_EQ(form("PRICE", 8), KeyForm::kCurrency);
    EXPECT_EQ(form("SPARE", 5, true), KeyForm::kInteger);
    EXPECT_EQ(form("NAME", 3), KeyForm::kText);
    const std::tuple<const char*, std::size_t, bool> unsuitable[] = {
        {"AGE", 4, false},        {"BORN", 9, false}, {"ACTIVE", 2, false}, {"WIDE", 241, false},
        {"DTOC(BORN)", 8, false}, {"NAME", 9, true},  {"NICK", 4, true},    {"NICK", 1, true}};
    for (const auto& [text, length, null_prefix] : unsuitable) {
        EXPECT_THROW(form(text, length, null_prefix), expression::ExpressionError) << text;
    }
    for (const char* text : {"DTOC(BORN)", "WIDE", "LEFT(NAME,0)"}) {
        EXPECT_THROW(key(text), expression::ExpressionError) << text;
    }
}

TEST_F(ExpressionTest, SoughtValuesGiveTheBytesOfTheirKeys) {
    const auto seek = [&](const char* text, const Value& value) {
        return hex(index::seek_key(index::natural_key_format(compile(text), false), value));
    };
    const std::pair<const char*, Value> present[] = {{"AGE", Number{45.4, 6, 1}},
                                                     {"COUNTER", -2},
                                                     {"PRICE", Number{12.3456, 8, 4}},
                                                     {"BORN", Date(2451545)},
                                                     {"STAMP", "20000101120000400"}};
    for (const auto& [text, value] : present) EXPECT_EQ(seek(text, value), key(text)) << text;
    const std::tuple<const char*, Value, const char*> others[] = {
        {"ACTIVE", false, "46"},
        {"CITY", "Ed", "4564"},
        {"NICK", "x", "8078"},
        {"SPARE", Value(), "0000000000"},
        {"CITY", Memo{"Edegem-Zuid"}, "45646567656D"}};
    for (const auto& [text, value, bytes] : others) EXPECT_EQ(seek(text, value), bytes) << text;
    const std::pair<const char*, Value> unsuitable[] = {{"CITY", Value()},
                                                        {"CITY", 1},
                                                        {"AGE", "1"},
                                                        {"BORN", "20000101"},
                                                        {"COUNTER", Number{1.5}}};
    for (const auto& [text, value] : unsuitable)
        EXPECT_THROW(seek(text, value), EngineFault) << text;
}

TEST_F(ExpressionTest, WhatCannotBeUsedIsRefusedWithItsPlace) {
    const auto refused = [this](const std::string& text, const std::string& wanted) {
        try {
            compile(text);
            ADD_FAILURE() << "accepted: " << text.substr(0, 60);
        } catch (const expression::ExpressionError& error) {
            EXPECT_NE(std::string(error.what()).find(wanted), std::string::npos) << error.what();
        }
    };
    each(refused, R"(
        1+FOO(2) ~ at character 3: no function "FOO"; NOTES ~ is a memo; STATE ~ no field
        M->NAME ~ variables; NAME+AGE ~ cannot stand between; -NAME ~ cannot stand before
        'abc ~ no closing '; (NAME ~ expected "; NAME NAME ~ should end; a. ~ expected
        UPPER(AGE) ~ argument 1 cannot be a number; UPPER() ~ needs more; UPPER(NAME,1) ~ fewer
        IIF(ACTIVE,1,'a') ~ argument 3; STR(AGE,AGE) ~ not computed; PADL(NAME,0) ~ width
        BINTOC(AGE,3) ~ 1, 2, 4; DESCEND(NAME) ~ cannot be text; {^2001-02-29} ~ no such date
        &NAME ~ unexpected character; 12abc ~ runs into; .TRUE. ~ point
    )");
    std::string chain = "WIDE";
    for (int i = 0; i < 200; ++i) chain += "+WIDE";
    refused("", "at character 1: the expression ends too early");
    refused(chain, "too wide");
    refused(std::string(50000, '('), "longer");
    refused(std::string(9000, '('), "nested too deeply");
    refused(std::string(16000, '-'), "nested too deeply");
    layout_.code_page = 0x7B;
    EXPECT_THROW(compile("UPPER(NAME)"), expression::ExpressionError);
    layout_.record_length = 20;
    EXPECT_THROW(compile("BORN"), expression::ExpressionError);
    EXPECT_THROW(compile("CITY").evaluate({Bytes(bytes_).first(10), 1}),
                 expression::ExpressionError);
}

}  // namespace
}  // namespace brenik::local
