// Probes of fields, records, memos and the formats of values.

#include <algorithm>
#include <bit>

#include "engine/probes/bench.h"

namespace brenik::probes {
namespace {

// What a conversion, a line end or a text's end might harm.
std::string awkward_bytes() {
    std::string bytes{'a', '\0', '\r', '\n', '\x1A', 'z'};
    for (int byte = 0x80; byte <= 0xFF; ++byte) bytes += static_cast<char>(byte);
    return bytes + "end";
}

std::string memo_of(Bench& bench, const ClientTable& table) {
    U32 length = 0;
    require(bench.client().AdsGetMemoLength(table.handle(), "NOTE", &length), "AdsGetMemoLength");
    constexpr U32 kMost = 0xFFFF;  // far more than any probe writes
    std::string text(std::min(length, kMost) + 1, '\0');
    U32 size = static_cast<U32>(text.size());
    require(bench.client().AdsGetField(table.handle(), "NOTE", text.data(), &size,
                                       advantage::kNotTrimmed),
            "AdsGetField");
    text.resize(std::min<std::size_t>(size, text.size()));
    return text;
}

std::string compared(const std::string& given, const std::string& got) {
    const auto [a, b] = std::ranges::mismatch(given, got);
    if (a == given.end() && b == got.end()) return "all " + std::to_string(given.size()) + " bytes";
    const auto at = static_cast<std::size_t>(a - given.begin());
    return std::to_string(got.size()) + " of " + std::to_string(given.size()) +
           " bytes, different from byte " + std::to_string(at + 1) +
           " on: " + in_hex(std::string_view(given).substr(at, 1)) + " became " +
           (at < got.size() ? in_hex(std::string_view(got).substr(at, 1)) : "nothing");
}

Answer memo_through(Bench& bench, U16 characters) {
    const std::string given = awkward_bytes();
    {
        const auto table = bench.here({.characters = characters});
        table->go(1);
        table->lock(1);
        table->set("NOTE", given);
        table->write();
        table->unlock(1);
    }
    const auto table = bench.there({.characters = characters});
    table->go(1);
    const std::string got = memo_of(bench, *table);
    return told(got == given, compared(given, got));
}

Answer memo_bytes(Bench& bench) { return memo_through(bench, advantage::kAnsi); }

// For a probe that expects a conversion, which changes some bytes.
Answer inverted(Answer answer) {
    return told(answer.verdict == Verdict::kRefuted, std::move(answer.seen));
}

Answer memo_bytes_oem(Bench& bench) { return inverted(memo_through(bench, advantage::kOem)); }

Answer memo_binary(Bench& bench) {
    const ClientLibrary& client = bench.client();
    if (!client.AdsSetBinary || !client.AdsGetBinary || !client.AdsGetBinaryLength) {
        return unknown("the library has no AdsSetBinary, AdsGetBinary or AdsGetBinaryLength");
    }
    const std::string given = awkward_bytes();
    const auto table = bench.here();
    table->go(1);
    table->lock(1);
    const U32 length = static_cast<U32>(given.size());
    const Status set = client.AdsSetBinary(table->handle(), "NOTE", advantage::kBinaryField, length,
                                           0, given.data(), length);
    if (set != 0) return told(false, "AdsSetBinary on a memo: " + said(set));
    table->write();
    U32 size = 0;
    require(client.AdsGetBinaryLength(table->handle(), "NOTE", &size), "AdsGetBinaryLength");
    std::string got(given.size() + 1, '\0');
    size = static_cast<U32>(got.size());
    require(client.AdsGetBinary(table->handle(), "NOTE", 0, got.data(), &size), "AdsGetBinary");
    got.resize(std::min<std::size_t>(size, got.size()));
    return told(got == given, compared(given, got));
}

// Every byte but 0, in pieces of a field's width; the record then has what was given.
Answer characters_through(Bench& bench, U16 characters) {
    const auto table = bench.here({.characters = characters});
    table->go(1);
    table->lock(1);
    const std::size_t width = table->bytes("TEXT").size();
    std::string given;
    std::string got;
    for (int first = 0; first <= 0xFF; first += static_cast<int>(width)) {
        std::string piece;
        for (int byte = first; byte <= 0xFF && piece.size() < width; ++byte) {
            piece += static_cast<char>(byte);
        }
        piece.resize(width, 'x');
        table->set("TEXT", piece);
        table->write();
        given += piece;
        got += table->bytes("TEXT");
    }
    return told(got == given, compared(given, got));
}

Answer character_bytes(Bench& bench) { return characters_through(bench, advantage::kAnsi); }

Answer oem_bytes(Bench& bench) { return inverted(characters_through(bench, advantage::kOem)); }

Answer raw_record(Bench& bench) {
    const auto table = bench.here();
    table->go(4);
    const std::string image = table->image();
    return told(image.starts_with(" B1       40.0020200104F"), quoted(image));
}

// A DOS character that the record already has.
Answer oem_record(Bench& bench) {
    const ClientLibrary& client = bench.client();
    if (!client.AdsSetRecord) return unknown("the library has no AdsSetRecord");
    const auto table = bench.here({.characters = advantage::kOem});
    table->go(1);
    table->lock(1);
    std::string image = table->image();
    image[1] = '\x84';
    require(client.AdsSetRecord(table->handle(), image.data(), static_cast<U32>(image.size())),
            "AdsSetRecord");
    table->write();
    const std::string got = table->image();
    return told(got == image, "byte 84 of a record reads " + in_hex(got.substr(1, 1)));
}

Answer set_record(Bench& bench) {
    const ClientLibrary& client = bench.client();
    if (!client.AdsSetRecord) return unknown("the library has no AdsSetRecord");
    const auto table = bench.here();
    table->go(1);
    table->lock(1);
    std::string image = table->image();
    image.replace(1, 2, std::string("Z\0", 2));
    const Status status =
        client.AdsSetRecord(table->handle(), image.data(), static_cast<U32>(image.size()));
    if (status != 0) return told(false, said(status));
    table->write();
    const std::string code = table->bytes("CODE");
    return told(code == std::string("Z\0    ", 6), "the bytes of CODE are then " + in_hex(code));
}

Answer field_types(Bench& bench) {
    const auto table = bench.here();
    struct Expected {
        const char* field;
        U16 type;
        U32 width;
    };
    std::string seen;
    bool as_expected = true;
    for (const Expected& each :
         {Expected{"CODE", advantage::kStringField, 6},
          Expected{"AMOUNT", advantage::kNumericField, 8},
          Expected{"FLAG", advantage::kLogicalField, 1}, Expected{"DAY", advantage::kDateField, 8},
          Expected{"NOTE", advantage::kMemoField, 0}}) {
        U16 type = 0;
        U32 width = 0;
        require(bench.client().AdsGetFieldType(table->handle(), each.field, &type),
                "AdsGetFieldType");
        require(bench.client().AdsGetFieldLength(table->handle(), each.field, &width),
                "AdsGetFieldLength");
        as_expected = as_expected && type == each.type && (each.width == 0 || width == each.width);
        seen += (seen.empty() ? "" : "; ") + std::string(each.field) + ": type " +
                std::to_string(type) + ", width " + std::to_string(width);
    }
    return told(as_expected, seen);
}

Answer field_text(Bench& bench) {
    const auto table = bench.here();
    table->go(1);
    const std::string code = table->get("CODE");
    const std::string amount = table->get("AMOUNT");
    const std::string flag = table->get("FLAG");
    return told(
        code == "A1    " && amount == "   10.00" && flag == "T",
        "a text " + quoted(code) + ", a number " + quoted(amount) + ", a logical " + quoted(flag));
}

Answer trim_options(Bench& bench) {
    const auto table = bench.here();
    table->go(1);
    table->lock(1);
    table->set("CODE", "  B");
    const std::string none = table->get("CODE", advantage::kNotTrimmed);
    const std::string right = table->get("CODE", kTrimRight);
    return told(none == "  B   " && right == "  B",
                "0 gives " + quoted(none) + ", 2 gives " + quoted(right));
}

Answer date_format(Bench& bench) {
    const auto table = bench.here();
    table->go(1);
    const auto shown_in = [&](const char* format) {
        const Status status = bench.client().AdsSetDateFormat(format);
        return status == 0 ? table->get("DAY") : said(status);
    };
    const std::string short_form = shown_in("CCYYMMDD");
    const std::string long_form = shown_in(advantage::kDateFormat);
    return told(short_form == "20200101" && long_form == "01/01/2020",
                "CCYYMMDD gives " + quoted(short_form) + ", MM/DD/CCYY gives " + quoted(long_form));
}

Answer date_written(Bench& bench) {
    const auto table = bench.here();
    table->go(1);
    table->lock(1);
    table->set("DAY", "02/29/2024");
    table->write();
    const std::string written = table->bytes("DAY");
    return told(written == "20240229", quoted(written));
}

Answer empty_date(Bench& bench) {
    const auto table = bench.here();
    table->go(1);
    table->lock(1);
    require(bench.client().AdsSetEmpty(table->handle(), "DAY"), "AdsSetEmpty");
    table->write();
    const std::string written = table->bytes("DAY");
    return told(
        written == std::string(8, ' '),
        "the record has " + quoted(written) + ", the field reads " + quoted(table->get("DAY")));
}

Answer empty_values(Bench& bench) {
    const auto table = bench.here();
    table->go(1);
    table->lock(1);
    for (const char* field : {"CODE", "AMOUNT", "FLAG"}) {
        require(bench.client().AdsSetEmpty(table->handle(), field), "AdsSetEmpty");
    }
    table->write();
    const std::string code = table->bytes("CODE");
    const std::string amount = table->bytes("AMOUNT");
    const std::string flag = table->bytes("FLAG");
    return told((code + amount + flag).find_first_not_of(' ') == std::string::npos,
                "a text is " + quoted(code) + ", a number " + quoted(amount) + ", a logical " +
                    quoted(flag));
}

Answer long_text(Bench& bench) {
    const auto table = bench.here();
    table->go(1);
    table->lock(1);
    const Status status = bench.client().AdsSetField(table->handle(), "CODE", "ABCDEFGH", 8);
    return told(status != 0, said(status));
}

Answer logical_text(Bench& bench) {
    const auto table = bench.here();
    table->go(2);
    table->lock(2);
    table->set("FLAG", "T");
    table->write();
    const std::string yes = table->bytes("FLAG");
    table->set("FLAG", "F");
    table->write();
    const std::string no = table->bytes("FLAG");
    return told(yes == "T" && no == "F", "T writes " + quoted(yes) + ", F writes " + quoted(no));
}

Answer number_text(Bench& bench) {
    const auto table = bench.here();
    table->go(1);
    table->lock(1);
    table->set("AMOUNT", "   -7.50");
    table->write();
    const std::string written = table->bytes("AMOUNT");
    return told(written == "   -7.50", quoted(written));
}

Answer field_positions(Bench& bench) {
    const auto table = bench.here();
    table->go(1);
    const auto at = [&](std::uintptr_t position) {
        return table->get(std::bit_cast<const char*>(position));
    };
    const std::string first = at(1);
    const std::string fourth = at(4);
    return told(first == table->get("CODE") && fourth == table->get("FLAG"),
                "position 1 gives " + quoted(first) + ", position 4 " + quoted(fourth));
}

Answer exact_setting(Bench& bench) {
    if (!bench.client().AdsGetExact) return unknown("the library has no AdsGetExact");
    U16 off = 1;
    U16 on = 0;
    require(bench.client().AdsGetExact(&off), "AdsGetExact");
    require(bench.client().AdsSetExact(1), "AdsSetExact");
    require(bench.client().AdsGetExact(&on), "AdsGetExact");
    return told(off == 0 && on != 0, "it answers " + std::to_string(off) + " after 0, " +
                                         std::to_string(on) + " after 1");
}

Answer date_format_setting(Bench& bench) {
    if (!bench.client().AdsGetDateFormat) return unknown("the library has no AdsGetDateFormat");
    std::string format(64, '\0');
    U16 size = static_cast<U16>(format.size());
    require(bench.client().AdsGetDateFormat(format.data(), &size), "AdsGetDateFormat");
    format.resize(std::min<std::size_t>(size, format.size()));
    return told(format == advantage::kDateFormat, quoted(format));
}

Answer flush(Bench& bench) {
    if (!bench.client().AdsFlushFileBuffers) {
        return unknown("the library has no AdsFlushFileBuffers");
    }
    const auto table = bench.here();
    table->change(1, "changed");
    const Status status = bench.client().AdsFlushFileBuffers(table->handle());
    return told(status == 0, said(status));
}

constexpr Probe kProbes[] = {
    {"field-types", "Fields have the types 1 logical, 2 numeric, 3 date, 4 text, 5 memo.",
     field_types},
    {"field-text", "A field is read padded, a number right-aligned, a logical as a letter.",
     field_text},
    {"trim-options", "0 trims nothing, 2 trims on the right.", trim_options},
    {"number-text", "A number is written as its text is given.", number_text},
    {"empty-values", "Emptied texts, numbers and logicals are blank.", empty_values},
    {"long-text", "A text that is wider than its field is refused.", long_text},
    {"logical-text", "T and F write a logical field.", logical_text},
    {"date-format", "Dates are read in either format.", date_format},
    {"date-written", "A date is written from text in the set format.", date_written},
    {"empty-date", "An emptied date is blank.", empty_date},
    {"exact-setting", "AdsGetExact answers as AdsSetExact was set.", exact_setting},
    {"date-format-setting", "AdsGetDateFormat answers as AdsSetDateFormat was set.",
     date_format_setting},
    {"raw-record", "AdsGetRecord gives the bytes of the record.", raw_record},
    {"oem-record", "AdsGetRecord and AdsSetRecord convert nothing in a table of type OEM.",
     oem_record, kRecords, TextOf::kDos},
    {"set-record", "AdsSetRecord writes the bytes of a record, zeros included.", set_record},
    {"character-bytes", "All 256 bytes pass through a text field of type ANSI.", character_bytes},
    {"oem-bytes", "Text fields of type OEM are converted.", oem_bytes, kRecords, TextOf::kDos},
    {"memo-bytes", "A memo keeps all bytes, zeros included.", memo_bytes},
    {"memo-bytes-oem", "Memos of type OEM are converted.", memo_bytes_oem, kRecords, TextOf::kDos},
    {"memo-binary", "AdsSetBinary and AdsGetBinary take a text memo.", memo_binary},
    {"flush", "AdsFlushFileBuffers succeeds.", flush},
    {"field-positions",
     "A number in place of a name means a field's position (the engine does not use it).",
     field_positions},
};

}  // namespace

std::span<const Probe> value_probes() { return kProbes; }

}  // namespace brenik::probes
