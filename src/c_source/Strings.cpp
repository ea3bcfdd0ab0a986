// One function per source type for CASTANY, each a list of its targets; then the byte strings.

#include "c_source/Strings.h"

#include <algorithm>
#include <limits>

#include "c_source/Dates.h"
#include "c_source/MiscFW.h"
#include "util/date.h"
#include "util/fault.h"
#include "util/runtime.h"

namespace brenik {

namespace {

constexpr std::string_view kSoftLineBreak = "\x8D\n";
// Stops the encoding of an array that contains itself.
constexpr int kDeepestWritten = 1000;

Date date_of_text(const std::string& text, bool strict) {
    if (strict) return Date::from_ymd(text);
    const Date date = Date::from_mdy(text);
    return date.empty() ? Date::from_ymd(text) : date;
}

Date date_of_number(const Number& number) {
    const std::string text = trimmed_number(number);
    const auto part = [&text](std::size_t start, std::size_t count) {
        return static_cast<std::int64_t>(numeric_value(substring(text, start, count)).amount);
    };
    return MAKEDATE(part(5, 2), part(7, 2), part(1, 4));
}

Value cast_text(platform::UserInterface& ui, const Value& value, char target, bool strict_date) {
    const std::string& text = value.text();
    switch (target) {
        case 'C':
        case 'M':
            return value;
        case 'N':
            return numeric_value(text);
        case 'D':
            return date_of_text(text, strict_date);
        case 'L':
            return text == "Y" || text == "T" || text == "1";
        case 'A':
            return STR2A(ui, text);
        default:
            return "";
    }
}

Value cast_number(const Number& number, char target) {
    switch (target) {
        case 'C':
        case 'M':
            return number_text(number);
        case 'N':
            return number;
        case 'D':
            return date_of_number(number);
        case 'L':
            return number.amount == 1;
        default:
            return "";
    }
}

Value cast_date(Date date, char target) {
    switch (target) {
        case 'C':
        case 'M':
            return date.to_mdy();
        case 'N':
            return 0;
        case 'D':
            return date;
        case 'L':
            return false;
        case 'A': {
            const CivilDay parts = date.civil();
            return Value::array({parts.year, parts.month, parts.day});
        }
        default:
            return "";
    }
}

Value cast_logical(bool logical, char target) {
    switch (target) {
        case 'C':
        case 'M':
            return logical ? "Y" : "N";
        case 'N':
            return logical ? 0 : 1;  // the reverse of the usual sense, which hosts rely on
        case 'D':
            return Date();
        case 'L':
            return logical;
        default:
            return "";
    }
}

// Nil and arrays. The only conversion among these is an array to text.
Value cast_other(const Value& value, char target) {
    if (target == 'C' && value.kind() == ValueKind::kArray) return A2STR(value);
    if (target == 'D') return Date();
    if (target == 'L') return false;
    return "";
}

std::string memo_text(std::string_view text, std::string_view mode) {
    if (begins_with(mode, "P")) {
        text = text.substr(0, text.find("***"));
    } else if (!begins_with(mode, "Y")) {
        return {};
    }
    return std::string(trim_right(replace_all(text, kSoftLineBreak, " ")));
}

std::string word(std::size_t count, const char* what) {
    if (count > static_cast<std::size_t>(std::numeric_limits<std::int16_t>::max())) {
        throw EngineFault(FaultCode::kLimit, "A2STR",
                          std::string(what) + " of length " + std::to_string(count) +
                              " is too long for an array byte string");
    }
    return int16_text(static_cast<std::int64_t>(count));
}

void append_encoding(const Value& value, int depth, std::string& out) {
    const char letter = value.kind() == ValueKind::kMemo ? 'C' : value.type_code();
    out += letter;
    if (letter == 'C') {
        const std::string_view trimmed = trim_right(value.text());
        out.append(word(trimmed.size(), "text")).append(trimmed);
        out.append(word(value.text().size(), "text"));
    } else if (letter == 'N') {
        const std::string text = trimmed_number(value.number_form());
        out.append(word(text.size(), "number")).append(text);
    } else if (letter == 'D') {
        out += value.date().to_ymd();
    } else if (letter == 'L') {
        out += value.logical() ? 'T' : 'F';
    } else if (letter == 'A') {
        static const Array no_elements;
        const Array& elements = value.array() ? *value.array() : no_elements;
        if (depth > kDeepestWritten) {
            throw EngineFault(FaultCode::kLimit, "A2STR", "arrays are nested too deeply");
        }
        out += word(elements.size(), "array");
        for (const Value& element : elements) append_encoding(element, depth + 1, out);
    }
}

// Reads one array byte string from front to end.
class ArrayReader {
  public:
    ArrayReader(platform::UserInterface& ui, std::string_view text, bool second_version)
        : ui_(ui), rest_(text), second_version_(second_version) {}

    // Reads an array; returns an empty one if the next type letter is not A.
    ArrayReference read_top() {
        if (take(1) != "A") return std::make_shared<Array>();
        return read_array(take_word());
    }

  private:
    // Removes up to `count` characters from the front and returns them.
    std::string_view take(std::size_t count) {
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(taken.size());
        return taken;
    }

    int take_word() { return int16_from_text(take(2)); }

    // Reads a length or count; a negative one counts as 0. Empty if the text ends before it.
    std::optional<int> take_length() {
        if (rest_.size() < 2) return std::nullopt;
        return std::max(take_word(), 0);
    }

    ArrayReference read_array(int count) {
        auto array = std::make_shared<Array>();
        if (depth_ == kMaxArrayDepth) {
            ERRBEEP(ui_, "Too many recursions in STR2A!\r\n");
            return array;
        }
        ++depth_;
        int length = 0;
        for (int i = 0; i < count; ++i) {
            std::optional<Value> element = read_element(length);
            if (!element) {
                ERRBEEP(ui_, "STR2A ERROR! Less data than expected.");
                break;
            }
            array->push_back(std::move(*element));
        }
        --depth_;
        return array;
    }

    // The payload's length, or for A the number of elements. An unknown letter has the length of
    // the previous element.
    std::optional<int> payload_length(char letter, int previous) {
        switch (letter) {
            case 'C':
            case 'N':
            case 'A':
                return take_length();
            case 'D':
                return 8;
            case 'L':
                return 1;
            case 'U':
                return 0;
            default:
                return previous;
        }
    }

    // Empty if the text ends within the element. `length` holds the previous element's length on
    // entry and this element's length on return.
    std::optional<Value> read_element(int& length) {
        const std::string_view letter = take(1);
        if (letter.empty()) return std::nullopt;
        const std::optional<int> own_length = payload_length(letter[0], length);
        if (!own_length) return std::nullopt;
        length = *own_length;
        if (letter[0] == 'A') return read_array(length);
        const auto size = static_cast<std::size_t>(length);
        if (rest_.size() < size) return std::nullopt;
        return read_payload(letter[0], take(size));
    }

    std::optional<Value> read_payload(char letter, std::string_view payload) {
        switch (letter) {
            case 'C':
                return second_version_ ? read_full_length(payload) : Value(payload);
            case 'N':
                return numeric_value(payload);
            case 'D':
                return Date::from_ymd(payload);
            case 'L':
                return payload == "T";
            default:
                return Value();
        }
    }

    std::optional<Value> read_full_length(std::string_view text) {
        const std::optional<int> full_length = take_length();
        if (!full_length) return std::nullopt;
        return pad_right(text, static_cast<std::size_t>(*full_length));
    }

    platform::UserInterface& ui_;
    std::string_view rest_;
    bool second_version_;
    int depth_ = 0;
};

}  // namespace

Value CASTANY(platform::UserInterface& ui, const Value& value, char target, bool strict_date) {
    switch (value.kind()) {
        case ValueKind::kCharacter:
        case ValueKind::kMemo:
            return cast_text(ui, value, target, strict_date);
        case ValueKind::kNumber:
            return cast_number(value.number_form(), target);
        case ValueKind::kDate:
            return cast_date(value.date(), target);
        case ValueKind::kLogical:
            return cast_logical(value.logical(), target);
        case ValueKind::kNil:
        case ValueKind::kArray:
            break;
    }
    return cast_other(value, target);
}

std::string CAST(const Value& value, std::optional<std::string_view> memo_mode, bool blank_date) {
    switch (value.kind()) {
        case ValueKind::kCharacter:
            return value.text();
        case ValueKind::kNumber:
            return number_text(value.number_form());
        case ValueKind::kDate:
            return blank_date && value.empty() ? "00/00/00" : value.date().to_mdy();
        case ValueKind::kLogical:
            return value.logical() ? "Y" : "N";
        case ValueKind::kMemo:
            return memo_mode ? memo_text(value.text(), *memo_mode) : std::string();
        case ValueKind::kArray:
            return A2STR(value);
        case ValueKind::kNil:
            break;
    }
    return {};
}

std::string A2STR(const Value& value) {
    std::string text = "2";
    append_encoding(value, 1, text);
    return text;
}

ArrayReference STR2A(platform::UserInterface& ui, std::string_view text) {
    if (text.size() == 1 || Value(text).empty()) return std::make_shared<Array>();
    const bool second_version = text[0] == '2';
    return ArrayReader(ui, text.substr(second_version ? 1 : 0), second_version).read_top();
}

}  // namespace brenik
