// Collects what there is to tell about the engine, then prints it as text or as JSON.

#include "engine.h"

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <vector>

#include "colours.h"
#include "display.h"
#include "engine/advantage/advantage_engine.h"
#include "engine/advantage/assumptions.h"
#include "engine/advantage/client_library.h"
#include "engine/choice/choose_engine.h"
#include "engine/probes/probes.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;
using advantage::ClientLibrary;
using probes::Finding;
using probes::Verdict;

constexpr const char* kPage = "docs/reference/client-engine.md";
constexpr std::size_t kTerm = 11;

struct Facts {
    EngineSettings settings;
    EngineChoice choice;
    std::shared_ptr<const ClientLibrary> library;
    std::string problem = {};  // why the library cannot be used; empty if it can
    int server = 0;            // as Engine::server_loaded() answers; 0 without a usable library
};

Facts facts_of(const EngineRequest& request) {
    const EngineSettings settings = engine_settings(request.folder);
    Facts facts{settings, choose_engine(settings), ClientLibrary::load()};
    facts.problem = facts.library->problem();
    if (facts.problem.empty() && !probes::can_be_called(*facts.library)) {
        facts.problem = facts.library->path() +
                        " uses another calling convention, so that each call would damage the "
                        "stack; do not use it, and report this";
    }
    if (facts.problem.empty()) {
        advantage::AdvantageEngine engine(facts.library);
        engine.set_server_type(advantage::kLocalServer | advantage::kRemoteServer);
        facts.server = engine.server_loaded(request.folder);
        engine.close_all_tables();
    }
    return facts;
}

bool is_client(const Facts& facts) { return facts.choice.kind == EngineKind::kClient; }

bool can_open(const Facts& facts) {
    return !is_client(facts) || (facts.problem.empty() && facts.server != 0);
}

std::string engine_name(const Facts& facts) { return is_client(facts) ? "client" : "embedded"; }

std::string server_words(const Facts& facts) {
    if (!facts.problem.empty()) return "not asked, because the library cannot be used";
    if (facts.server == advantage::kRemoteServer) return "a remote server answers for the folder";
    if (facts.server == advantage::kLocalServer) {
        return "the library's own local server answers for the folder, no remote one does";
    }
    return "none answers for the folder";
}

// What the person should do next.
std::string next_step(const Facts& facts) {
    if (!facts.choice.warning.empty()) return "correct the key Engine in LAWSYS.INI";
    if (!is_client(facts) && asks_for_client(facts.settings)) {
        return "mend the library, if other workstations use a server; to keep this one out until "
               "then, set Engine=advantage";
    }
    if (!is_client(facts) && facts.settings.server_type == kRemoteServer) {
        return "set nServerType=0 if no server holds the practice; until then every start of a "
               "host "
               "shows the notice that the server is not there";
    }
    if (!is_client(facts)) {
        return "nothing to do; if the practice should use a database server, docs/how-to/"
               "use-a-database-server.md says how";
    }
    if (!facts.problem.empty()) {
        return "mend the library, or set Engine=embedded if no server holds the practice; until "
               "then every start of a host answers 3";
    }
    if (facts.server == 0) {
        return "start the server, and check that this computer reaches it; until then every start "
               "of a host answers 3";
    }
    const bool wants_remote = facts.settings.server_type == advantage::kRemoteServer;
    if (wants_remote && facts.server != advantage::kRemoteServer) {
        return "start the remote server, and check that this computer reaches it; until then hosts "
               "show a notice and use the local server";
    }
    return "try the library once with \"brenik engine DIR --probe\", if nobody has yet done so "
           "with this version of it";
}

std::vector<ClientLibrary::Function> missing_functions(const ClientLibrary& library) {
    std::vector<ClientLibrary::Function> missing = library.functions();
    std::erase_if(missing, [](const ClientLibrary::Function& each) { return each.found; });
    return missing;
}

std::string functions_line(const ClientLibrary& library, bool required) {
    std::uint64_t all = 0;
    std::uint64_t found = 0;
    for (const ClientLibrary::Function& each : library.functions()) {
        if (each.required != required) continue;
        ++all;
        if (each.found) ++found;
    }
    return std::to_string(found) + " of " +
           counted(all, required ? "required function" : "optional function");
}

void say(const std::string& term, const std::string& text) {
    std::cout << pad_right(term, kTerm) << to_line(text) << "\n";
}

void print_functions(const ClientLibrary& library, bool all) {
    say("functions",
        functions_line(library, true) + ", " + functions_line(library, false) + " found");
    for (const auto& each : all ? library.functions() : missing_functions(library)) {
        say("", std::string(each.found ? "found    " : "missing  ") +
                    (each.required ? "required  " : "optional  ") + each.name);
    }
}

void print_facts(const Facts& facts, const EngineRequest& request) {
    const ClientLibrary& library = *facts.library;
    say("engine", engine_name(facts));
    say("why", facts.choice.reason);
    if (!facts.choice.warning.empty()) {
        say("", coloured(Colour::kNote, "note") + ": " + facts.choice.warning);
    }
    const std::string version = library.version().empty() ? "" : ", version " + library.version();
    say("library", facts.problem.empty() ? library.path() + version : facts.problem);
    if (library.file().loaded()) print_functions(library, request.all);
    say("server", server_words(facts));
    if (!can_open(facts)) say("", coloured(Colour::kFault, "the engine can open no table"));
    say("next", next_step(facts));
}

Json or_null(const std::string& text) { return text.empty() ? Json() : Json(to_utf8(text)); }

Json json_of(const Facts& facts, const EngineRequest& request) {
    const ClientLibrary& library = *facts.library;
    Json functions = Json::array();
    for (const ClientLibrary::Function& each : library.functions()) {
        functions.push_back(
            {{"name", each.name}, {"required", each.required}, {"found", each.found}});
    }
    return {{"folder", to_utf8(request.folder)},
            {"engine", engine_name(facts)},
            {"reason", to_utf8(facts.choice.reason)},
            {"warning", or_null(facts.choice.warning)},
            {"can_open", can_open(facts)},
            {"library",
             {{"file", to_utf8(library.path())},
              {"version", or_null(library.version())},
              {"usable", facts.problem.empty()},
              {"problem", or_null(facts.problem)},
              {"functions", std::move(functions)}}},
            {"server", facts.problem.empty() ? Json(facts.server) : Json()},
            {"next", to_utf8(next_step(facts))}};
}

Json json_of_assumptions() {
    Json list = Json::array();
    for (const advantage::Assumption& each : advantage::assumptions()) {
        list.push_back({{"name", each.name},
                        {"assumed", each.what},
                        {"documented", each.documented},
                        {"probe", each.probe}});
    }
    return list;
}

const char* word_of(Verdict verdict) {
    switch (verdict) {
        case Verdict::kConfirmed:
            return "confirmed";
        case Verdict::kRefuted:
            return "refuted";
        case Verdict::kUnknown:
            return "unknown";
    }
    return "";
}

const char* server_of(const Finding& finding) {
    if (finding.server_type == advantage::kLocalServer) return "local server";
    return finding.server_type == advantage::kRemoteServer ? "remote server" : "library";
}

// Prints the findings as they come, and counts them.
class Findings {
  public:
    explicit Findings(const EngineRequest& request) : request_(request) {}

    void add(const Finding& finding) {
        ++counts_[static_cast<std::size_t>(finding.verdict)];
        if (request_.json) return list_.push_back(line_of(finding));
        const std::string server = server_of(finding);
        if (server != server_) std::cout << "\n" << server << "\n";
        server_ = server;
        std::string verdict = pad_right(word_of(finding.verdict), kTerm);
        if (finding.verdict == Verdict::kRefuted) verdict = coloured(Colour::kFault, verdict);
        std::cout << "  " << verdict << finding.probe << ": " << to_line(finding.seen) << "\n";
        if (finding.verdict == Verdict::kRefuted) {
            std::cout << std::string(kTerm + 2, ' ') << "assumed: " << finding.expected << "\n";
        }
        std::cout.flush();
    }

    void conclude(const std::string& why_none) const {
        if (request_.json) return;
        std::cout << "\n";
        if (!why_none.empty()) say("probes", why_none);
        say("probes", std::to_string(count(Verdict::kConfirmed)) + " confirmed, " +
                          std::to_string(count(Verdict::kRefuted)) + " refuted, " +
                          std::to_string(count(Verdict::kUnknown)) + " unknown");
        if (count(Verdict::kRefuted) > 0) {
            say("next", std::string(kPage) + " says what the engine does in each case");
        }
    }

    std::size_t count(Verdict verdict) const { return counts_[static_cast<std::size_t>(verdict)]; }
    const Json& list() const { return list_; }

  private:
    static Json line_of(const Finding& finding) {
        return {{"server", finding.server_type == 0 ? Json() : Json(finding.server_type)},
                {"probe", finding.probe},
                {"expected", finding.expected},
                {"verdict", word_of(finding.verdict)},
                {"seen", to_utf8(finding.seen)}};
    }

    const EngineRequest& request_;
    std::string server_;
    std::size_t counts_[3] = {0, 0, 0};
    Json list_ = Json::array();
};

}  // namespace

ExitCode print_engine(const EngineRequest& request) {
    require_folder(request.folder);
    const Facts facts = facts_of(request);
    if (!request.json) print_facts(facts, request);
    Findings findings(request);
    std::string why_none;
    if (request.probe) {
        const auto report = [&](const Finding& finding) { findings.add(finding); };
        if (!facts.library->usable()) {
            why_none = "not run, because the library cannot be used";
        } else if (!probes::run(*facts.library, request.folder, report)) {
            why_none = facts.problem.empty() ? "not run, because no server answers for the folder"
                                             : "not run, because each call would damage the stack";
        }
        findings.conclude(why_none);
    }
    if (request.json) {
        Json answer = json_of(facts, request);
        if (request.all) answer["assumptions"] = json_of_assumptions();
        answer["probes"] = request.probe ? findings.list() : Json();
        std::cout << dump(answer, 2) << "\n";
    }
    const bool good = can_open(facts) && why_none.empty() && findings.count(Verdict::kRefuted) == 0;
    return good ? ExitCode::kOk : ExitCode::kProblem;
}

}  // namespace brenik::tools
