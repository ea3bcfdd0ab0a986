// Describes tables and prints records.

#include "show.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "colours.h"
#include "display.h"
#include "engine/expression/expression.h"
#include "engine/orders.h"
#include "practice.h"
#include "progress.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kNameColumn = 12;

std::string version_text(std::uint8_t version) {
    char text[3];
    std::snprintf(text, sizeof text, "%02X", version);
    return text;
}

Json describe_fields(const record::TableLayout& layout, const TableText& text) {
    Json fields = Json::array();
    for (const record::Field& field : layout.fields) {
        fields.push_back({{"name", text.shown(field.name)},
                          {"type", std::string(1, field.type)},
                          {"width", field.width},
                          {"decimals", field.decimals}});
    }
    return fields;
}

Json describe_orders(const Table& table, const TableText& text) {
    Json list = Json::array();
    for (std::size_t number = 1; number <= table.order_count(); ++number) {
        const OrderDescription order = table.order_description(number);
        list.push_back({{"name", text.shown(order.name)},
                        {"key", text.shown(order.key)},
                        {"condition", text.shown(order.condition)},
                        {"length", order.key_length},
                        {"unique", order.unique},
                        {"candidate", order.candidate},
                        {"descending", order.descending}});
    }
    return list;
}

Json describe(Table& table, const TableText& text) {
    const record::TableLayout& layout = table.layout();
    return {{"path", to_utf8(table.path())},           {"version", version_text(layout.version)},
            {"code_page", layout.code_page},           {"encoding", text.code_page()},
            {"records", table.record_count()},         {"record_length", layout.record_length},
            {"fields", describe_fields(layout, text)}, {"tags", describe_orders(table, text)}};
}

void print_description(const Json& table) {
    std::cout << table["path"].get<std::string>() << ": version "
              << table["version"].get<std::string>() << ", " << counted(table["records"], "record")
              << " of " << counted(table["record_length"], "byte") << ", text in code page "
              << table["encoding"] << (table["code_page"] == 0 ? " (not marked)" : "") << "\n"
              << coloured(Colour::kHeading, "fields") << "\n";
    for (const Json& field : table["fields"]) {
        std::cout << "  " << pad_right(field["name"].get<std::string>(), kNameColumn)
                  << field["type"].get<std::string>() << " " << field["width"];
        if (field["decimals"] != 0) std::cout << "." << field["decimals"];
        std::cout << "\n";
    }
    if (!table["tags"].empty()) std::cout << coloured(Colour::kHeading, "tags") << "\n";
    for (const Json& tag : table["tags"]) {
        std::cout << "  " << pad_right(tag["name"].get<std::string>(), kNameColumn)
                  << tag["key"].get<std::string>();
        const auto condition = tag["condition"].get<std::string>();
        if (!condition.empty()) std::cout << " for " << condition;
        for (const char* property : {"unique", "candidate", "descending"}) {
            if (tag[property]) std::cout << ", " << property;
        }
        std::cout << "\n";
    }
}

Json json_value(Table& table, std::size_t position, const ShowRequest& request,
                const TableText& text) {
    const record::Field& field = table.layout().fields[position - 1];
    return request.raw ? raw_json(table, field) : to_json(table, position, text);
}

void print_json(Table& table, const ShowRequest& request, const TableText& text) {
    Json fields = Json::object();
    const record::TableLayout& layout = table.layout();
    for (std::size_t i = 0; i < layout.fields.size(); ++i) {
        fields[text.shown(layout.fields[i].name)] = json_value(table, i + 1, request, text);
    }
    const auto& flags = layout.null_flags;
    if (request.raw && flags) fields[text.shown(flags->name)] = raw_json(table, *flags);
    const Json record = {{"record", table.record_number()},
                         {"deleted", table.deleted()},
                         {"fields", std::move(fields)}};
    std::cout << dump(record) << "\n";
}

void print_line(const std::string& name, const std::string& value) {
    std::cout << "  " << trim_right(pad_right(name, kNameColumn) + value) << "\n";
}

void print_text(Table& table, const ShowRequest& request, const TableText& text) {
    const std::string number = "record " + std::to_string(table.record_number());
    std::cout << coloured(Colour::kHeading, number) << (table.deleted() ? " (deleted)" : "")
              << "\n";
    const record::TableLayout& layout = table.layout();
    for (std::size_t i = 0; i < layout.fields.size(); ++i) {
        const record::Field& field = layout.fields[i];
        print_line(text.shown(field.name),
                   request.raw ? raw_line(table, field) : to_line(table, i + 1, text));
    }
    const auto& flags = layout.null_flags;
    if (request.raw && flags) print_line(text.shown(flags->name), raw_line(table, *flags));
}

void print_record(Table& table, const ShowRequest& request, const TableText& text) {
    if (request.json) return print_json(table, request, text);
    print_text(table, request, text);
}

void select_order(Table& table, const std::string& order) {
    if (set_order(table, order)) return;
    throw ToolError(ExitCode::kProblem, table.path() + ": no order " + order);
}

// Converts the key to its order's type: numbers, dates (YYYYMMDD) and logicals arrive as text.
Value key_value(const Table& table, const std::string& given, const TableText& text) {
    const std::string key = table.order_description(table.order_number()).key;
    switch (expression::Expression::compile(key, table.layout()).type()) {
        case expression::ResultType::kNumber:
            return numeric_value(given);
        case expression::ResultType::kDate:
            return Date::from_ymd(replace_all(given, "-", ""));
        case expression::ResultType::kLogical:
            return equal_ignoring_case(given, "true");
        default: {
            const auto bytes = text.bytes_of(given);
            if (bytes) return *bytes;
            throw ToolError(ExitCode::kProblem, "code page " + std::to_string(text.code_page()) +
                                                    " has no \"" + given +
                                                    "\", so no record can have this key");
        }
    }
}

void show_found(Table& table, const ShowRequest& request, const TableText& text) {
    select_order(table, request.order);
    const Value key = key_value(table, *request.seek, text);
    if (!table.seek(key, SeekMode::kHard, SeekEnd::kFirst)) {
        throw ToolError(ExitCode::kProblem, table.path() + ": order " + request.order +
                                                " has no key \"" + *request.seek + "\"");
    }
    print_record(table, request, text);
}

void show_one(Table& table, const ShowRequest& request, const TableText& text) {
    const RecordNumber count = table.record_count();
    if (*request.record < 1 || *request.record > count) {
        throw ToolError(ExitCode::kProblem, table.path() + ": no record " +
                                                std::to_string(*request.record) + " among " +
                                                std::to_string(count));
    }
    table.go_to(*request.record);
    print_record(table, request, text);
}

void show_all(Table& table, const ShowRequest& request, const TableText& text) {
    select_order(table, request.order);
    ProgressBar bar(request.table, Output::kListing);
    const std::uint64_t count = table.record_count();
    std::uint64_t shown = 0;
    for (table.go_top(); !table.end_of_file() && std::cout; table.skip(1)) {
        bar.show("", shown++, count);
        print_record(table, request, text);
    }
}

}  // namespace

void show(const ShowRequest& request) {
    const EncodingChoice encoding = encoding_named(request.encoding);
    Practice practice(request.folder, platform::OpenMode::kReadOnly);
    const std::unique_ptr<Table> opened = practice.open(request.table);
    Table& table = *opened;
    const TableText text(table.layout().code_page, encoding);
    if (request.record) return show_one(table, request, text);
    if (request.seek) return show_found(table, request, text);
    if (request.all) return show_all(table, request, text);
    const Json description = describe(table, text);
    if (request.json) {
        std::cout << dump(description, 2) << "\n";
    } else {
        print_description(description);
    }
}

}  // namespace brenik::tools
