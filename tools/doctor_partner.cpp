// Scratch files are named brenik-doctor-1-NAME-WHAT: 1 is the version of the protocol, NAME the
// doctor's name. WHAT is "here" while the doctor waits for a partner, "OTHER-NUMBER-WORD" for a
// message to another doctor, and anything else for a file of a trial.

#include "doctor_partner.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <random>
#include <system_error>

#include "native_path.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "practice.h"
#include "reason.h"

namespace brenik::tools {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kPrefix = "brenik-doctor-1-";
constexpr int kFirstLooks_ms = 20;  // poll interval while the answer is expected at once
constexpr int kLook_ms = 200;
constexpr std::chrono::seconds kAtOnce(2);
constexpr std::chrono::hours kLeftoverAge(1);  // longer than any run of a doctor
constexpr int kGreeting_s = 10;

// Polls until there is an answer or the limit has passed.
template <typename Question>
auto ask_within(int limit_ms, Question question) {
    const auto begin = Clock::now();
    const auto end = begin + std::chrono::milliseconds(limit_ms);
    for (;;) {
        auto answer = question();
        const auto now = Clock::now();
        if (answer || now >= end) return answer;
        platform::system_clock().pause(now - begin < kAtOnce ? kFirstLooks_ms : kLook_ms);
    }
}

std::string made_up_name() {
    std::random_device chance;
    char name[17];
    std::snprintf(name, sizeof name, "%08x%08x", static_cast<unsigned>(chance()),
                  static_cast<unsigned>(chance()));
    return name;
}

std::string numbered(const std::string& reader, int number, const std::string& word) {
    return reader + "-" + std::to_string(number) + "-" + word;
}

}  // namespace

Scratch::Scratch(std::string folder) : folder_(std::move(folder)), own_name_(made_up_name()) {
    require_folder(folder_);
    make_note("here");
    clear_leftovers();
}

Scratch::~Scratch() {
    for (const std::string& path : made_) platform::remove_file(path);
}

std::string Scratch::path_of(const std::string& doctor, const std::string& what) const {
    return folder_ + "/" + kPrefix + doctor + "-" + what;
}

std::string Scratch::own_path(const std::string& what) {
    std::string path = path_of(own_name_, what);
    made_.insert(path);
    return path;
}

// Opens the note as a log, because that takes no lock.
void Scratch::make_note(const std::string& what) {
    const std::string path = own_path(what);
    const platform::File note = platform::File::open(path, platform::OpenMode::kRewrite);
    if (!note.is_open()) {
        throw ToolError(ExitCode::kCannotOpen,
                        folder_ + ": cannot create a file there: " + note.why_not_open());
    }
    notes_.insert(own_name_ + "-" + what);
}

void Scratch::remove(const std::string& doctor, const std::string& what) {
    platform::remove_file(path_of(doctor, what));
    if (doctor == own_name_) notes_.erase(doctor + "-" + what);
}

std::vector<std::string> Scratch::list() const {
    const std::string prefix = kPrefix;
    std::vector<std::string> found;
    std::error_code error;
    for (fs::directory_iterator entry(native_path(platform::system_path(folder_)), error), end;
         !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (name.starts_with(prefix)) found.push_back(name.substr(prefix.size()));
    }
    if (error) throw ToolError(ExitCode::kCannotOpen, folder_ + ": " + reason_of(error));
    return found;
}

void Scratch::wait_until_read(int limit_ms) const {
    ask_within(limit_ms, [&] {
        return std::ranges::none_of(list(),
                                    [&](const std::string& name) { return notes_.contains(name); });
    });
}

// Compares ages with a file of ours, because the server's clock may differ.
void Scratch::clear_leftovers() const {
    std::error_code error;
    const auto now = fs::last_write_time(native_path(path_of(own_name_, "here")), error);
    if (error) return;
    for (const std::string& name : list()) {
        const std::string path = folder_ + "/" + kPrefix + name;
        const auto then = fs::last_write_time(native_path(path), error);
        if (!error && now - then > kLeftoverAge) platform::remove_file(path);
    }
}

// Each doctor makes an offer to every doctor present whose name sorts before its own, and accepts
// one of the offers it gets. An offer to a doctor that was killed is never accepted. A doctor that
// was killed after an offer never says "begin", so its partner withdraws the acceptance.
std::optional<Partner> Partner::find(Scratch& scratch, int limit_s, const Waiting& waiting) {
    const auto begin = Clock::now();
    const std::string& own = scratch.own_name();
    const std::string here = "-here";
    std::set<std::string> offered, passed;
    // The first case: our offer was accepted. The second: we accept an offer, and the partner must
    // say "begin".
    const auto look = [&]() -> std::optional<Partner> {
        waiting(
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count());
        const std::vector<std::string> names = scratch.list();
        for (const std::string& name : names) {
            const std::string other = name.substr(0, name.find('-'));
            const std::string told = name.substr(std::min(other.size() + 1, name.size()));
            if (other < own && told == numbered(own, 0, "taken")) {
                scratch.remove(other, told);
                Partner partner(scratch, other);
                partner.tell("begin");
                return partner;
            }
            if (other > own && told == numbered(own, 0, "offer") && passed.insert(other).second) {
                scratch.remove(other, told);
                scratch.make_note(numbered(other, 0, "taken"));
                Partner partner(scratch, other);
                try {
                    if (partner.hear(kGreeting_s) == "begin") return partner;
                } catch (const NoAnswer&) {
                    scratch.remove(own, numbered(other, 0, "taken"));
                }
            }
            if (other < own && name == other + here && offered.insert(other).second) {
                scratch.make_note(numbered(other, 0, "offer"));
            }
        }
        return std::nullopt;
    };
    std::optional<Partner> found = ask_within(limit_s * 1000, look);
    scratch.remove(own, "here");
    for (const std::string& other : offered) scratch.remove(own, numbered(other, 0, "offer"));
    return found;
}

void Partner::tell(const std::string& word) { scratch_->make_note(numbered(name_, ++told_, word)); }

std::string Partner::hear(int limit_s) {
    const std::string next = name_ + "-" + numbered(scratch_->own_name(), heard_ + 1, "");
    const auto look = [&]() -> std::optional<std::string> {
        for (const std::string& name : scratch_->list()) {
            if (name.starts_with(next)) return name.substr(next.size());
        }
        return std::nullopt;
    };
    const std::optional<std::string> word = ask_within(limit_s * 1000, look);
    if (!word) {
        throw NoAnswer("the other workstation did not answer within " + std::to_string(limit_s) +
                       " s");
    }
    ++heard_;
    scratch_->remove(name_, numbered(scratch_->own_name(), heard_, *word));
    return *word;
}

}  // namespace brenik::tools
