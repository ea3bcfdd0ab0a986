// Expressions over the fields of one open table, the same for every engine: values and the filter.
//
// The compiler sees nothing of a table but its layout and the bytes of its current record.

#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "engine/expression/expression.h"
#include "engine/table.h"

namespace brenik {

// In capitals, as the function UPPER makes them in expressions of a table with this layout.
std::string upper_in(const record::TableLayout& layout, const std::string& text);

class TableExpressions {
  public:
    // `alias` is the name by which expressions may call the table; without one it has only the
    // names that mean the current table (FIELD, _FIELD).
    explicit TableExpressions(Table& table, std::string alias = {})
        : table_(table), alias_(std::move(alias)) {}

    // What an expression gives on the current record: text as wide as the expression says, a
    // number, date, logical or date-time as Table::field_get answers them; nil for NULL. One that
    // does not compile, or names another table's alias, is EngineFault kUnsupported, which names
    // the expression, the position in it and the reason.
    Value evaluate(const std::string& text);
    // What an order's key gives on the current record, whatever aliases the key names.
    Value key_value(std::size_t order);

    // Navigation skips records for which the expression is not true; an empty text ends that. An
    // expression that evaluate() would refuse, or that is not logical, is EngineFault kUnsupported
    // as there; the filter stays as it was.
    void set_filter(const std::string& text);
    const std::string& filter() const { return filter_; }

  private:
    expression::Expression compile(const std::string& text, const char* operation) const;

    Table& table_;
    std::string alias_;
    std::map<std::string, expression::Expression> compiled_;  // what evaluate() has met
    std::string filter_;
};

}  // namespace brenik
