// The expressions over one open table's fields, and its filter; the same for every engine.
//
// The compiler sees only the table's layout and the bytes of its current record.

#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "engine/expression/expression.h"
#include "engine/table.h"

namespace brenik {

// Converts text to upper case as the function UPPER does in expressions over such a table.
std::string upper_in(const record::TableLayout& layout, const std::string& text);

class TableExpressions {
  public:
    // `alias` is the name by which expressions may refer to the table. Without it they can use only
    // the names of the current table (FIELD, _FIELD).
    explicit TableExpressions(Table& table, std::string alias = {})
        : table_(table), alias_(std::move(alias)) {}

    // Evaluates an expression on the current record. Text is as wide as the expression's type says;
    // a number, date, logical or date-time is as Table::field_get returns it; NULL is nil. An
    // expression that does not compile, or names another table's alias, is EngineFault
    // kUnsupported; its text names the expression, the position in it and the reason.
    Value evaluate(const std::string& text);
    // Evaluates an order's key on the current record, whatever aliases the key names.
    Value key_value(std::size_t order);

    // Makes navigation skip records for which the expression is not true. An empty text clears the
    // filter. An expression that evaluate() would refuse, or that is not logical, is EngineFault
    // kUnsupported and leaves the filter unchanged.
    void set_filter(const std::string& text);
    const std::string& filter() const { return filter_; }

  private:
    expression::Expression compile(const std::string& text, const char* operation) const;

    Table& table_;
    std::string alias_;
    std::map<std::string, expression::Expression> compiled_;  // cache of evaluate()
    std::string filter_;
};

}  // namespace brenik
