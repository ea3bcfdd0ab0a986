// The arguments of one call, converted between JSON and the library's values.
//
// In JSON a value is a string, a number, true or false, null for nil, {"date": "YYYYMMDD"} with ""
// for the empty date, or an array of values. Text with bytes beyond printable ASCII is {"hex":
// "00ff"}, which input may use for any text. Input has two more forms: {"memo": text} is text read
// from a memo field, and {"record": 3} is a record object for the current record of a work area.
// {"ref": value} passes an argument by reference.

#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "data/record_object.h"
#include "util/value.h"

namespace brenik::tools {

// A line that cannot be executed; the text says why.
class CallError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Parses a line. Throws CallError if it is nested too deeply.
nlohmann::ordered_json json_from_line(const std::string& line);

nlohmann::ordered_json value_to_json(const Value& value);
Value value_from_json(const nlohmann::ordered_json& json);

// Arguments by position, counted from 0. An absent or null argument takes the fallback, if there is
// one. A missing argument, or one of the wrong kind, throws CallError with its position.
class CallArguments {
  public:
    CallArguments(Session& session, const nlohmann::ordered_json& line);

    bool given(std::size_t index) const;
    std::size_t count() const { return values_.size(); }
    std::vector<Value>& values() { return values_; }

    Value value(std::size_t index) const;  // nil when absent
    std::string text(std::size_t index) const;
    std::string text(std::size_t index, const std::string& fallback) const;
    double number(std::size_t index) const;
    double number(std::size_t index, double fallback) const;
    Number number_form(std::size_t index) const;
    std::int64_t whole(std::size_t index) const;
    std::int64_t whole(std::size_t index, std::int64_t fallback) const;
    int small(std::size_t index) const;  // a whole number that fits an int
    int small(std::size_t index, int fallback) const;
    std::size_t size(std::size_t index) const;  // a whole number, 0 or more
    std::size_t size(std::size_t index, std::size_t fallback) const;
    std::size_t width(std::size_t index, std::size_t fallback) const;  // width of a text to be made
    bool logical(std::size_t index) const;
    bool logical(std::size_t index, bool fallback) const;
    Date date(std::size_t index) const;
    ArrayReference array(std::size_t index) const;
    // Null if absent.
    RecordObject* record(std::size_t index);

    std::optional<std::string> optional_text(std::size_t index) const;
    std::optional<int> optional_small(std::size_t index) const;
    std::optional<double> optional_number(std::size_t index) const;
    std::optional<bool> optional_logical(std::size_t index) const;

    // Replaces an argument; the reply shows it if it was passed by reference.
    void give_back(std::size_t index, const Value& value);
    // The current values of the arguments by reference, in order.
    nlohmann::ordered_json references() const;
    bool has_references() const { return !reference_positions_.empty(); }

  private:
    void read(const nlohmann::ordered_json& json);
    const Value& wanted(std::size_t index, bool fits, const char* kind) const;
    const Value& of_kind(std::size_t index, ValueKind kind, const char* name) const;

    Session& session_;
    std::vector<Value> values_;
    std::vector<std::size_t> reference_positions_;
    std::vector<std::pair<std::size_t, BufferedRecord>> records_;
};

}  // namespace brenik::tools
