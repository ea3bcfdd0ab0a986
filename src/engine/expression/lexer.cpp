// Reads the tokens of expressions: names, numbers, delimited literals, dotted words and symbols.

#include "engine/expression/lexer.h"

#include "engine/expression/expression.h"
#include "util/decimal_text.h"
#include "util/runtime.h"

namespace brenik::expression {
namespace {

struct Spelling {
    std::string_view written;
    std::string_view symbol;
};

// A spelling precedes those that are its prefixes.
constexpr Spelling kSymbols[] = {
    {"->", "->"}, {"==", "=="}, {"=>", ">="}, {"=<", "<="}, {"<>", "<>"}, {"<=", "<="},
    {">=", ">="}, {"!=", "<>"}, {"**", "^"},  {"#", "<>"},  {"=", "="},   {"<", "<"},
    {">", ">"},   {"$", "$"},   {"+", "+"},   {"-", "-"},   {"*", "*"},   {"/", "/"},
    {"%", "%"},   {"^", "^"},   {"!", "NOT"}, {"(", "("},   {")", ")"},   {",", ","},
};

constexpr Spelling kDottedOperators[] = {{".AND.", "AND"}, {".OR.", "OR"}, {".NOT.", "NOT"}};
constexpr std::string_view kTrue[] = {".T.", ".Y."};
constexpr std::string_view kFalse[] = {".F.", ".N."};
constexpr std::string_view kWordOperators[] = {"AND", "OR", "NOT"};

constexpr std::size_t kQuotedLength = 40;

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool begins_ignoring_case(std::string_view text, std::string_view prefix) {
    return equal_ignoring_case(text.substr(0, prefix.size()), prefix);
}

}  // namespace

void refuse_expression(std::size_t position, const std::string& reason) {
    throw ExpressionError("at character " + std::to_string(position) + ": " + reason);
}

std::string quoted(std::string_view text) {
    if (text.size() <= kQuotedLength) return "\"" + std::string(text) + "\"";
    return "\"" + std::string(text.substr(0, kQuotedLength)) + "...\"";
}

Token ExpressionLexer::next() {
    const Token token = read();
    previous_ = token.kind;
    return token;
}

Token ExpressionLexer::read() {
    while (at_ < text_.size() && is_blank(text_[at_])) ++at_;
    if (at_ == text_.size()) return make(TokenKind::kEnd, "", 0);
    const char c = text_[at_];
    if (at_letter(at_)) return read_name();
    if (at_digit(at_) || (c == '.' && at_digit(at_ + 1))) return read_number();
    if (c == '.') return read_dotted();
    if (c == '"' || c == '\'') return read_delimited(TokenKind::kText, c);
    if (c == '[') return read_delimited(TokenKind::kText, ']');
    if (c == '{') return read_delimited(TokenKind::kDate, '}');
    return read_symbol();
}

Token ExpressionLexer::make(TokenKind kind, std::string_view text, std::size_t length) {
    const Token token{kind, text, 0, at_ + 1};
    at_ += length;
    return token;
}

bool ExpressionLexer::at_digit(std::size_t at) const {
    return at < text_.size() && text_[at] >= '0' && text_[at] <= '9';
}

// Names in the table's own code page may hold any byte above ASCII.
bool ExpressionLexer::at_letter(std::size_t at) const {
    if (at >= text_.size()) return false;
    const auto c = static_cast<unsigned char>(text_[at]);
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c >= 0x80;
}

std::size_t ExpressionLexer::digits_end(std::size_t at) const {
    while (at_digit(at)) ++at;
    return at;
}

Token ExpressionLexer::read_name() {
    std::size_t end = at_;
    while (at_letter(end) || at_digit(end)) ++end;
    const std::string_view name = text_.substr(at_, end - at_);
    for (const std::string_view word : kWordOperators) {
        if (equal_ignoring_case(name, word)) return make(TokenKind::kSymbol, word, name.size());
    }
    return make(TokenKind::kName, name, name.size());
}

Token ExpressionLexer::read_number() {
    std::size_t end = digits_end(at_);
    // In `AGE>18.AND.X` the point belongs to the operator.
    const bool point = end < text_.size() && text_[end] == '.' && !at_letter(end + 1);
    if (point) end = digits_end(end + 1);
    const std::string_view digits = text_.substr(at_, end - at_);
    if (at_letter(end)) {
        refuse_expression(at_ + 1, "a number runs into a name at " + quoted(digits));
    }
    Token token = make(TokenKind::kNumber, digits, digits.size());
    token.number = leading_number(digits);
    return token;
}

Token ExpressionLexer::read_dotted() {
    const std::string_view rest = text_.substr(at_);
    for (const Spelling& spelling : kDottedOperators) {
        if (begins_ignoring_case(rest, spelling.written)) {
            return make(TokenKind::kSymbol, spelling.symbol, spelling.written.size());
        }
    }
    // After a name, a point can only separate an alias from its field, which may be called T.
    if (previous_ == TokenKind::kName) return make(TokenKind::kSymbol, ".", 1);
    for (const bool value : {true, false}) {
        for (const std::string_view word : value ? kTrue : kFalse) {
            if (!begins_ignoring_case(rest, word)) continue;
            Token token = make(TokenKind::kLogical, word, word.size());
            token.number = value ? 1 : 0;
            return token;
        }
    }
    refuse_expression(at_ + 1, "a point that begins no known word");
}

Token ExpressionLexer::read_delimited(TokenKind kind, char closing) {
    const std::size_t end = text_.find(closing, at_ + 1);
    if (end == std::string_view::npos) {
        refuse_expression(at_ + 1, std::string("no closing ") + closing);
    }
    const std::string_view content = text_.substr(at_ + 1, end - at_ - 1);
    return make(kind, content, content.size() + 2);
}

Token ExpressionLexer::read_symbol() {
    const std::string_view rest = text_.substr(at_);
    for (const Spelling& spelling : kSymbols) {
        if (begins_with(rest, spelling.written)) {
            return make(TokenKind::kSymbol, spelling.symbol, spelling.written.size());
        }
    }
    refuse_expression(at_ + 1, "unexpected character " + quoted(rest.substr(0, 1)));
}

}  // namespace brenik::expression
