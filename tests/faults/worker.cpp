// A workstation as hosts make it, which works at random:
//
//     worker LIBRARY FOLDER SEED SECONDS PAUSE TRACE
//
// with a pause in milliseconds between two pieces of work. It knows the library by its path alone,
// so that any version of it can be at work. It goes on after every refusal, and begins a new
// session when nothing works any more. Every piece of work is one line of its output, written at
// once:
//
//     WORK MICROSECONDS [TABLE IDENTIFIER TOKEN]     of its longest call; what was acknowledged
//     refused CALL CODE MICROSECONDS
//     violation MICROSECONDS TOKEN TOKEN             two of one record
//
// Tokens are "W", the seed, a point and a number that grows. A contact that it writes carries one
// in every text and in its memo, so that a reader can tell a torn record from a whole one.

#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "brenikdb.h"

namespace {

using std::chrono::milliseconds, std::chrono::seconds, std::chrono::steady_clock;

constexpr int kContacts = 1, kMatters = 3, kNotes = 4;
constexpr int kAdditionsPerSecond = 10;  // at most, or the tables grow larger than tests can judge
constexpr std::size_t kFirmRoom = 2000;
constexpr int kRefusalsInLine = 3;  // before a new session is begun

struct Refused {
    std::string call;
    BrenikCode code;
};

#define CALL(name, ...) call<decltype(name)>(#name __VA_OPT__(, ) __VA_ARGS__)

using Values = std::vector<std::pair<const char*, std::string>>;

class Worker {
  public:
    Worker(void* library, char** arguments)
        : library_(library),
          folder_(arguments[0]),
          seed_(arguments[1]),
          trace_(std::atoi(arguments[4])) {
        random_.seed(static_cast<unsigned>(std::stoul(seed_)));
        int in_line = kRefusalsInLine;  // it begins with a session
        const auto end = steady_clock::now() + seconds(std::atoi(arguments[2]));
        for (; steady_clock::now() < end;
             std::this_thread::sleep_for(milliseconds(std::atoi(arguments[3])))) {
            result_.clear();
            longest_ = 0;
            try {
                const char* work = in_line >= kRefusalsInLine ? begin_session() : work_once();
                std::printf("%s %lld%s\n", work, longest_, result_.c_str());
                in_line = 0;
            } catch (const Refused& refused) {
                std::printf("refused %s %u %lld\n", refused.call.c_str(), refused.code, longest_);
                ++in_line;
            }
            std::fflush(stdout);
        }
        try {
            CALL(BrenikShutDown);
        } catch (const Refused&) {
            // There was no session.
        }
    }

  private:
    template <class Function, class... Arguments>
    void call(const char* name, Arguments... arguments) {
        auto* function = reinterpret_cast<Function*>(dlsym(library_, name));
        const auto begin = steady_clock::now();
        const BrenikCode code = function(arguments...);
        longest_ = std::max<long long>(
            longest_, (steady_clock::now() - begin) / std::chrono::microseconds(1));
        if (code != BRENIK_SUCCESS) throw Refused{name, code};
    }
    const char* begin_session() {
        CALL(BrenikInitialize, folder_, trace_, 0);
        return "initialize";
    }
    const char* work_once() {
        static constexpr const char* (Worker::*kWork[])() = {
            &Worker::edit,    &Worker::edit,    &Worker::look_up, &Worker::look_up,
            &Worker::share,   &Worker::firm,    &Worker::firm,    &Worker::contact,
            &Worker::contact, &Worker::contact, &Worker::matter,  &Worker::note};
        constexpr std::size_t kWithoutAdditions = 7;
        token_ = "W" + seed_ + "." + std::to_string(++tokens_);
        if (own_.empty()) return contact();
        const auto time = (steady_clock::now() - begin_) / seconds(1);
        const bool may_add = additions_ < kAdditionsPerSecond * (time + 1);
        return (this->*kWork[random_() % (may_add ? std::size(kWork) : kWithoutAdditions)])();
    }
    const auto& pick() { return own_[random_() % own_.size()]; }
    std::string memo() {
        std::string text;
        for (std::size_t i = random_() % 40 + 1; i > 0; --i) text += token_ + ";";
        return text;
    }
    void set_fields(int table, const Values& values) {
        for (const auto& [field, text] : values)
            CALL(BrenikSetField, table, 0, field, text.c_str());
    }
    Values texts() {
        return {{"LAST", token_}, {"FIRST", token_}, {"LABEL1", token_},
                {"CITY", token_}, {"EMAIL", token_}, {"NOTES", memo()}};
    }
    void acknowledge(int table, const std::string& identifier) {
        result_ = " " + std::to_string(table) + " " + identifier + " " + token_;
    }
    std::string add(int table, const Values& values, const std::string& link = "") {
        int ignored = 0;
        CALL(BrenikAddStart, table, &ignored);
        set_fields(table, values);
        char identifier[8] = {};
        link.copy(identifier, 7);
        CALL(BrenikAddEnd, table, identifier);
        acknowledge(table, identifier);
        ++additions_;
        return identifier;
    }

    const char* contact() {
        Values values = texts();
        values.emplace_back("ID", token_);
        own_.emplace_back(add(kContacts, values), token_);
        return "contact";
    }
    const char* matter() {
        add(kMatters, {{"MATTER", token_}, {"CASENUM", token_}}, pick().first);
        return "matter";
    }
    const char* note() {
        add(kNotes, {{"TOPIC", token_}, {"NOTE", memo()}});
        return "note";
    }
    const char* edit() {
        int ignored = 0;
        const std::string identifier = pick().first;
        CALL(BrenikEditStart, kContacts, identifier.c_str(), &ignored);
        set_fields(kContacts, texts());
        CALL(BrenikEditEnd, kContacts, 0);
        acknowledge(kContacts, identifier);
        return "edit";
    }
    // What everybody edits: the contact that is the firm.
    const char* share() {
        int ignored = 0;
        CALL(BrenikEditBegin, kContacts, 1, &ignored);
        set_fields(kContacts,
                   {{"LAST", token_}, {"FIRST", token_}, {"CITY", token_}, {"EMAIL", token_}});
        CALL(BrenikEditEnd, kContacts, 0);
        return "share";
    }
    // What everybody reads meanwhile; a description of two halves is a violation.
    const char* firm() {
        constexpr std::size_t kLast = 1, kFirst = 2, kCity = 17, kEmail = 21;
        std::string text(kFirmRoom, ' ');
        CALL(BrenikGetMyFirm, text.data());
        std::vector<std::string> items;
        std::istringstream parts(text);
        for (std::string item; std::getline(parts, item, '|');) items.push_back(item);
        if (items.size() <= kEmail || items[kEmail][0] != 'W') return "firm";
        for (const std::size_t item : {kLast, kFirst, kCity}) {
            if (items[item] == items[kEmail]) continue;
            result_ = " " + items[item] + " " + items[kEmail];
            return "violation";
        }
        return "firm";
    }
    const char* look_up() {
        const auto& [identifier, key] = pick();
        char found[9] = "       ";  // the call ends it one place further on
        CALL(BrenikGetU_ID, kContacts, key.c_str(), found);
        if (identifier != found) throw Refused{"BrenikGetU_ID", BRENIK_KEY_NOT_FOUND};
        return "look-up";
    }

    void* library_;
    const char* folder_;
    std::string seed_;
    int trace_;
    std::mt19937 random_;
    std::vector<std::pair<std::string, std::string>> own_;  // contacts: identifier and ID
    const steady_clock::time_point begin_ = steady_clock::now();
    int tokens_ = 0, additions_ = 0;
    std::string token_, result_;  // of the work at hand
    long long longest_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    void* library = argc == 7 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (library == nullptr) return 2;
    Worker(library, argv + 2);
}
