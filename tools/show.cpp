// Describes tables and prints records.

#include "show.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "colours.h"
#include "display.h"
#include "engine/maintenance/check_index.h"
#include "engine/orders.h"
#include "findings.h"
#include "practice.h"
#include "progress.h"
#include "seek_key.h"
#include "util/runtime.h"
#include "util/suggestion.h"

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

Json describe_tag(const OrderDescription& tag, const std::string& unusable, const TableText& text) {
    return {{"name", text.shown(tag.name)},
            {"key", text.shown(tag.key)},
            {"condition", text.shown(tag.condition)},
            {"length", tag.key_length},
            {"unique", tag.unique},
            {"candidate", tag.candidate},
            {"descending", tag.descending},
            {"unusable", to_utf8(unusable)}};
}

bool misses_index(const Table& table) {
    return table.layout().has_structural_index() && table.order_count() == 0;
}

// The tags of an index that could not be opened, as far as they can be read.
Json describe_damaged_index(const Table& table, const TableText& text) {
    Json list = Json::array();
    try {
        const maintenance::FoundTags tags = maintenance::tags_of_table(table.path());
        for (const maintenance::FoundTag& found : tags.tags) {
            const index::TagDescription& tag = found.description;
            list.push_back(describe_tag({tag.name, tag.key, tag.condition, tag.key_length,
                                         tag.unique, tag.candidate, tag.descending, tag.custom},
                                        found.unusable, text));
        }
        for (const std::string& name : tags.unreadable) {
            OrderDescription tag;
            tag.name = name;
            list.push_back(describe_tag(tag, "its definition cannot be read", text));
        }
    } catch (const EngineFault&) {
        // The reason is among those why the index is not available.
    }
    return list;
}

Json describe_orders(const Table& table, const TableText& text) {
    if (misses_index(table)) return describe_damaged_index(table, text);
    Json list = Json::array();
    for (std::size_t number = 1; number <= table.order_count(); ++number) {
        list.push_back(describe_tag(table.order_description(number), "", text));
    }
    return list;
}

Json describe(Table& table, const Practice& practice, const TableText& text) {
    const record::TableLayout& layout = table.layout();
    Json unavailable = Json::array();
    for (const Refusal& refusal : practice.unavailable()) {
        unavailable.push_back(to_utf8(refusal.explanation()));
    }
    return {{"path", to_utf8(table.path())},           {"version", version_text(layout.version)},
            {"code_page", layout.code_page},           {"encoding", text.code_page()},
            {"records", table.record_count()},         {"record_length", layout.record_length},
            {"fields", describe_fields(layout, text)}, {"tags", describe_orders(table, text)},
            {"unavailable", std::move(unavailable)}};
}

void print_description(const Json& table) {
    std::cout << one_line(table["path"].get<std::string>()) << ": version "
              << table["version"].get<std::string>() << ", " << counted(table["records"], "record")
              << " of " << counted(table["record_length"], "byte") << ", text in code page "
              << table["encoding"] << (table["code_page"] == 0 ? " (not marked)" : "") << "\n"
              << coloured(Colour::kHeading, "fields") << "\n";
    for (const Json& field : table["fields"]) {
        std::cout << "  " << pad_right(one_line(field["name"].get<std::string>()), kNameColumn)
                  << field["type"].get<std::string>() << " " << field["width"];
        if (field["decimals"] != 0) std::cout << "." << field["decimals"];
        std::cout << "\n";
    }
    if (!table["tags"].empty()) std::cout << coloured(Colour::kHeading, "tags") << "\n";
    for (const Json& tag : table["tags"]) {
        std::cout << "  " << pad_right(one_line(tag["name"].get<std::string>()), kNameColumn)
                  << one_line(tag["key"].get<std::string>());
        const auto condition = one_line(tag["condition"].get<std::string>());
        if (!condition.empty()) std::cout << " for " << condition;
        for (const char* property : {"unique", "candidate", "descending"}) {
            if (tag[property]) std::cout << ", " << property;
        }
        const auto unusable = tag["unusable"].get<std::string>();
        if (!unusable.empty()) std::cout << "; cannot be used: " << one_line(unusable);
        std::cout << "\n";
    }
    for (const Json& reason : table["unavailable"]) {
        std::cout << "not available: " << one_line(reason.get<std::string>()) << "\n";
    }
}

// Shows a field of a record. Returns the reason if it is a memo that cannot be read: the other
// fields are worth showing all the same.
template <class Show>
std::string reason_against(const record::Field& field, Show show) {
    try {
        show();
        return {};
    } catch (const EngineFault& fault) {
        if (!field.is_memo()) throw;
        return to_utf8(fault.what());
    }
}

Json json_value(Table& table, std::size_t position, const ShowRequest& request,
                const TableText& text) {
    const record::Field& field = table.layout().fields[position - 1];
    return request.raw ? raw_json(table, field) : to_json(table, position, text);
}

// Adds a field by its name. Damaged tables may have several fields of one name.
Json::iterator add_field(Json& fields, const std::string& name, std::size_t number) {
    const auto [added, is_new] = fields.emplace(name, nullptr);
    return is_new ? added : fields.emplace(name + "#" + std::to_string(number), nullptr).first;
}

void print_json(Table& table, const ShowRequest& request, const TableText& text) {
    Json fields = Json::object(), unreadable = Json::object();
    const record::TableLayout& layout = table.layout();
    for (std::size_t i = 0; i < layout.fields.size(); ++i) {
        const record::Field& field = layout.fields[i];
        const auto added = add_field(fields, text.shown(field.name), i + 1);
        const std::string reason =
            reason_against(field, [&] { *added = json_value(table, i + 1, request, text); });
        if (!reason.empty()) unreadable[added.key()] = reason;
    }
    const auto& flags = layout.null_flags;
    if (request.raw && flags) fields[text.shown(flags->name)] = raw_json(table, *flags);
    Json record = {{"record", table.record_number()},
                   {"deleted", table.deleted()},
                   {"fields", std::move(fields)}};
    if (!unreadable.empty()) record["unreadable"] = std::move(unreadable);
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
        std::string line;
        const std::string reason = reason_against(field, [&] {
            line = request.raw ? raw_line(table, field) : to_line(table, i + 1, text);
        });
        if (!reason.empty()) line = "(cannot be read: " + reason + ")";
        print_line(one_line(text.shown(field.name)), line);
    }
    const auto& flags = layout.null_flags;
    if (request.raw && flags) print_line(text.shown(flags->name), raw_line(table, *flags));
}

void print_record(Table& table, const ShowRequest& request, const TableText& text) {
    if (request.json) return print_json(table, request, text);
    print_text(table, request, text);
}

void select_order(Table& table, const std::string& order, const TableText& text) {
    const std::optional<std::string> name = text.bytes_of(order);
    if (name && set_order(table, *name)) return;
    const bool missing = misses_index(table);
    std::vector<std::string> names;
    for (std::size_t number = 1; number <= table.order_count(); ++number) {
        names.push_back(text.shown(table.order_description(number).name));
    }
    throw ToolError(
        missing ? ExitCode::kCannotOpen : ExitCode::kProblem,
        table.path() + ": no order " + order +
            (missing ? ", because its index is not available" : did_you_mean(order, names)));
}

void show_found(Table& table, const ShowRequest& request, const TableText& text) {
    select_order(table, request.order, text);
    const Value key = seek_key(table, *request.seek, text);
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
    select_order(table, request.order, text);
    ProgressBar bar(base_name(table.path()), Output::kListing);
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
    const NamedTables named = find_table(request.where);
    Practice practice(named.folder, platform::OpenMode::kReadOnly, Practice::Through::kItsEngine);
    const std::unique_ptr<Table> opened = practice.open_file(named.file());
    Table& table = *opened;
    const TableText text(table.layout().code_page, encoding);
    if (!request.record && !request.seek && !request.all) {
        const Json description = describe(table, practice, text);
        if (!request.json) return print_description(description);
        std::cout << dump(description, 2) << "\n";
        return;
    }
    for (const Refusal& refusal : practice.unavailable()) {
        std::cerr << "brenik: " << to_line(refusal.explanation()) << "\n";
    }
    if (request.record) return show_one(table, request, text);
    if (request.seek) return show_found(table, request, text);
    show_all(table, request, text);
}

}  // namespace brenik::tools
