// One call of a host while a call on a file fails: `walk FOLDER CALL`. What the library answers and
// leaves behind in the process is one line on standard output; the files are copied to
// FOLDER.before and, at once, to FOLDER.left. Then the host goes on, to see that the session still
// works. Waits take no time: clock and user interface are those of the unit tests.

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "../unit/fake_engine.h"
#include "BrenikDB/process_session.h"
#include "brenikdb.h"
#include "engine/local/local_engine.h"
#include "session/session.h"

namespace brenik {

// In place of the library's own.
Session& process_session() {
    static local::LocalEngine engine;
    static fake::Clock clock;
    static fake::UserInterface ui;
    static Session only{engine, clock, ui};
    return only;
}

namespace faults {
namespace {

namespace fs = std::filesystem;

constexpr int kRecord = 3;

std::string folder;
char text[1000];
int number;

std::string sample_identifier(int table) {
    process_session().areas.table(table, "walk").go_to(kRecord);
    return process_session().areas.field(table, "U_ID").text();
}

void set(int table, const char* field, const char* value) {
    BrenikSetField(table, 0, field, value);
}

void fill(int table) {
    BrenikAddStart(table, &number);
    if (table == kNamesArea || table == kMattersArea) set(table, "NOTES", "A note that is new");
    if (table == kCodesArea) set(table, "CODE", "Walked");
}

void change(int table, const char* name) {
    BrenikEditBegin(table, kRecord, &number);
    set(table, "LAST", name);
    set(table, "NOTES", name);
}

template <int table>
void fill_in() {
    fill(table);
}

void fill_linked() {
    std::strcpy(text, sample_identifier(kNamesArea).c_str());
    fill(kMattersArea);
}

template <int table>
BrenikCode add_end() {
    return BrenikAddEnd(table, text);
}

BrenikCode edit_end() { return BrenikEditEnd(kNamesArea, kRecord); }

const struct {
    const char* name;
    void (*prepare)();
    BrenikCode (*run)();
} kCalls[] = {
    {"StartUp",
     [] {
         BrenikShutDown();
         process_session().areas.select(kCrossReferenceArea);
     },
     [] { return BrenikInitialize(folder.c_str(), 0, 0); }},
    {"ShutDown", [] { change(kNamesArea, "Walked"); }, [] { return BrenikShutDown(); }},
    {"AddStart", [] {}, [] { return BrenikAddStart(kNamesArea, &number); }},
    {"AddEnd 1", fill_in<kNamesArea>, add_end<kNamesArea>},
    {"AddEnd 2", fill_in<kEventsArea>, add_end<kEventsArea>},
    {"AddEnd 3", fill_in<kMattersArea>, add_end<kMattersArea>},
    {"AddEnd 7", fill_in<kCodesArea>, add_end<kCodesArea>},
    {"AddEnd with a link", fill_linked, add_end<kMattersArea>},
    {"EditStart", [] { std::strcpy(text, sample_identifier(kNamesArea).c_str()); },
     [] { return BrenikEditStart(kNamesArea, text, &number); }},
    {"EditBegin", [] {}, [] { return BrenikEditBegin(kNamesArea, kRecord, &number); }},
    {"SetField", [] { BrenikEditBegin(kNamesArea, kRecord, &number); },
     [] { return BrenikSetField(kNamesArea, kRecord, "NOTES", "Set"); }},
    {"EditEnd", [] { change(kNamesArea, "Walked"); }, edit_end},
    {"EditEnd again",
     [] {
         change(kNamesArea, "Once");
         edit_end();
         process_session().clock.pause(10000);
         change(kNamesArea, "Walked");
     },
     edit_end},
    {"AddedRec", [] {}, [] { return BrenikAddedRecord(kNamesArea, kRecord); }},
    {"DeletedRec",
     [] {
         Table& names = process_session().areas.table(kNamesArea, "walk");
         names.go_to(kRecord);
         if (names.lock_record(kRecord)) names.mark_deleted();
         names.unlock_all();
     },
     [] { return BrenikDeletedRecord(kNamesArea, kRecord); }},
    {"GetMyFirm", [] { std::strcpy(text, std::string(500, ' ').c_str()); },
     [] { return BrenikGetMyFirm(text); }},
    {"GetU_ID", [] { std::strcpy(text, "......."); },
     [] { return BrenikGetU_ID(kNamesArea, "FIRM", text); }},
};

void fault_calls(const char* how) {
    const auto symbol = dlsym(RTLD_DEFAULT, how);
    void (*call)() = nullptr;
    std::memcpy(&call, &symbol, sizeof symbol);
    if (call != nullptr) call();
}

// What this process holds alone in the practice's files, as the system lists it.
int locks_held() {
    int held = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fdinfo")) {
        std::error_code error;
        const fs::path file = fs::read_symlink("/proc/self/fd" / entry.path().filename(), error);
        std::ifstream facts(entry.path());
        for (std::string line; std::getline(facts, line);) {
            held += file.string().starts_with(folder) && line.find(" WRITE ") != line.npos;
        }
    }
    return held;
}

std::string shown(const ArrayReference& buffer) {
    std::string all;
    for (const Value& element : buffer ? *buffer : Array()) all += element.text() + "|";
    return all;
}

int walk(const std::string& name) {
    const auto* call = std::ranges::find(kCalls, name, [](const auto& each) { return each.name; });
    if (call == std::end(kCalls) || BrenikInitialize(folder.c_str(), 0, 0) != 0) return 2;
    call->prepare();
    const int area_before = process_session().areas.current();
    const std::string before = shown(process_session().buffer);
    const std::string text_before = text;
    fs::copy(folder, folder + ".before");
    fault_calls("faulty_files_arm");
    const BrenikCode code = call->run();
    fault_calls("faulty_files_disarm");
    fs::copy(folder, folder + ".left");
    const int area = process_session().areas.current();
    std::printf("%u\t%d\t%d\t%d\t%s\t%s\n", code, area_before, area, locks_held(),
                shown(process_session().buffer) == before ? "kept" : "new",
                text == text_before ? "kept" : text);
    if (name == "StartUp" || name == "ShutDown") BrenikInitialize(folder.c_str(), 0, 0);
    fill(kEventsArea);
    std::printf("%u\n", BrenikAddEnd(kEventsArea, text));
    return 0;
}

}  // namespace
}  // namespace faults
}  // namespace brenik

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    brenik::faults::folder = argv[1];
    return brenik::faults::walk(argv[2]);
}
