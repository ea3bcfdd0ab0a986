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
#include <cstdlib>
#include <random>
#include <set>
#include <vector>

#include "engine/orders.h"
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

void write(platform::File& log, const std::string& line) {
    const std::string bytes = line + "\n";
    if (log.lost()) log.reopen();
    log.write_at(0, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

class Soak {
  public:
    Soak(const std::string& folder, const std::string& seed, platform::File& log)
        : at_(folder), seed_(seed), random_(static_cast<unsigned>(std::stoul(seed))), log_(log) {}

    void work_for(std::chrono::seconds time) {
        for (const auto end = Clock::now() + time; Clock::now() < end;) work_once();
        at_.shut_down();
    }

  private:
    std::string new_token() { return "W" + seed_ + "." + std::to_string(++tokens_); }
    std::size_t pick(std::size_t count) { return random_() % count; }
    const std::string& pick(const std::vector<std::string>& from) {
        return from[pick(from.size())];
    }
    void written(int table, const std::string& identifier, const std::string& token) {
        result_ = " " + std::to_string(table) + " " + identifier + " " + token;
    }
    // Of any length, and the token throughout.
    std::string memo(const std::string& token) {
        std::string text;
        for (std::size_t i = pick(40) + 1; i > 0; --i) text += token + ";";
        return text;
    }
    Workstation::Values contact(const std::string& token) {
        return {{"LAST", token}, {"FIRST", token}, {"LABEL1", token},     {"LABEL4", token},
                {"CITY", token}, {"EMAIL", token}, {"NOTES", memo(token)}};
    }
    std::string text(int area, const char* field) {
        return std::string(trim_right(at_.session().areas.field(area, field).text()));
    }

    void work_once() {
        static constexpr struct {
            const char* name;
            unsigned weight;
            void (Soak::*run)();
        } kWork[] = {
            {"add", 4, &Soak::add},         {"edit", 4, &Soak::edit}, {"share", 1, &Soak::share},
            {"matter", 1, &Soak::matter},   {"note", 2, &Soak::note}, {"delete", 1, &Soak::remove},
            {"recycle", 1, &Soak::recycle}, {"seek", 4, &Soak::seek}, {"walk", 1, &Soak::walk},
        };
        constexpr std::size_t kAllWeights = 19;
        const auto* work = kWork;
        for (std::size_t drawn = pick(kAllWeights); drawn >= work->weight; ++work)
            drawn -= work->weight;
        result_.clear();
        const auto begin = Clock::now();
        std::string name = work->name;
        try {
            at_.guarded([&] { (this->*work->run)(); });
        } catch (const Refused& refused) {
            name = "refused " + name + " " + std::to_string(refused.code);
        }
        const auto time =
            std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
        write(log_, name + " " + std::to_string(time.count()) + result_);
    }

    // What the current record says agrees with itself.
    void expect_whole(int area) {
        const bool contact = area == kNamesArea;
        const std::string token = text(area, contact ? "LAST" : "TOPIC");
        if (token.find('.') == std::string::npos) return;  // a record of the sample
        const auto complain = [&](const std::string& other) {
            throw Violation{"record " + std::to_string(at_.table(area).record_number()) + " of " +
                            std::to_string(area) + " says " + token + " and " + other};
        };
        for (const char* field : {"FIRST", "LABEL1", "LABEL4", "CITY", "EMAIL"}) {
            const std::string other = contact ? text(area, field) : token;
            if (!token.starts_with(other.substr(0, 20)) || other.empty()) complain(other);
        }
        const Value memo = at_.session().areas.field(area, contact ? "NOTES" : "NOTE");
        std::string_view rest = memo.text();
        for (; !rest.empty(); rest.remove_prefix(token.size() + 1)) {
            if (!rest.starts_with(token + ";")) complain(std::string(rest.substr(0, 40)));
        }
    }

    void add() {
        const std::string token = new_token(), identifier = at_.add(kNamesArea, contact(token));
        written(kNamesArea, identifier, token);
        if (contacts_.size() < kMostOwnRecords) contacts_.push_back(identifier);
    }

    void edit() {
        if (contacts_.empty()) return;
        const std::string token = new_token(), identifier = pick(contacts_);
        at_.edit(kNamesArea, identifier, contact(token));
        written(kNamesArea, identifier, token);
    }

    // What everybody edits.
    void share() {
        at_.table(kNamesArea).go_to(1);
        const std::string identifier = text(kNamesArea, "U_ID");
        at_.edit(kNamesArea, identifier, {{"FIRST", new_token()}});
    }

    void matter() {
        const std::string token = new_token(), contact = contacts_.empty() ? "" : pick(contacts_);
        const Workstation::Values values = {{"MATTER", token}, {"CASENUM", token}};
        written(kMattersArea, at_.add(kMattersArea, values, contact), token);
    }

    void note() {
        const std::string token = new_token();
        const Workstation::Values values = {{"TOPIC", token}, {"NOTE", memo(token)}};
        const bool add = notes_.empty() || (notes_.size() < kMostOwnRecords && pick(2) == 0);
        if (!add) return at_.edit(kNotes, pick(notes_), values);
        notes_.push_back(at_.add(kNotes, values));
        written(kNotes, notes_.back(), token);
    }

    // Any note of anybody: marked deleted, and reported.
    void remove() {
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
    void recycle() {
        Table& notes = at_.table(kNotes);
        set_order(notes, "DELETED");
        notes.go_top();
        const RecordNumber record = notes.end_of_file() ? 0 : notes.record_number();
        if (record != 0 && notes.lock_record(record)) {
            if (notes.deleted()) {
                const std::string token = new_token();
                notes.recall();
                at_.session().areas.set_field(kNotes, "TOPIC", token);
                at_.session().areas.set_field(kNotes, "NOTE", memo(token));
            }
            notes.unlock_all();
        }
        set_order(notes, "U_ID");
    }

    // What was acknowledged is found, at once and every time.
    void seek() {
        if (contacts_.empty()) return;
        const std::string& identifier = pick(contacts_);
        const auto find = [&](const char* order, const std::string& key) {
            Table& names = at_.table(kNamesArea);
            set_order(names, order);
            if (names.seek(key, SeekMode::kHard, SeekEnd::kFirst)) return;
            throw Violation{"contact " + identifier + " is not found as " + key};
        };
        find("U_ID", identifier);
        expect_whole(kNamesArea);
        WorkAreas& areas = at_.session().areas;
        find("NAME", upper(areas.field(kNamesArea, "LAST").text()) +
                         upper(areas.field(kNamesArea, "FIRST").text()));
    }

    // Identifiers never change, so a walk through them meets each once, in order, and misses none
    // that was there when it began.
    void walk() {
        Table& names = at_.table(kNamesArea);
        set_order(names, "U_ID");
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

    Workstation at_;
    std::string seed_;
    std::mt19937 random_;
    platform::File& log_;
    std::vector<std::string> contacts_;  // added by this workstation
    std::vector<std::string> notes_;
    int tokens_ = 0;
    std::string result_;  // of the work at hand, for the log
};

}  // namespace
}  // namespace brenik::faults

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    using namespace brenik::faults;
    auto log = brenik::platform::File::open(argv[4], brenik::platform::OpenMode::kAppend);
    try {
        Soak(argv[1], argv[2], log).work_for(std::chrono::seconds(std::atoi(argv[3])));
        return 0;
    } catch (const Violation& violation) {
        write(log, "violation: " + violation.what);
    } catch (const Refused& refused) {
        write(log, "violation: start-up answers " + std::to_string(refused.code));
    } catch (const std::exception& fault) {
        write(log, std::string("violation: ") + fault.what());
    }
    return 3;
}
