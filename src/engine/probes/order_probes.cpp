// Probes of seeks, key numbers, scopes and optimised filters.

#include <array>

#include "engine/probes/bench.h"
#include "util/date.h"

namespace brenik::probes {
namespace {

constexpr U16 kRoomForKeys = 512;

struct Found {
    Status status = 0;
    bool found = false;
    std::string place;
    U32 record = 0;

    std::string text() const {
        return said(status) + (found ? ", found, " : ", not found, ") + place;
    }
    bool is(U32 number) const { return status == 0 && found && record == number; }
    bool is_near(U32 number) const { return status == 0 && !found && record == number; }
    // At the end, past the last record.
    bool is_nowhere() const { return is_near(kRecords + 1); }
};

Found seek(Bench& bench, const ClientTable& table, const char* tag, std::string_view key, U16 type,
           U16 mode) {
    U16 found = 0;
    Found result;
    result.status = bench.client().AdsSeek(table.order(tag), key.data(),
                                           static_cast<U16>(key.size()), type, mode, &found);
    result.found = found != 0;
    result.place = table.place();
    result.record = table.record();
    return result;
}

std::string_view as_key(const double& number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

Answer seek_modes(Bench& bench) {
    const auto table = bench.here();
    const auto try_key = [&](const char* key, U16 mode) {
        return seek(bench, *table, "CODE", key, advantage::kStringKey, mode);
    };
    const Found hit = try_key("B1    ", advantage::kHardSeek);
    const Found hard = try_key("B0    ", advantage::kHardSeek);
    const Found soft = try_key("B0    ", advantage::kSoftSeek);
    const Found past = try_key("Z     ", advantage::kSoftSeek);
    return told(hit.is(4) && hard.is_nowhere() && soft.is_near(4) && past.is_nowhere(),
                "a key: " + hit.text() + "; a missing one, hard: " + hard.text() +
                    "; soft: " + soft.text() + "; past the last, soft: " + past.text());
}

Answer seek_prefix(Bench& bench) {
    const auto table = bench.here();
    const Found found =
        seek(bench, *table, "CODE", "B", advantage::kStringKey, advantage::kHardSeek);
    return told(found.is(4), found.text());
}

Answer seek_empty(Bench& bench) {
    const auto table = bench.here();
    table->go(5);
    const Found found =
        seek(bench, *table, "CODE", "", advantage::kStringKey, advantage::kSoftSeek);
    return told(found.status == 0 && found.record == 6, "from record 5: " + found.text());
}

Answer seek_last(Bench& bench) {
    if (!bench.client().AdsSeekLast) return unknown("the library has no AdsSeekLast");
    const auto table = bench.here();
    U16 found = 0;
    const Status status =
        bench.client().AdsSeekLast(table->order("CODE"), "B", 1, advantage::kStringKey, &found);
    return told(status == 0 && found != 0 && table->record() == 7,
                said(status) + ", " + table->place());
}

Answer raw_key(Bench& bench) {
    const auto table = bench.here();
    const Found part = seek(bench, *table, "CODE", "B", advantage::kRawKey, advantage::kHardSeek);
    return told(part.is(4), part.text());
}

// A byte that a conversion between DOS and Windows would change.
Answer oem_raw_key(Bench& bench) {
    const auto table = bench.here({.characters = advantage::kOem});
    const std::string key = "\x84";
    table->go(1);
    std::string image = table->image();
    image.replace(1, key.size(), key);
    if (!bench.client().AdsSetRecord) return unknown("the library has no AdsSetRecord");
    table->lock(1);
    require(
        bench.client().AdsSetRecord(table->handle(), image.data(), static_cast<U32>(image.size())),
        "AdsSetRecord");
    table->write();
    table->unlock(1);
    const Found found = seek(bench, *table, "CODE", key, advantage::kRawKey, advantage::kHardSeek);
    return told(found.is(1), found.text());
}

Answer key_types(Bench& bench) {
    const auto table = bench.here();
    const Found text =
        seek(bench, *table, "CODE", "B1    ", advantage::kStringKey, advantage::kHardSeek);
    const Found raw =
        seek(bench, *table, "CODE", "B1    ", advantage::kRawKey, advantage::kHardSeek);
    const double amount = 40;
    const Found number =
        seek(bench, *table, "AMOUNT", as_key(amount), advantage::kDoubleKey, advantage::kHardSeek);
    return told(
        text.is(4) && raw.is(4) && number.is(4),
        "a text: " + text.text() + "; a raw key: " + raw.text() + "; a number: " + number.text());
}

Answer number_key(Bench& bench) {
    const auto table = bench.here();
    const double near = 39.99;
    const Found found =
        seek(bench, *table, "AMOUNT", as_key(near), advantage::kDoubleKey, advantage::kSoftSeek);
    return told(found.is_near(4), found.text());
}

Answer date_key(Bench& bench) {
    const auto table = bench.here();
    const double day = Date::from_civil(2020, 1, 4).julian_day();
    const Found found =
        seek(bench, *table, "DAY", as_key(day), advantage::kDoubleKey, advantage::kHardSeek);
    return told(found.is(4), found.text());
}

Answer descending_seek(Bench& bench) {
    const auto table = bench.here();
    const Found hit =
        seek(bench, *table, "BACK", "B3    ", advantage::kStringKey, advantage::kHardSeek);
    const Found soft =
        seek(bench, *table, "BACK", "B9    ", advantage::kStringKey, advantage::kSoftSeek);
    return told(hit.is(6) && soft.is_near(7),
                "a key: " + hit.text() + "; a missing one, soft: " + soft.text());
}

Answer order_properties(Bench& bench) {
    if (!bench.client().AdsGetKeyType) return unknown("the library has no AdsGetKeyType");
    const auto table = bench.here();
    std::string seen;
    bool as_expected = true;
    struct Expected {
        const char* tag;
        U16 type;
        U16 length;
        bool descending;
    };
    for (const Expected& each : {Expected{"CODE", advantage::kStringField, 6, false},
                                 Expected{"AMOUNT", advantage::kNumericField, 8, false},
                                 Expected{"DAY", advantage::kDateField, 8, false},
                                 Expected{"BACK", advantage::kStringField, 6, true}}) {
        const Handle order = table->order(each.tag);
        U16 type = 0;
        U16 length = 0;
        U16 descending = 0;
        require(bench.client().AdsGetKeyType(order, &type), "AdsGetKeyType");
        require(bench.client().AdsGetKeyLength(order, &length), "AdsGetKeyLength");
        require(bench.client().AdsIsIndexDescending(order, &descending), "AdsIsIndexDescending");
        as_expected = as_expected && type == each.type && length == each.length &&
                      (descending != 0) == each.descending;
        seen += (seen.empty() ? "" : "; ") + std::string(each.tag) + ": type " +
                std::to_string(type) + ", " + std::to_string(length) + " bytes" +
                (descending != 0 ? ", descending" : "");
    }
    return told(as_expected, seen);
}

Answer key_number(Bench& bench) {
    const auto table = bench.here();
    const auto number_in = [&](const char* tag) {
        U32 number = 0;
        const Status status =
            bench.client().AdsGetKeyNum(table->order(tag), advantage::kIgnoreFilters, &number);
        return status == 0 ? std::to_string(number) : said(status);
    };
    table->go(4);
    const std::string whole = number_in("CODE");
    const std::string outside = number_in("SOME");
    table->go(8);
    const std::string inside = number_in("SOME");
    return told(whole == "4" && inside == "3" && outside == "0",
                "the fourth key: " + whole + "; the third of an order with a condition: " + inside +
                    "; a record outside it: " + outside);
}

Answer extract_key(Bench& bench) {
    if (!bench.client().AdsExtractKey) return unknown("the library has no AdsExtractKey");
    const auto table = bench.here();
    table->go(4);
    std::array<char, kRoomForKeys> key{};
    U16 size = key.size();
    require(bench.client().AdsExtractKey(table->order("CODE"), key.data(), &size), "AdsExtractKey");
    const std::string text(key.data(), size);
    return told(text == "B1    ", quoted(text));
}

// A scope of three keys, and a filter that one record passes.
Answer filter_options(Bench& bench) {
    const FurtherFunctions& further = bench.further();
    if (!further.set_scope || !further.set_filter) {
        return unknown("the library has no AdsSetScope or no AdsSetFilter");
    }
    const auto table = bench.here();
    const Handle order = table->order("CODE");
    for (const U16 side : {kTopOfScope, kBottomOfScope}) {
        require(further.set_scope(order, side, "A", 1, advantage::kStringKey), "AdsSetScope");
    }
    require(further.set_filter(table->handle(), "AMOUNT=20"), "AdsSetFilter");
    const auto count = [&](U16 option) {
        U32 keys = 0;
        require(bench.client().AdsGetKeyCount(order, option, &keys), "AdsGetKeyCount");
        return keys;
    };
    const U32 all = count(advantage::kIgnoreFilters);
    const U32 scoped = count(kRespectScopes);
    const U32 filtered = count(kRespectFilters);
    return told(all == kRecords && scoped == 3 && filtered == 1,
                "of " + std::to_string(kRecords) + " keys, 3 in the scope and 1 in the filter: " +
                    std::to_string(all) + " with option 2, " + std::to_string(scoped) +
                    " with 3, " + std::to_string(filtered) + " with 1");
}

Answer scope_values(Bench& bench) {
    const FurtherFunctions& further = bench.further();
    if (!further.set_scope || !further.get_scope) {
        return unknown("the library has no AdsSetScope or no AdsGetScope");
    }
    const auto table = bench.here();
    const auto value_of = [&](const char* tag, std::string_view key, U16 type) {
        const Handle order = table->order(tag);
        require(
            further.set_scope(order, kTopOfScope, key.data(), static_cast<U16>(key.size()), type),
            "AdsSetScope");
        std::array<char, kRoomForKeys> value{};
        U16 size = value.size();
        require(further.get_scope(order, kTopOfScope, value.data(), &size), "AdsGetScope");
        return std::string(value.data(), size);
    };
    const double amount = 20;
    const std::string code = value_of("CODE", "A", advantage::kStringKey);
    const std::string number = value_of("AMOUNT", as_key(amount), advantage::kDoubleKey);
    const std::string day = value_of("DAY", "01/04/2020", advantage::kStringKey);
    return told(
        number != as_key(amount) && day.size() == sizeof(double),
        "a text: " + quoted(code) + "; a number: " + in_hex(number) + "; a date: " + in_hex(day));
}

Answer optimised_filter(Bench& bench) {
    const ClientLibrary& client = bench.client();
    if (!client.AdsSetAOF || !client.AdsClearAOF) return unknown("the library has no AdsSetAOF");
    const auto reader = bench.here();
    const auto writer = bench.there();
    require(client.AdsSetAOF(reader->handle(), "CODE='B'", advantage::kDynamicFilter), "AdsSetAOF");
    reader->go_top(reader->handle());
    const U32 first = reader->record();
    writer->go(1);
    writer->lock(1);
    writer->set("CODE", "B0");
    writer->write();
    writer->unlock(1);
    reader->go_top(reader->handle());
    const U32 then = reader->record();
    client.AdsClearAOF(reader->handle());
    const bool follows = bench.server_type() == advantage::kRemoteServer;
    return told(first == 4 && (then == 1) == follows,
                "the first record is " + std::to_string(first) + ", after another's change " +
                    std::to_string(then));
}

Answer optimisation_levels(Bench& bench) {
    const ClientLibrary& client = bench.client();
    if (!client.AdsSetAOF || !client.AdsClearAOF || !client.AdsGetAOFOptLevel) {
        return unknown("the library has no AdsSetAOF or no AdsGetAOFOptLevel");
    }
    const auto table = bench.here();
    const auto level_of = [&](const char* filter) {
        require(client.AdsSetAOF(table->handle(), filter, advantage::kDynamicFilter), "AdsSetAOF");
        U16 level = 0;
        U16 size = 0;
        require(client.AdsGetAOFOptLevel(table->handle(), &level, nullptr, &size),
                "AdsGetAOFOptLevel");
        client.AdsClearAOF(table->handle());
        return level;
    };
    const U16 full = level_of("AMOUNT>50");
    const U16 part = level_of("AMOUNT>50.AND.FLAG");
    const U16 none = level_of("FLAG");
    const std::string seen = "with an index " + std::to_string(full) + ", in part " +
                             std::to_string(part) + ", without one " + std::to_string(none);
    if (full == advantage::kFullyOptimised && part == full && none == full) return unknown(seen);
    return told(full == advantage::kFullyOptimised && part == advantage::kPartlyOptimised &&
                    none == advantage::kNotOptimised,
                seen);
}

constexpr Probe kProbes[] = {
    {"seek-modes", "1 seeks softly, 2 seeks hard; a key that is not there is not found.",
     seek_modes},
    {"seek-prefix", "A short key finds the first key that begins with it.", seek_prefix},
    {"seek-empty", "The seek of an empty key leads to the next record.", seek_empty},
    {"seek-last", "AdsSeekLast finds the last key that begins with the given one.", seek_last},
    {"key-types", "1 is a raw key, 2 a text, 4 a number.", key_types},
    {"raw-key", "A raw key may be the beginning of a key.", raw_key},
    {"oem-raw-key", "A raw key is not converted in a table of type OEM.", oem_raw_key, kRecords,
     TextOf::kDos},
    {"number-key", "A number is sought as 8 bytes, with decimals.", number_key},
    {"date-key", "Key type 4 takes the day number of a date.", date_key},
    {"descending-seek", "A soft seek in a descending order leads to the next smaller key.",
     descending_seek},
    {"order-properties",
     "Types, lengths and directions of orders are told with the codes of the field types.",
     order_properties},
    {"key-number", "Key numbers count from 1; a record outside the order has 0.", key_number},
    {"extract-key", "AdsExtractKey gives the bytes of the key.", extract_key},
    {"filter-options", "1 respects filters and scopes, 2 ignores both, 3 respects scopes.",
     filter_options},
    {"scope-values", "AdsGetScope gives the converted key (the engine does not ask).",
     scope_values},
    {"optimised-filter",
     "A dynamic filter follows others' changes on a remote server, and not on the local one.",
     optimised_filter},
    {"optimisation-levels", "1 is fully optimised, 2 partly, 3 not.", optimisation_levels},
};

}  // namespace

std::span<const Probe> order_probes() { return kProbes; }

}  // namespace brenik::probes
