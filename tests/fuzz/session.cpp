// A whole session, with its trace, over a practice that the input has damaged.
//
// The input is a list of patches: which file, where (a fraction of its length), how many bytes and
// the bytes; a patch of no bytes cuts the file off there.

#include <map>

#include "BrenikDB/process_session.h"
#include "brenikdb.h"
#include "engine/local/local_engine.h"
#include "fuzz.h"
#include "unit/stand_ins.h"

using namespace brenik;

namespace {

using Practice = std::map<std::string, std::string>;  // what is in each file

// The sound practice, from the folder that BRENIK_FUZZ_PRACTICE names.
Practice read_practice() {
    Practice practice;
    const char* from = std::getenv("BRENIK_FUZZ_PRACTICE");
    if (from == nullptr) return practice;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(from)) {
        if (!entry.is_regular_file()) continue;
        const std::string name = std::filesystem::relative(entry.path(), from).string();
        practice[name] = bytes_of(entry.path());
    }
    return practice;
}

void patch(Practice& practice, Bytes input) {
    while (input.size() > 3) {
        std::string& bytes =
            std::next(practice.begin(), fuzz::take(input) % practice.size())->second;
        const std::size_t place = fuzz::take(input) * 256U + fuzz::take(input);
        const std::size_t at = std::min(place, bytes.size());
        const std::size_t count = std::min<std::size_t>(fuzz::take(input) % 32, bytes.size() - at);
        if (count == 0) bytes.resize(at);
        for (std::size_t i = 0; i < count; ++i)
            bytes[at + i] = static_cast<char>(fuzz::take(input));
    }
}

void work(int table) {
    int ignored = 0;
    char identifier[8] = "A100003";
    BrenikAddStart(table, &ignored);
    for (const char* field : {"LAST", "MATTER", "TOPIC", "DETAIL", "NOTES", "NOTE", "BALANCE"}) {
        BrenikSetField(table, 0, field, "12/31/99 of some text");
    }
    BrenikAddEnd(table, identifier);
    BrenikEditStart(table, identifier, &ignored);
    BrenikSetField(table, 0, "OPERATOR", "ABC");
    BrenikEditEnd(table, 0);
    for (const int record : {1, 2, 5}) {
        BrenikEditBegin(table, record, &ignored);
        BrenikSetField(table, 0, table == 4 ? "NOTE" : "NOTES", "another text");
        BrenikSetField(table, 0, "ENTRY", "01/02/03");
        BrenikEditEnd(table, record);
        BrenikAddedRecord(table, record);
        BrenikDeletedRecord(table, record);
    }
    char found[8] = {};
    BrenikGetU_ID(table, "X", found);
}

}  // namespace

// Locks and opens that are refused are tried for five seconds by this clock, not by ours.
Session& brenik::process_session() {
    static local::LocalEngine engine;
    static fake::Clock clock;
    static fake::UserInterface ui;
    static Session made(engine, clock, ui);
    ui.boxes.clear();
    ui.notices.clear();
    return made;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const Practice sound = read_practice();
    if (sound.empty()) return 0;
    Practice practice = sound;
    patch(practice, {bytes, size});
    for (const auto& [name, content] : practice) fuzz::write_file(name, as_bytes(content));
    BrenikInitialize(fuzz::folder().string().c_str(), 1, 0);
    for (const int table : {1, 2, 3, 4, 7}) work(table);
    std::string firm(300, ' ');
    BrenikGetMyFirm(firm.data());
    BrenikShutDown();
    return 0;
}
