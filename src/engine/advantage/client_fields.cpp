// Sends fields and memos, and repairs what the client has made of them.

#include "engine/advantage/client_fields.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>

#include "engine/advantage/assumptions.h"
#include "engine/record/field_codec.h"

namespace brenik::advantage {
namespace {

constexpr std::size_t kLongestNumber = 64;

bool has_high_bytes(const std::string& text) {
    return std::ranges::any_of(text, [](char c) { return static_cast<Byte>(c) >= 0x80; });
}

// The engine's own column, and the pointers that the client keeps by itself.
bool is_clients_own(const record::Field& field) {
    return field.is_memo() || field.is_autoincrement();
}

// As kDateFormat spells it.
std::string date_text(Date date) {
    const CivilDay day = date.civil();
    char text[16];
    std::snprintf(text, sizeof text, "%02d/%02d/%04d", day.month, day.day, day.year);
    return text;
}

std::string number_text(double number, const record::Field& field) {
    const bool is_double = field.kind->form == record::FieldForm::kDouble;
    const bool is_currency = field.kind->form == record::FieldForm::kCurrency;
    char text[kLongestNumber];
    const auto written = is_double
                             ? std::to_chars(text, std::end(text), number)
                             : std::to_chars(text, std::end(text), number, std::chars_format::fixed,
                                             is_currency ? record::kCurrencyDecimals : 0);
    return std::string(text, written.ptr);
}

// The text that means the field's value to the client; empty for a blank.
std::string text_for_client(const record::RecordView& record, const record::TableLayout& layout,
                            const record::Field& field) {
    const Bytes raw = record.field(field);
    const auto is_blank = [&](Byte byte) { return byte == field.kind->blank; };
    if (std::ranges::all_of(raw, is_blank)) return {};
    switch (field.kind->form) {
        case record::FieldForm::kInteger:
        case record::FieldForm::kDouble:
        case record::FieldForm::kCurrency:
            return number_text(record::read_field(record, layout, field).number(), field);
        case record::FieldForm::kDate: {
            const Date date = Date::from_ymd(as_text(raw));
            return date.empty() ? std::string() : date_text(date);
        }
        case record::FieldForm::kVariableText:
            return record::read_field(record, layout, field).text();
        default:
            return std::string(as_text(raw));
    }
}

}  // namespace

void ClientFields::differs(const std::string& what, Status status) const {
    throw EngineFault(FaultCode::kUnsuitableValue, "write",
                      path_ + ": " + what +
                          " cannot be stored byte for byte through the server's "
                          "library" +
                          (status != 0 ? " (status " + std::to_string(status) + ")" : ""),
                      static_cast<int>(status));
}

// The memo's length as binary data; nothing if the client refuses to tell it.
std::optional<std::size_t> ClientFields::binary_length(const record::Field& field) {
    const ClientLibrary& client = cursor_.client();
    U32 length = 0;
    if (client.AdsGetBinaryLength == nullptr || client.AdsGetBinary == nullptr ||
        client.AdsGetBinaryLength(table_, field.name.c_str(), &length) != 0) {
        return std::nullopt;
    }
    return length;
}

std::string ClientFields::binary_memo(const record::Field& field,
                                      std::optional<std::size_t> length) {
    const ClientLibrary& client = cursor_.client();
    std::string text(length.value_or(0) + 1, '\0');
    auto size = static_cast<U32>(text.size());
    const bool read = length &&
                      client.AdsGetBinary(table_, field.name.c_str(), 0, text.data(), &size) == 0 &&
                      size == length;
    if (!read) {
        throw EngineFault(FaultCode::kUnsupported, "field get",
                          path_ + ": field " + field.name +
                              ": the server's library does not give the bytes of this memo");
    }
    text.resize(*length);
    return text;
}

// Read as text, a memo may end at a zero byte, and in an OEM table the client recodes it, some
// letters to similar ones in ASCII. Then only the binary functions give its bytes.
std::string ClientFields::memo(const record::Field& field) {
    const ClientLibrary& client = cursor_.client();
    const char* name = field.name.c_str();
    U32 length = 0;
    cursor_.require(client.AdsGetMemoLength(table_, name, &length), "field get");
    std::string text(std::size_t{length} + 1, '\0');
    U32 size = length + 1;
    if (length != 0) {
        cursor_.require(client.AdsGetField(table_, name, text.data(), &size, kNotTrimmed),
                        "field get");
    }
    text.resize(std::min(size, length));
    const std::optional<std::size_t> bytes = binary_length(field);
    const bool is_cut = text.size() < std::max<std::size_t>(length, bytes.value_or(0));
    const bool is_recoded = oem_ && (bytes.has_value() || has_high_bytes(text));
    return is_cut || is_recoded ? binary_memo(field, bytes) : text;
}

// A refused field shows in the comparison that follows.
void ClientFields::send_field(Bytes wanted, const record::Field& field) {
    const ClientLibrary& client = cursor_.client();
    const std::string text = text_for_client({wanted, cursor_.at()}, layout_, field);
    const Status status = text.empty() ? client.AdsSetEmpty(table_, field.name.c_str())
                                       : client.AdsSetField(table_, field.name.c_str(), text.data(),
                                                            static_cast<U32>(text.size()));
    if (first_refusal_ == 0) first_refusal_ = status;
}

void ClientFields::send_memo(const record::Field& field, const std::string& text) {
    const ClientLibrary& client = cursor_.client();
    const char* name = field.name.c_str();
    const auto size = static_cast<U32>(text.size());
    if (text.empty()) {
        cursor_.require(client.AdsSetEmpty(table_, name), "field put");
        return;
    }
    const auto holds_it = [&] {
        try {
            return memo(field) == text;
        } catch (const EngineFault& fault) {
            if (fault.code() != FaultCode::kUnsupported) throw;
            return false;
        }
    };
    if (client.AdsSetField(table_, name, text.data(), size) == 0 && holds_it()) return;
    const Status status =
        client.AdsSetBinary == nullptr
            ? 0
            : client.AdsSetBinary(table_, name, kBinaryField, size, 0, text.data(), size);
    if (status != 0 || !holds_it()) differs("memo " + field.name, status);
}

// What the client should have now: the bytes that are wanted, with what is its own.
std::vector<Byte> ClientFields::expected(Bytes wanted) {
    const Bytes there = cursor_.image();
    std::vector<Byte> bytes(wanted.begin(), wanted.end());
    bytes[0] = there[0];
    for (const record::Field& field : layout_.fields) {
        if (!is_clients_own(field)) continue;
        std::ranges::copy(there.subspan(field.offset, field.width), bytes.begin() + field.offset);
    }
    return bytes;
}

void ClientFields::send(Bytes wanted, const PendingMemos& memos) {
    const ClientLibrary& client = cursor_.client();
    first_refusal_ = 0;
    const record::RecordView target{wanted, cursor_.at()};
    const Bytes image = cursor_.image();
    const std::vector<Byte> there(image.begin(), image.end());
    if (there[0] != wanted[0]) {
        cursor_.require(
            target.deleted() ? client.AdsDeleteRecord(table_) : client.AdsRecallRecord(table_),
            target.deleted() ? "delete" : "recall");
    }
    for (const record::Field& field : layout_.fields) {
        if (is_clients_own(field)) continue;
        if (std::ranges::equal(target.field(field), record::RecordView{there, 0}.field(field)))
            continue;
        send_field(wanted, field);
    }
    for (const auto& [field, text] : memos) send_memo(*field, text);

    const auto same = [&](const std::vector<Byte>& bytes) {
        return std::ranges::equal(bytes, cursor_.record().bytes);
    };
    const std::vector<Byte> bytes = expected(wanted);
    if (same(bytes)) return;
    if (client.AdsSetRecord == nullptr) differs("record " + std::to_string(cursor_.at()), 0);
    const Status status = client.AdsSetRecord(table_, bytes.data(), static_cast<U32>(bytes.size()));
    if (status != 0 || !same(expected(wanted))) {
        differs("record " + std::to_string(cursor_.at()), status != 0 ? status : first_refusal_);
    }
}

}  // namespace brenik::advantage
