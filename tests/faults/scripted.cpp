// A workstation that follows a script: `scripted FOLDER SCRIPT [STEPS]`. Every step that the
// library has acknowledged is one line on standard output ("done", with table and identifier where
// one was given out); the first refusal ends the script with "refused". Injected faults are armed
// once the practice is open, so that a script's calls are counted from its first step.

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "engine/make/create_table.h"
#include "workstation.h"

namespace brenik::faults {
namespace {

constexpr int kPagesArea = 100;
constexpr int kPagesRecords = 60;
constexpr std::uint32_t kWideKey = 100;  // four or five entries a page

struct LastStep {};

class Script {
  public:
    Script(Workstation& workstation, int steps) : at(workstation), steps_left_(steps) {}

    // `identifier` is the one of a record just added to the table.
    void done(int table = 0, const std::string& identifier = "") {
        std::printf(table != 0 ? "done %d %s\n" : "done\n", table, identifier.c_str());
        std::fflush(stdout);
        if (--steps_left_ == 0) throw LastStep{};
    }

    Workstation& at;

  private:
    int steps_left_;
};

// The identifier of a record that the sample came with.
std::string sample_identifier(Script& script, int table, RecordNumber record) {
    script.at.table(table).go_to(record);
    return script.at.session().areas.field(table, "U_ID").text();
}

void add(Script& script) {
    script.done(1, script.at.add(1, {{"LAST", "Added"}, {"ID", "ADDED"}, {"CITY", "Bergen"}}));
    script.done(4, script.at.add(4, {{"TOPIC", "Added"}, {"NOTE", "A note that is new"}}));
}

void edit(Script& script) {
    const std::string contact = sample_identifier(script, 1, 5);
    for (const char* name : {"Edited", "Aaltonen", "Zuse"}) {
        script.at.edit(1, contact, {{"LAST", name}, {"CITY", name}, {"BALANCE", "99.50"}});
        script.done();
    }
}

void matter(Script& script) {
    const std::string contact = sample_identifier(script, 1, 3);
    script.done(3, script.at.add(3, {{"MATTER", "Added"}, {"CASENUM", "2030/1"}}, contact));
}

// Longer, shorter, as long, none, and text again, of one record and of its neighbour.
void memo(Script& script) {
    const std::string contact = sample_identifier(script, 1, 2);
    const std::string other = sample_identifier(script, 1, 3);
    const std::string texts[] = {std::string(300, 'a'), std::string(90, 'b'), std::string(90, 'c'),
                                 "", std::string(1000, 'd')};
    for (const std::string& text : texts) {
        for (const auto& [identifier, note] : {std::pair{contact, text}, {other, text + "!"}}) {
            script.at.edit(1, identifier, {{"NOTES", note}});
            script.done();
        }
    }
}

std::string wide_key(int number) {
    std::string key = std::to_string(1000 + number);
    while (key.size() < kWideKey) key += static_cast<char>('A' + key.size() * 7 % 26);
    return key.substr(0, kWideKey);
}

// A table whose tags are several levels deep with few records.
void prepare(Script& script) {
    const std::string path = script.at.folder() + "/PAGES";
    record::TableLayout layout;
    layout.version = 0x30;
    layout.fields.emplace_back().name = std::string("K");
    layout.fields.back().width = kWideKey;
    make::create_table(path, layout);
    make::create_index(path, {{"ALL", "K"}, {"LIVE", "K", "!DELETED()"}});
    Table& table = script.at.open(kPagesArea, "PAGES");
    for (int number = 0; number < kPagesRecords; ++number) {
        if (!table.append_blank(true)) throw Refused{17};
        table.field_put(1, wide_key(number * 2));
    }
    table.unlock_all();
}

// Empties neighbouring pages, which take their parents with them, then fills them again.
void remove(Script& script) {
    for (int step = 0; step < 22; ++step) {
        const bool fill = step >= 12;
        const auto record = static_cast<RecordNumber>(20 + step - (fill ? 12 : 0));
        script.at.guarded([&] {
            Table& table = script.at.open(kPagesArea, "PAGES");
            table.go_to(record);
            if (!table.lock_record(record)) throw Refused{12};
            fill ? table.recall() : table.mark_deleted();
            if (fill) table.field_put(1, wide_key(static_cast<int>(81 + record)));
            table.unlock_all();
        });
        script.done();
    }
}

// What the next user does after whatever went wrong.
void later(Script& script) {
    for (const int table : {1, 2, 4}) {
        const std::string identifier = script.at.add(table, {});
        script.done(table, identifier);
        script.at.edit(table, identifier, {{table == 4 ? "NOTE" : "NOTES", "Later"}});
        script.done();
        script.at.edit(table, sample_identifier(script, table, 1), {{"OPERATOR", "LTR"}});
        script.done();
    }
    const std::string contact = sample_identifier(script, 1, 4);
    script.done(3, script.at.add(3, {{"MATTER", "Later"}}, contact));
}

constexpr struct {
    const char* name;
    void (*run)(Script& script);
} kScripts[] = {{"add", add},         {"edit", edit},     {"matter", matter}, {"memo", memo},
                {"prepare", prepare}, {"remove", remove}, {"later", later}};

void arm() {
    const auto symbol = dlsym(RTLD_DEFAULT, "faulty_files_arm");
    void (*arm_faults)() = nullptr;
    std::memcpy(&arm_faults, &symbol, sizeof symbol);
    if (arm_faults != nullptr) arm_faults();
}

int follow(const std::string& folder, const std::string& name, int steps) {
    Workstation workstation(folder);
    workstation.open(kPagesArea, name == "prepare" ? "LAW1" : "PAGES");
    if (name == "prepare") workstation.session().areas.close();
    workstation.session().areas.select(kNamesArea);
    Script script(workstation, steps);
    const auto* found = std::ranges::find(kScripts, name, [](const auto& one) { return one.name; });
    if (found == std::end(kScripts)) return 2;
    arm();
    try {
        found->run(script);
    } catch (const LastStep&) {
    }
    workstation.shut_down();
    return 0;
}

}  // namespace
}  // namespace brenik::faults

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    try {
        return brenik::faults::follow(argv[1], argv[2], argc > 3 ? std::atoi(argv[3]) : -1);
    } catch (const brenik::faults::Refused& refused) {
        std::printf("refused %d\n", refused.code);
    } catch (const std::exception& fault) {
        std::printf("refused by %s\n", fault.what());
    }
    return 0;
}
