// A workstation that works at random until its time is over or it is killed:
//
//     worker soak|share FOLDER SEED SECONDS PAUSE TRACE
//
// with a pause in milliseconds between two pieces of work. In the soak it checks each contact that
// it reads, and deletes, recalls and walks records through the engine, as companion programs do. On
// a share it uses the library's calls alone, and begins a new session after several refusals in
// succession. Every piece of work is one line of its output, written at once:
//
//     WORK MICROSECONDS [TABLE IDENTIFIER TOKEN]     of its longest call; what was acknowledged
//     refused CALL CODE MICROSECONDS
//     violation WHAT                                 a contradiction, which ends the work
//
// Tokens are "W", the seed, a point and a number that grows. A contact that it adds or edits
// carries one token in every text that it sets and in its memo, so that a reader can tell a torn
// record from a whole one.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "BrenikDB/process_session.h"
#include "brenikdb.h"
#include "engine/orders.h"
#include "util/runtime.h"

namespace brenik::faults {
namespace {

using Clock = std::chrono::steady_clock;
using Values = std::vector<std::pair<const char*, std::string>>;

constexpr int kNotes = 4;
constexpr int kRefusalsInLine = 3;  // before a new session is begun

struct Refused {
    std::string call;
    BrenikCode code;
};

#define CALL(name, ...) call(#name, name __VA_OPT__(, ) __VA_ARGS__)

class Worker {
  public:
    Worker(bool on_share, std::string folder, std::string seed, int trace)
        : on_share_(on_share),
          folder_(std::move(folder)),
          seed_(std::move(seed)),
          trace_(trace),
          random_(static_cast<unsigned>(std::stoul(seed_))) {
        static constexpr Work kWorks[] = {
            {"contact", 4, 3, &Worker::contact}, {"edit", 4, 3, &Worker::edit},
            {"share", 1, 1, &Worker::share},     {"matter", 1, 1, &Worker::matter},
            {"note", 2, 1, &Worker::note},       {"look-up", 0, 2, &Worker::look_up},
            {"recycle", 2, 0, &Worker::recycle}, {"seek", 4, 0, &Worker::seek},
            {"walk", 1, 0, &Worker::walk},
        };
        for (const Work& work : kWorks) {
            works_.insert(works_.end(), on_share ? work.on_share : work.in_soak, &work);
        }
    }

    void work_for(std::chrono::seconds time, std::chrono::milliseconds pause) {
        int in_line = kRefusalsInLine;  // it begins with a session
        for (const auto end = Clock::now() + time; Clock::now() < end;
             std::this_thread::sleep_for(pause)) {
            result_.clear();
            longest_ = 0;
            try {
                const char* work = in_line >= kRefusalsInLine ? begin_session() : work_once();
                std::printf("%s %lld%s\n", work, longest_, result_.c_str());
                in_line = 0;
            } catch (const Refused& refused) {
                std::printf("refused %s %u %lld\n", refused.call.c_str(), refused.code, longest_);
                in_line += on_share_ ? 1 : 0;
            }
            std::fflush(stdout);
        }
        BrenikShutDown();
    }

  private:
    struct Work {
        const char* name;
        unsigned in_soak, on_share;  // how often
        void (Worker::*run)();
    };

    template <class Function, class... Arguments>
    void call(const char* name, Function function, Arguments... arguments) {
        const auto begin = Clock::now();
        const BrenikCode code = function(arguments...);
        longest_ =
            std::max<long long>(longest_, (Clock::now() - begin) / std::chrono::microseconds(1));
        if (code != BRENIK_SUCCESS) throw Refused{name, code};
    }
    const char* begin_session() {
        CALL(BrenikInitialize, folder_.c_str(), trace_, 0);
        return "initialize";
    }
    const char* work_once() {
        token_ = "W" + seed_ + "." + std::to_string(++tokens_);
        const Work& work = *(contacts_.empty() ? works_.front() : pick(works_));
        try {
            (this->*work.run)();
        } catch (const EngineFault&) {
            areas().release_all_locks();
            throw Refused{"engine", BRENIK_FAULT};
        }
        return work.name;
    }

    WorkAreas& areas() { return process_session().areas; }
    Table& table(int area) { return areas().table(area, "worker"); }
    std::string text(int area, const char* field) {
        return std::string(trim_right(areas().field(area, field).text()));
    }
    template <class Item>
    const Item& pick(const std::vector<Item>& from) {
        return from[random_() % from.size()];
    }
    void acknowledge(int table, const std::string& identifier) {
        result_ = " " + std::to_string(table) + " " + identifier + " " + token_;
    }
    // Of any length, and the token throughout.
    std::string memo() {
        std::string text;
        for (std::size_t i = random_() % 40 + 1; i > 0; --i) text += token_ + ";";
        return text;
    }
    Values texts() {
        return {{"LAST", token_}, {"FIRST", token_}, {"LABEL1", token_}, {"LABEL4", token_},
                {"CITY", token_}, {"EMAIL", token_}, {"NOTES", memo()}};
    }
    void set_fields(int table, const Values& values) {
        for (const auto& [field, text] : values)
            CALL(BrenikSetField, table, 0, field, text.c_str());
    }
    std::string add(int table, const Values& values, const std::string& link = "") {
        int ignored = 0;
        CALL(BrenikAddStart, table, &ignored);
        set_fields(table, values);
        char identifier[8] = {};
        link.copy(identifier, 7);
        CALL(BrenikAddEnd, table, identifier);
        acknowledge(table, identifier);
        return identifier;
    }
    void change(int table, const std::string& identifier, const Values& values) {
        int ignored = 0;
        CALL(BrenikEditStart, table, identifier.c_str(), &ignored);
        set_fields(table, values);
        CALL(BrenikEditEnd, table, 0);
    }

    void contact() {
        Values values = texts();
        values.emplace_back("ID", token_);
        contacts_.emplace_back(add(kNamesArea, values), token_);
    }
    void edit() {
        const std::string& identifier = pick(contacts_).first;
        change(kNamesArea, identifier, texts());
        acknowledge(kNamesArea, identifier);
    }
    // What everybody edits.
    void share() {
        int ignored = 0;
        CALL(BrenikEditBegin, kNamesArea, 1, &ignored);
        set_fields(kNamesArea, {{"FIRST", token_}});
        CALL(BrenikEditEnd, kNamesArea, 0);
    }
    void matter() {
        add(kMattersArea, {{"MATTER", token_}, {"CASENUM", token_}}, pick(contacts_).first);
    }
    void note() {
        const Values values = {{"TOPIC", token_}, {"NOTE", memo()}};
        if (!notes_.empty() && random_() % 2 == 0) return change(kNotes, pick(notes_), values);
        notes_.push_back(add(kNotes, values));
    }
    void look_up() {
        const auto& [identifier, key] = pick(contacts_);
        char found[9] = "       ";  // the call writes the end one byte past the identifier
        CALL(BrenikGetU_ID, kNamesArea, key.c_str(), found);
        if (identifier != found) throw Refused{"BrenikGetU_ID", BRENIK_KEY_NOT_FOUND};
    }

    // All texts of the current contact carry the same token.
    void expect_whole() {
        const std::string token = text(kNamesArea, "LAST");
        if (token.find('.') == std::string::npos) return;  // a record of the sample
        const auto complain = [&](const std::string& other) {
            throw std::runtime_error{"a contact says " + token + " and " + other};
        };
        for (const char* field : {"FIRST", "LABEL1", "LABEL4", "CITY", "EMAIL"}) {
            const std::string other = text(kNamesArea, field);
            if (!token.starts_with(other.substr(0, 20)) || other.empty()) complain(other);
        }
        const Value memo = areas().field(kNamesArea, "NOTES");
        std::string_view rest = memo.text();
        for (; !rest.empty(); rest.remove_prefix(token.size() + 1)) {
            if (!rest.starts_with(token + ";")) complain(std::string(rest.substr(0, 40)));
        }
    }

    // Picks any note. Deletes it and reports that; or, if it is deleted, recalls it under its old
    // identifier.
    void recycle() {
        Table& notes = table(kNotes);
        const auto record = static_cast<RecordNumber>(1 + random_() % notes.record_count());
        areas().select(kNotes);
        notes.go_to(record);
        if (text(kNotes, "U_ID").empty() || !notes.lock_record(record)) return;
        if (notes.deleted()) {
            notes.recall();
            areas().set_field(kNotes, "TOPIC", token_);
            areas().set_field(kNotes, "NOTE", memo());
        } else {
            notes.mark_deleted();
            // Under the lock, or somebody else recycles it before.
            CALL(BrenikDeletedRecord, kNotes, static_cast<int>(record));
        }
        notes.unlock_all();
    }

    // A contact that was acknowledged is found by identifier and by name.
    void seek() {
        const std::string& identifier = pick(contacts_).first;
        const auto find = [&](const char* order, const std::string& key) {
            Table& names = table(kNamesArea);
            set_order(names, order);
            if (names.seek(key, SeekMode::kHard, SeekEnd::kFirst)) return;
            throw std::runtime_error{"contact " + identifier + " is not found as " + key};
        };
        find("U_ID", identifier);
        expect_whole();
        find("NAME", upper(areas().field(kNamesArea, "LAST").text()) +
                         upper(areas().field(kNamesArea, "FIRST").text()));
    }

    // Identifiers never change, so a walk through them meets each once, in order, and misses none
    // that was there when it began.
    void walk() {
        Table& names = table(kNamesArea);
        set_order(names, "U_ID");
        std::set<std::string> missing;
        for (const auto& own : contacts_) missing.insert(own.first);
        const bool forward = random_() % 2 == 0;
        std::string last;
        forward ? names.go_top() : names.go_bottom();
        while (forward ? !names.end_of_file() : !names.beginning_of_file()) {
            const std::string identifier = text(kNamesArea, "U_ID");
            if (!last.empty() && !identifier.empty() &&
                (forward ? identifier <= last : identifier >= last)) {
                throw std::runtime_error{"a walk came from " + last + " to " + identifier};
            }
            expect_whole();
            missing.erase(identifier);
            if (!identifier.empty()) last = identifier;
            names.skip(forward ? 1 : -1);
        }
        if (!missing.empty()) throw std::runtime_error{"a walk missed " + *missing.begin()};
    }

    const bool on_share_;
    const std::string folder_, seed_;
    const int trace_;
    std::vector<const Work*> works_;  // each as often as it is done; the first is an addition
    std::mt19937 random_;
    std::vector<std::pair<std::string, std::string>> contacts_;  // its own: identifier and ID
    std::vector<std::string> notes_;
    int tokens_ = 0;
    std::string token_, result_;  // of the work at hand
    long long longest_ = 0;
};

}  // namespace
}  // namespace brenik::faults

int main(int argc, char** argv) {
    if (argc != 7) return 2;
    using namespace brenik::faults;
    try {
        const bool on_share = std::string(argv[1]) == "share";
        Worker worker(on_share, argv[2], argv[3], std::atoi(argv[6]));
        worker.work_for(std::chrono::seconds(std::atoi(argv[4])),
                        std::chrono::milliseconds(std::atoi(argv[5])));
        return 0;
    } catch (const std::exception& fault) {
        std::printf("violation %s\n", fault.what());
    }
    return 3;
}
