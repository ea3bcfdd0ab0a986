// Describing tables and printing records.

#include "show.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "display.h"
#include "engine/expression/expression.h"
#include "engine/index/cdx_file.h"
#include "engine/orders.h"
#include "engine/record/table_path.h"
#include "practice.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kNameColumn = 12;

std::vector<index::TagDescription> read_tags(const OpenedTable& opened) {
    std::vector<index::TagDescription> tags;
    if (!opened.layout.has_structural_index()) return tags;
    const std::string path = record::index_path(opened.path);
    const auto index = index::CdxFile::open(path, opened.use);
    for (const auto& tag : index->tags()) tags.push_back(tag->description());
    return tags;
}

std::string version_text(std::uint8_t version) {
    char text[3];
    std::snprintf(text, sizeof text, "%02X", version);
    return text;
}

Json describe_fields(const record::TableLayout& layout) {
    Json fields = Json::array();
    for (const record::Field& field : layout.fields) {
        fields.push_back({{"name", field.name},
                          {"type", std::string(1, field.type)},
                          {"width", field.width},
                          {"decimals", field.decimals}});
    }
    return fields;
}

Json describe_tags(const std::vector<index::TagDescription>& tags) {
    Json list = Json::array();
    for (const index::TagDescription& tag : tags) {
        list.push_back({{"name", tag.name},
                        {"key", to_utf8(tag.key)},
                        {"condition", to_utf8(tag.condition)},
                        {"length", tag.key_length},
                        {"unique", tag.unique},
                        {"candidate", tag.candidate},
                        {"descending", tag.descending}});
    }
    return list;
}

Json describe(OpenedTable& opened) {
    return {{"path", opened.path},
            {"version", version_text(opened.layout.version)},
            {"code_page", opened.layout.code_page},
            {"records", opened.table->record_count()},
            {"record_length", opened.layout.record_length},
            {"fields", describe_fields(opened.layout)},
            {"tags", describe_tags(read_tags(opened))}};
}

void print_description(const Json& table) {
    std::cout << table["path"].get<std::string>() << ": version "
              << table["version"].get<std::string>() << ", " << table["records"] << " records of "
              << table["record_length"] << " bytes\nfields\n";
    for (const Json& field : table["fields"]) {
        std::cout << "  " << pad_right(field["name"].get<std::string>(), kNameColumn)
                  << field["type"].get<std::string>() << " " << field["width"];
        if (field["decimals"] != 0) std::cout << "." << field["decimals"];
        std::cout << "\n";
    }
    if (!table["tags"].empty()) std::cout << "tags\n";
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

void print_record(OpenedTable& opened, bool json) {
    Table& table = *opened.table;
    Json fields = Json::object();
    if (!json) {
        std::cout << "record " << table.record_number() << (table.deleted() ? " (deleted)" : "")
                  << "\n";
    }
    for (std::size_t i = 0; i < opened.layout.fields.size(); ++i) {
        const record::Field& field = opened.layout.fields[i];
        const Value value = table.field_get(i + 1);
        if (json) {
            fields[field.name] = to_json(field, value);
        } else {
            const std::string line = pad_right(field.name, kNameColumn) + to_line(field, value);
            std::cout << "  " << trim_right(line) << "\n";
        }
    }
    if (!json) return;
    const Json record = {{"record", table.record_number()},
                         {"deleted", table.deleted()},
                         {"fields", std::move(fields)}};
    std::cout << dump(record) << "\n";
}

void select_order(OpenedTable& opened, const std::string& order) {
    if (set_order(*opened.table, order)) return;
    throw ToolError(ExitCode::kProblem, opened.path + ": no order " + order);
}

// The key as its order wants it: numbers, dates (YYYYMMDD) and logicals come as text too.
Value key_value(const OpenedTable& opened, const std::string& order, const std::string& text) {
    const auto tags = read_tags(opened);
    const auto tag = std::find_if(tags.begin(), tags.end(), [&](const auto& each) {
        return equal_ignoring_case(each.name, order);
    });
    if (tag == tags.end()) return text;
    switch (expression::Expression::compile(tag->key, opened.layout).type()) {
        case expression::ResultType::kNumber:
            return numeric_value(text);
        case expression::ResultType::kDate:
            return Date::from_ymd(replace_all(text, "-", ""));
        case expression::ResultType::kLogical:
            return equal_ignoring_case(text, "true");
        default:
            return text;
    }
}

void show_found(OpenedTable& opened, const ShowRequest& request) {
    select_order(opened, request.order);
    const Value key = key_value(opened, request.order, *request.seek);
    if (!opened.table->seek(key, SeekMode::kHard, SeekEnd::kFirst)) {
        throw ToolError(ExitCode::kProblem, opened.path + ": order " + request.order +
                                                " has no key \"" + *request.seek + "\"");
    }
    print_record(opened, request.json);
}

void show_one(OpenedTable& opened, const ShowRequest& request) {
    const RecordNumber count = opened.table->record_count();
    if (*request.record < 1 || *request.record > count) {
        throw ToolError(ExitCode::kProblem, opened.path + ": no record " +
                                                std::to_string(*request.record) + " among " +
                                                std::to_string(count));
    }
    opened.table->go_to(*request.record);
    print_record(opened, request.json);
}

void show_all(OpenedTable& opened, const ShowRequest& request) {
    select_order(opened, request.order);
    for (opened.table->go_top(); !opened.table->end_of_file(); opened.table->skip(1)) {
        print_record(opened, request.json);
    }
}

}  // namespace

void show(const ShowRequest& request) {
    Practice practice(request.folder, platform::OpenMode::kReadOnly);
    OpenedTable opened = practice.open(request.table);
    if (request.record) return show_one(opened, request);
    if (request.seek) return show_found(opened, request);
    if (request.all) return show_all(opened, request);
    const Json description = describe(opened);
    if (request.json) {
        std::cout << dump(description, 2) << "\n";
    } else {
        print_description(description);
    }
}

}  // namespace brenik::tools
