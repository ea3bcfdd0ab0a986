// How stamps and counters are put together and taken apart.

#include "RSData/stamps.h"

#include <algorithm>
#include <array>

#include "RSData/system_record.h"
#include "c_source/Time.h"
#include "util/bytes.h"
#include "util/runtime.h"

namespace brenik {

namespace {

constexpr std::string_view kBase62 =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kBase26 = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view kBaseDate = "19971231";

std::string to_digits(const char* routine, std::int64_t number, int digits,
                      std::string_view alphabet) {
    const auto base = static_cast<std::int64_t>(alphabet.size());
    std::string text(static_cast<std::size_t>(std::max(digits, 0)), alphabet[0]);
    std::int64_t rest = number;
    for (auto digit = text.rbegin(); digit != text.rend() && rest > 0; ++digit, rest /= base) {
        *digit = alphabet[static_cast<std::size_t>(rest % base)];
    }
    if (rest == 0) return text;
    throw EngineFault(FaultCode::kLimit, routine,
                      "counter " + std::to_string(number) + " does not fit in " +
                          std::to_string(digits) + " digits");
}

// Added up as a double, so that a text of any length stays without overflow.
std::int64_t from_digits(std::string_view text, std::string_view alphabet) {
    double total = 0;
    for (const char digit : text) {
        const std::size_t index = alphabet.find(digit);
        const double amount = index == std::string_view::npos ? -1 : static_cast<double>(index);
        total = total * static_cast<double>(alphabet.size()) + amount;
    }
    return Value(Number{total}).whole();
}

// The quotient by 256 and the rest, each as one byte; both are truncated toward zero.
std::string two_bytes(std::int64_t number) {
    return {static_cast<char>(number / 256), static_cast<char>(number % 256)};
}

}  // namespace

void RSSETBASEDATE(Session& session) {
    if (session.module.stamp_base.empty()) session.module.stamp_base = Date::from_ymd(kBaseDate);
}

std::string RSDT(const Session& session, Date date, std::optional<double> seconds) {
    if (date.empty()) return std::string(kStampSize, '\0');
    const int day = date.julian_day() - session.module.stamp_base.julian_day();
    return two_bytes(day) + two_bytes(Value(Number{seconds.value_or(0) / 2}).whole());
}

std::string RSNOW(Session& session) {
    const SystemRecord settings(session);
    const double last_delta = session.areas.field(kSystemArea, "TLASTDELTA").number();
    return RSDT(session, session.today(), std::max(session.clock.seconds(), last_delta));
}

// The rounding comes after the minutes have been taken, so it never shows.
std::string CDT2STR(const Session& session, std::string_view stamp, const Value&, const Value&,
                    bool) {
    std::string whole(stamp.substr(0, kStampSize));
    whole.resize(kStampSize, '\0');
    const Byte* bytes = as_bytes(whole).data();
    const int day = load_be16(bytes);
    const int minutes = 2 * load_be16(bytes + 2) / 60;
    const std::string time = MIN2AMPM({static_cast<double>(minutes)});
    if (day == 0) return time;
    const Date date(session.module.stamp_base.julian_day() + day);
    return date.to_mdy() + " " + time;
}

std::string RSN2ADS(std::int64_t number, int digits) {
    return to_digits("RSN2ADS", number, digits, kBase62);
}

std::int64_t RSADS2N(std::string_view text) { return from_digits(text, kBase62); }

std::string RSN2ALPHA(std::int64_t number, int digits) {
    return to_digits("RSN2ALPHA", number, digits, kBase26);
}

std::int64_t RSALPHA2N(std::string_view text) { return from_digits(text, kBase26); }

std::string MYSTUFF(std::string_view text, std::size_t start, std::size_t count,
                    std::string_view insert) {
    const std::size_t before = start == 0 ? 0 : start - 1;
    std::string result(text.substr(0, before));
    result.append(insert);
    if (before < text.size() && count < text.size() - before) {
        result.append(text.substr(before + count));
    }
    return result;
}

std::string XTOC(const Value& value) {
    switch (value.kind()) {
        case ValueKind::kCharacter:
        case ValueKind::kMemo:
            return std::string(trim_right(value.text()));
        case ValueKind::kNumber:
            return trimmed_number(value.number_form());
        case ValueKind::kDate:
            return value.date().to_ymd();
        case ValueKind::kLogical:
            return value.logical() ? "Y" : "N";
        case ValueKind::kArray:
            return "{ ... }";
        case ValueKind::kNil:
            return "NIL";
    }
    return {};
}

}  // namespace brenik
