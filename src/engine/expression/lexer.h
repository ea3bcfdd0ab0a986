// Splits an expression's text into tokens.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace brenik::expression {

enum class TokenKind { kEnd, kName, kNumber, kText, kDate, kLogical, kSymbol };

// `text` is the name, the content between the delimiters, or the symbol in its canonical spelling:
// "<>" for every spelling of that operator, "AND" for ".and.", and so on.
struct Token {
    TokenKind kind = TokenKind::kEnd;
    std::string_view text;
    double number = 0;         // numbers; 0 or 1 for logicals
    std::size_t position = 1;  // of the first character, counted from 1

    bool is(std::string_view symbol) const { return kind == TokenKind::kSymbol && text == symbol; }
};

// Throws ExpressionError; its text begins with the position.
[[noreturn]] void refuse_expression(std::size_t position, const std::string& reason);
// Quotes text for a message and shortens it if it is long.
std::string quoted(std::string_view text);

// Returns the tokens in order. The text must outlive them. Throws ExpressionError where the text
// holds no token.
class ExpressionLexer {
  public:
    explicit ExpressionLexer(std::string_view text) : text_(text) {}
    Token next();

  private:
    Token read();
    Token read_name();
    Token read_number();
    Token read_dotted();
    Token read_symbol();
    Token read_delimited(TokenKind kind, char closing);
    Token make(TokenKind kind, std::string_view text, std::size_t length);
    bool at_digit(std::size_t at) const;
    bool at_letter(std::size_t at) const;
    std::size_t digits_end(std::size_t at) const;

    std::string_view text_;
    std::size_t at_ = 0;
    TokenKind previous_ = TokenKind::kEnd;
};

}  // namespace brenik::expression
