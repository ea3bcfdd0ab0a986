// The arguments of one call, between JSON and the library's values.
//
// In JSON a value is a string (or {"hex": "00ff"}, which text with bytes beyond printable ASCII
// always is when it comes back), a number, true or false, null for nil, {"date": "YYYYMMDD"} with
// "" for the empty date, or an array of these. Two more forms go in only: {"memo": text} is text
// read from a memo field, and {"record": 3} stands for the record that is current in a work area.
// {"ref": value} hands an argument over by reference.

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

// A line that cannot be carried out as it stands; the text says why.
class CallError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A line as it stands; a CallError where it is nested so deeply that reading on is no use.
nlohmann::ordered_json json_from_line(const std::string& line);

// Text with bytes beyond printable ASCII as {"hex": ...}.
nlohmann::ordered_json value_to_json(const Value& value);
Value value_from_json(const nlohmann::ordered_json& json);

// Arguments by position, counted from 0. Absent ones and null take the fallback, where there is
// one; a missing argument, and one of the wrong kind, is a CallError that names its position.
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
    int small(std::size_t index) const;  // a whole number that an int can hold
    int small(std::size_t index, int fallback) const;
    std::size_t size(std::size_t index) const;  // a whole number from 0
    std::size_t size(std::size_t index, std::size_t fallback) const;
    std::size_t width(std::size_t index, std::size_t fallback) const;  // of a text to be made
    bool logical(std::size_t index) const;
    bool logical(std::size_t index, bool fallback) const;
    Date date(std::size_t index) const;
    ArrayReference array(std::size_t index) const;
    // Null when absent.
    RecordObject* record(std::size_t index);

    std::optional<std::string> optional_text(std::size_t index) const;
    std::optional<int> optional_small(std::size_t index) const;
    std::optional<double> optional_number(std::size_t index) const;
    std::optional<bool> optional_logical(std::size_t index) const;

    // Replaces an argument; the caller sees it where the argument was handed over by reference.
    void give_back(std::size_t index, const Value& value);
    // The by-reference arguments as they are now, in their order.
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
