// Reports what the system says about the folder, then the results of the trials.

#include "doctor.h"

#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "colours.h"
#include "display.h"
#include "doctor_partner.h"
#include "doctor_trials.h"
#include "platform/share.h"
#include "progress.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;

constexpr ExitCode kNobodyCame = ExitCode::kLocked;
constexpr const char* kRemount = "write nothing there until then";
constexpr int kLastWords_ms = 10'000;

std::string in_ms(double duration) {
    char text[40];
    std::snprintf(text, sizeof text, "%.3f ms", duration);
    return text;
}

// Prints each trial as it ends, or with --json all of them at the end.
class Opinion {
  public:
    explicit Opinion(const DoctorRequest& request)
        : request_(request),
          trials_(static_cast<std::uint64_t>(request.with ? trials_with() : trials_alone())) {}

    bool sound() const { return sound_; }

    void add_facts(const platform::ShareFacts& facts) {
        answer_ = {{"folder", to_utf8(request_.folder)},
                   {"remote", facts.remote},
                   {"type", facts.type},
                   {"options", facts.options},
                   {"doubtful", facts.doubtful},
                   {"with", request_.with},
                   {"trials", Json::array()}};
        say(request_.folder + ": " + (facts.remote ? "on a share" : "no share") +
            (facts.type.empty() ? "" : ", " + facts.type) +
            (facts.options.empty() ? "" : " (" + facts.options + ")"));
        if (!facts.unsound.empty()) return add({"mount", facts.unsound, kRemount, ""});
        if (facts.doubtful.empty()) return add({"mount", "", "", "no unsafe option found"});
        answer_["trials"].push_back(line_of({"mount", "", "", facts.doubtful}));
        say(coloured(Colour::kNote, "doubt") + "  mount: " + facts.doubtful);
    }

    void add(const Trial& trial) {
        const bool good = trial.fault.empty();
        sound_ = sound_ && good;
        answer_["trials"].push_back(line_of(trial));
        say(good ? "ok     " + trial.name + ": " + trial.good
                 : coloured(Colour::kFault, "UNSOUND") + " " + trial.name + ": " + trial.fault +
                       "; " + trial.remedy);
    }

    void add_and_go_on(const Trial& trial) {
        add(trial);
        bar_.show(request_.with ? "of two workstations" : "of this workstation", ++tried_, trials_);
    }

    void add_times(const RoundTrips& times) {
        if (times.count == 0) return;
        add_times("lock_and_unlock", "a lock and its unlock", times.count, times.lock);
        add_times("size", "asking for a size", times.count, times.size);
    }

    // `stopped` is the reason why some trials were not made; empty if all were.
    ExitCode conclude(const std::string& stopped) {
        const char* verdict = !sound_ ? "unsound" : !stopped.empty() ? "unfinished" : "sound";
        answer_["stopped"] = to_utf8(stopped);
        answer_["verdict"] = verdict;
        if (!stopped.empty()) say("stopped: " + stopped);
        say(request_.folder + ": " + verdict + (sound_ && stopped.empty() ? meaning() : ""));
        if (request_.json) std::cout << dump(answer_, 2) << "\n";
        if (!sound_) return ExitCode::kProblem;
        return stopped.empty() ? ExitCode::kOk : kNobodyCame;
    }

  private:
    static Json line_of(const Trial& trial) {
        const bool good = trial.fault.empty();
        return {{"trial", trial.name},
                {"sound", good},
                {"what", to_utf8(good ? trial.good : trial.fault)},
                {"remedy", trial.remedy}};
    }

    const char* meaning() const {
        return request_.with ? " between these two workstations"
                             : " as far as one workstation can tell; this proves nothing about "
                               "others: run \"brenik doctor DIR --with\" on two";
    }

    void add_times(const char* key, const char* what, int count, const Times& times) {
        answer_["times"][key] = {
            {"count", count}, {"median_ms", times.median_ms}, {"longest_ms", times.longest_ms}};
        say("time   " + std::string(what) + ": median " + in_ms(times.median_ms) + ", longest " +
            in_ms(times.longest_ms) + " of " + std::to_string(count));
    }

    void say(const std::string& line) {
        bar_.clear();
        if (!request_.json) std::cout << to_line(line) << std::endl;
    }

    const DoctorRequest& request_;
    ProgressBar bar_{"trials"};
    std::uint64_t trials_;
    std::uint64_t tried_ = 0;
    Json answer_;
    bool sound_ = true;
};

}  // namespace

ExitCode doctor(const DoctorRequest& request) {
    Opinion opinion(request);
    Scratch scratch(request.folder);
    opinion.add_facts(platform::share_facts(request.folder));
    const auto report = [&](const Trial& trial) { opinion.add_and_go_on(trial); };
    if (!request.with) {
        opinion.add_times(try_alone(scratch, report));
        return opinion.conclude("");
    }
    std::cerr << "brenik: waiting " << request.wait_s
              << " s for \"brenik doctor --with\" on another workstation" << std::endl;
    ProgressBar bar("waiting");
    const std::uint64_t limit_ms = static_cast<std::uint64_t>(request.wait_s) * 1000;
    const auto waiting = [&](std::int64_t elapsed_ms) {
        bar.show("for the other workstation", static_cast<std::uint64_t>(elapsed_ms), limit_ms);
    };
    std::optional<Partner> partner = Partner::find(scratch, request.wait_s, waiting);
    bar.clear();
    if (!partner) return opinion.conclude("nobody came");
    std::string stopped;
    try {
        opinion.add_times(try_with(scratch, *partner, opinion.sound(), report));
        scratch.wait_until_read(kLastWords_ms);
    } catch (const NoAnswer& reason) {
        stopped = reason.what();
    }
    return opinion.conclude(stopped);
}

}  // namespace brenik::tools
