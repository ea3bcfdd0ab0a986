// The benchmark's tables: made by the companion tool, opened by the embedded engine.

#include "tables.h"

#include <cstdio>
#include <cstdlib>

#include "engine/local/local_engine.h"
#include "engine/orders.h"

namespace brenik::bench {

void make_sample(const std::filesystem::path& practice, std::size_t contacts, bool wide) {
    const auto tool = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "brenik";
    const std::string command = tool.string() + " sample " + practice.string() + " --contacts " +
                                std::to_string(contacts) + (wide ? " --wide" : "") + " > /dev/null";
    expect(std::system(command.c_str()) == 0, "cannot make the sample practice");
}

std::unique_ptr<Engine> new_engine() { return std::make_unique<local::LocalEngine>(); }

std::unique_ptr<Table> open_table(Engine& engine, const std::filesystem::path& path) {
    OpenAnswer answer = engine.open(path.string(), TableSharing::kShared);
    if (const auto* refusal = std::get_if<Refusal>(&answer)) give_up(refusal->explanation());
    return std::move(std::get<std::unique_ptr<Table>>(answer));
}

std::size_t position_of(const Table& table, const std::string& field) {
    for (std::size_t i = 0; i < table.fields().size(); ++i) {
        if (table.fields()[i].name == field) return i + 1;
    }
    give_up(table.path() + " has no field " + field);
}

void control(Table& table, const char* order) {
    if (!set_order(table, order)) give_up(table.path() + " has no order " + order);
}

std::vector<std::string> texts_of(Table& table, const char* field) {
    std::vector<std::string> texts;
    control(table, "");
    const std::size_t position = position_of(table, field);
    for (table.go_top(); !table.end_of_file(); table.skip(1)) {
        if (!table.deleted()) texts.push_back(table.field_get(position).text());
    }
    return texts;
}

void give_up(const std::string& reason) {
    std::fprintf(stderr, "benchmark: %s\n", reason.c_str());
    std::exit(1);
}

void expect(bool holds, const char* what) {
    if (!holds) give_up(what);
}

}  // namespace brenik::bench
