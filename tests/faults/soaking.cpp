// A workstation that works at random until it is told to stop or is killed: `soaking FOLDER SEED
// SECONDS LOG`. It adds, edits, deletes, recycles, seeks and walks, and looks at everything that it
// meets with suspicion. Every finished piece of work is one line of the log, written at once:
//
//   WORK MICROSECONDS [TABLE IDENTIFIER TOKEN]
//
// A record that it writes carries one token in every text and in its memo, so that a reader can
// tell a torn record from a whole one. Tokens are "W", the seed, a point and a number that grows.
// A contradiction is a line "violation" and the end; refused work is a line "refused".

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <vector>

#include "platform/file.h"
#include "util/runtime.h"
#include "workstation.h"

namespace brenik::faults {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kNotes = 4;
constexpr std::size_t kMostOwnRecords = 200;

struct Violation {
    std::string what;
};

class Soak {
  public:
    Soak(const std::string& folder, const std::string& seed, const std::string& log)
        : at_(folder),
          seed_(seed),
          random_(static_cast<unsigned>(std::atoi(seed.c_str()))),
          log_(platform::File::open(log, platform::OpenMode::kAppend)) {}

    void work_for(std::chrono::seconds time) {
        for (const auto end = Clock::now() + time; Clock::now() < end;) work_once();
        at_.shut_down();
    }

  private:
    struct Work {
        const char* name;
        int weight;
        void (Soak::*run)();
    };
    static const Work kWork[9];

    void work_once();
    void write(const std::string& line);
    std::string new_token() { return "W" + seed_ + "." + std::to_string(++tokens_); }
    std::size_t pick(std::size_t count) { return random_() % count; }
    static Workstation::Values contact(const std::string& token);
    std::string memo(const std::string& token);
    std::string text(int area, const char* field) {
        return std::string(trim_right(at_.session().areas.field(area, field).text()));
    }
    void expect_whole(int area);

    void add();
    void edit();
    void share();
    void matter();
    void note();
    void remove();
    void recycle();
    void seek();
    void walk();

    Workstation at_;
    std::string seed_;
    std::mt19937 random_;
    platform::File log_;
    std::vector<std::string> contacts_;  // added by this workstation
    std::vector<std::string> notes_;
    int tokens_ = 0;
    std::string result_;  // of the work at hand, for the log
};

const Soak::Work Soak::kWork[] = {
    {"add", 4, &Soak::add},         {"edit", 4, &Soak::edit}, {"share", 1, &Soak::share},
    {"matter", 1, &Soak::matter},   {"note", 2, &Soak::note}, {"delete", 1, &Soak::remove},
    {"recycle", 1, &Soak::recycle}, {"seek", 4, &Soak::seek}, {"walk", 1, &Soak::walk},
};

void Soak::write(const std::string& line) {
    const std::string bytes = line + "\n";
    log_.write_at(0, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

void Soak::work_once() {
    std::size_t all = 0;
    for (const Work& work : kWork) all += static_cast<std::size_t>(work.weight);
    std::size_t drawn = pick(all);
    const Work* work = kWork;
    for (; drawn >= static_cast<std::size_t>(work->weight); ++work) {
        drawn -= static_cast<std::size_t>(work->weight);
    }
    result_.clear();
    const auto begin = Clock::now();
    std::string name = work->name;
    try {
        at_.guarded([&] { (this->*work->run)(); });
    } catch (const Refused& refused) {
        name = "refused " + name + " " + std::to_string(refused.code);
    }
    const auto time = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
    write(name + " " + std::to_string(time.count()) + result_);
}

Workstation::Values Soak::contact(const std::string& token) {
    return {{"LAST", token},   {"FIRST", token}, {"LABEL1", token},
            {"LABEL4", token}, {"CITY", token},  {"EMAIL", token}};
}

// Of any length, and the token throughout.
std::string Soak::memo(const std::string& token) {
    std::string text;
    for (std::size_t i = pick(40) + 1; i > 0; --i) text += token + ";";
    return text;
}

// What the current record says agrees with itself.
void Soak::expect_whole(int area) {
    const bool contact = area == kNamesArea;
    const std::string token = text(area, contact ? "LAST" : "TOPIC");
    if (token.find('.') == std::string::npos) return;  // a record of the sample
    const auto complain = [&](const std::string& other) {
        throw Violation{"record " + std::to_string(at_.table(area).record_number()) + " of " +
                        std::to_string(area) + " says " + token + " and " + other};
    };
    if (contact) {
        for (const char* field : {"FIRST", "LABEL1", "LABEL4", "CITY", "EMAIL"}) {
            const std::string other = text(area, field);
            if (!token.starts_with(other.substr(0, 20)) || other.empty()) complain(other);
        }
    }
    const Value memo = at_.session().areas.field(area, contact ? "NOTES" : "NOTE");
    std::string_view rest = memo.text();
    for (; !rest.empty(); rest.remove_prefix(token.size() + 1)) {
        if (!rest.starts_with(token + ";")) complain(std::string(rest.substr(0, 40)));
    }
}

void Soak::add() {
    const std::string token = new_token();
    Workstation::Values values = contact(token);
    values.emplace_back("NOTES", memo(token));
    const std::string identifier = at_.add(kNamesArea, values);
    result_ = " 1 " + identifier + " " + token;
    if (contacts_.size() < kMostOwnRecords) contacts_.push_back(identifier);
}

void Soak::edit() {
    if (contacts_.empty()) return;
    const std::string token = new_token(), identifier = contacts_[pick(contacts_.size())];
    Workstation::Values values = contact(token);
    values.emplace_back("NOTES", memo(token));
    at_.edit(kNamesArea, identifier, values);
    result_ = " 1 " + identifier + " " + token;
}

// What everybody edits.
void Soak::share() {
    at_.table(kNamesArea).go_to(1);
    const std::string identifier = text(kNamesArea, "U_ID");
    at_.edit(kNamesArea, identifier, {{"FIRST", new_token()}});
}

void Soak::matter() {
    const std::string token = new_token();
    const std::string contact = contacts_.empty() ? "" : contacts_[pick(contacts_.size())];
    const std::string identifier =
        at_.add(kMattersArea, {{"MATTER", token}, {"CASENUM", token}}, contact);
    result_ = " 3 " + identifier + " " + token;
}

void Soak::note() {
    const std::string token = new_token();
    const Workstation::Values values = {{"TOPIC", token}, {"NOTE", memo(token)}};
    if (notes_.empty() || (notes_.size() < kMostOwnRecords && pick(2) == 0)) {
        notes_.push_back(at_.add(kNotes, values));
    } else {
        at_.edit(kNotes, notes_[pick(notes_.size())], values);
        return;
    }
    result_ = " 4 " + notes_.back() + " " + token;
}

// Any note of anybody: marked deleted, and reported.
void Soak::remove() {
    Table& notes = at_.table(kNotes);
    const RecordNumber count = notes.record_count();
    if (count == 0) return;
    const auto record = static_cast<RecordNumber>(1 + pick(count));
    at_.session().areas.select(kNotes);
    notes.go_to(record);
    if (notes.deleted() || text(kNotes, "U_ID").empty() || !notes.lock_record(record)) return;
    notes.mark_deleted();
    at_.report_deleted(kNotes, record);  // under the lock, or somebody else recycles it before
    notes.unlock_all();
}

// The first deleted note that nobody else is at becomes another one; its identifier stays.
void Soak::recycle() {
    Table& notes = at_.table(kNotes);
    notes.set_order("DELETED");
    notes.go_top();
    const RecordNumber record = notes.end_of_file() ? 0 : notes.record_number();
    if (record != 0 && notes.lock_record(record)) {
        if (notes.deleted()) {
            const std::string token = new_token();
            WorkAreas& areas = at_.session().areas;
            notes.recall();
            areas.set_field(kNotes, "TOPIC", token);
            areas.set_field(kNotes, "NOTE", memo(token));
        }
        notes.unlock_all();
    }
    notes.set_order("U_ID");
}

// What was acknowledged is found, at once and every time.
void Soak::seek() {
    if (contacts_.empty()) return;
    const std::string& identifier = contacts_[pick(contacts_.size())];
    Table& names = at_.table(kNamesArea);
    names.set_order("U_ID");
    if (!names.seek(identifier, SeekMode::kHard, SeekEnd::kFirst)) {
        throw Violation{"contact " + identifier + " is not found"};
    }
    expect_whole(kNamesArea);
    const std::string key = upper(at_.session().areas.field(kNamesArea, "LAST").text()) +
                            upper(at_.session().areas.field(kNamesArea, "FIRST").text());
    names.set_order("NAME");
    if (!names.seek(key, SeekMode::kHard, SeekEnd::kFirst)) {
        throw Violation{"contact " + identifier + " is not found as " + key};
    }
}

// Identifiers never change, so a walk through them meets each once, in order, and misses none that
// was there when it began.
void Soak::walk() {
    Table& names = at_.table(kNamesArea);
    names.set_order("U_ID");
    std::set<std::string> missing(contacts_.begin(), contacts_.end());
    const bool forward = pick(2) == 0;
    std::string last;
    RecordNumber steps = 0;
    forward ? names.go_top() : names.go_bottom();
    while (forward ? !names.end_of_file() : !names.beginning_of_file()) {
        const std::string identifier = text(kNamesArea, "U_ID");
        if (!last.empty() && !identifier.empty() &&
            (forward ? identifier <= last : identifier >= last)) {
            throw Violation{"a walk came from " + last + " to " + identifier};
        }
        if (++steps > names.record_count() + 1000) throw Violation{"a walk without an end"};
        expect_whole(kNamesArea);
        missing.erase(identifier);
        if (!identifier.empty()) last = identifier;
        names.skip(forward ? 1 : -1);
    }
    if (!missing.empty()) throw Violation{"a walk missed " + *missing.begin()};
}

}  // namespace
}  // namespace brenik::faults

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    using namespace brenik::faults;
    brenik::platform::File log =
        brenik::platform::File::open(argv[4], brenik::platform::OpenMode::kAppend);
    const auto complain = [&](const std::string& what) {
        const std::string line = what + "\n";
        log.write_at(0, {reinterpret_cast<const std::uint8_t*>(line.data()), line.size()});
        return 3;
    };
    try {
        Soak(argv[1], argv[2], argv[4]).work_for(std::chrono::seconds(std::atoi(argv[3])));
    } catch (const Violation& violation) {
        return complain("violation: " + violation.what);
    } catch (const Refused& refused) {
        return complain("violation: start-up answers " + std::to_string(refused.code));
    } catch (const std::exception& fault) {
        return complain(std::string("violation: ") + fault.what());
    }
    return 0;
}
