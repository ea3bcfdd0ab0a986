// Recognises such filters by their tokens; the expression compiler has checked the grammar.

#include "engine/advantage/server_filter.h"

#include <algorithm>

#include "engine/expression/expression.h"
#include "engine/expression/lexer.h"

namespace brenik::advantage {
namespace {

using expression::ExpressionLexer;
using expression::Token;
using expression::TokenKind;

bool is_plain(std::string_view text, std::size_t width) {
    const auto is_printable = [](char c) { return c >= ' ' && c <= '~'; };
    return !text.empty() && text.size() <= width && text.back() != ' ' &&
           std::ranges::all_of(text, is_printable);
}

// The rest of a comparison that begins with this field.
bool compares(const record::Field& field, ExpressionLexer& tokens) {
    if (field.null_bit) return false;
    const Token comparison = tokens.next();
    Token constant = tokens.next();
    if (field.kind->form == record::FieldForm::kText) {
        return comparison.is("=") && constant.kind == TokenKind::kText &&
               is_plain(constant.text, field.width);
    }
    if (field.kind->form != record::FieldForm::kDecimal) return false;
    constexpr std::string_view kComparisons[] = {"=", "<>", "<", ">", "<=", ">="};
    if (std::ranges::none_of(kComparisons, [&](auto one) { return comparison.is(one); })) {
        return false;
    }
    if (constant.is("-")) constant = tokens.next();
    return constant.kind == TokenKind::kNumber;
}

}  // namespace

bool means_the_same_at_server(const std::string& text, const record::TableLayout& layout) {
    try {
        ExpressionLexer tokens(text);
        for (Token token = tokens.next(); token.kind != TokenKind::kEnd; token = tokens.next()) {
            if (token.is("(") || token.is(")") || token.is("AND") || token.is("OR")) continue;
            const record::Field* field =
                token.kind == TokenKind::kName ? layout.find(token.text) : nullptr;
            if (field == nullptr || !compares(*field, tokens)) return false;
        }
        return true;
    } catch (const expression::ExpressionError&) {
        return false;
    }
}

}  // namespace brenik::advantage
