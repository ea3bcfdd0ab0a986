// Runs on a whole table, each in a process of its own.

#include "whole_runs.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>

#include "contact_examples.h"
#include "engine/maintenance/repair_table.h"
#include "engine/make/create_table.h"
#include "measuring.h"
#include "practice/catalogue.h"
#include "random.h"
#include "sqlite_store.h"
#include "tables.h"
#include "workload.h"

namespace brenik::bench {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

namespace {

constexpr std::size_t kMostAppends = 20000;

void run_operation(Workload& workload, const std::string& name, std::size_t runs) {
    for (const Operation& operation : workload.operations()) {
        if (operation.name != name) continue;
        for (std::size_t i = 0; i < runs; ++i) operation.run();
        return;
    }
    give_up("no operation " + name);
}

std::vector<make::TagDefinition> tags_of(const fs::path& path) {
    const auto engine = new_engine();
    const auto table = open_table(*engine, path);
    std::vector<make::TagDefinition> tags;
    for (std::size_t order = 1; order <= table->order_count(); ++order) {
        const OrderDescription tag = table->order_description(order);
        tags.push_back(
            {tag.name, tag.key, tag.condition, tag.unique, tag.candidate, tag.descending});
    }
    return tags;
}

void run_here(const std::string& name, const fs::path& practice) {
    const fs::path contacts = practice / (std::string(practice::kNames.file) + ".DBF");
    if (name == "rebuild") return make::create_index(contacts.string(), tags_of(contacts));
    if (name == "reindex") {
        const auto done = maintenance::reindex_table(
            contacts.string(), {}, [](const auto&) {}, [](const auto&, auto, auto) {});
        expect(done == maintenance::RepairResult::kWhole, "the index was not rebuilt");
        return;
    }
    const auto engine = new_engine();
    const std::size_t records = open_table(*engine, contacts)->record_count();
    const auto workload = seam_workload(practice);
    if (name == "walk") {
        run_operation(*workload, "walk", records / kSteps);
    } else {
        run_operation(*workload, "append-whole", std::min(records, kMostAppends));
    }
}

void run_in_peer(const std::string& name, const fs::path& practice) {
    SqliteStore store(practice / kPeerFile);
    if (name == "rebuild" || name == "reindex") {
        store.rebuild_indexes();
    } else if (name == "walk") {
        for (std::int64_t left = store.count(); left > 0; --left) store.step_by_name();
    } else {
        const auto engine = new_engine();
        const ContactExamples examples(*open_table(*engine, practice / practice::kNames.file));
        Random random;
        const auto appends = std::min(static_cast<std::size_t>(store.count()), kMostAppends);
        for (std::size_t i = 0; i < appends; ++i) store.add_complete(examples.next(random));
    }
}

// The system's own figure for a child begins with what its parent used, so a process reads its own.
double peak_mb() {
    std::ifstream facts("/proc/self/status");
    for (std::string line; std::getline(facts, line);) {
        if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) / 1024;
    }
    give_up("the system does not tell the peak of memory");
}

}  // namespace

Json run_whole(const WholeRun& run, const fs::path& practice) {
    const auto work = [&](std::size_t) {
        run.peer ? run_in_peer(run.name, practice) : run_here(run.name, practice);
    };
    const Cost cost = costs_in_turn({{run.name, work}}, {1, 1, 1}).front();
    return {{"processor_s", cost.processor_us / 1e6},
            {"elapsed_s", cost.elapsed_us / 1e6},
            {"peak_mb", peak_mb()}};
}

Json run_whole_apart(const WholeRun& run, const fs::path& practice, int times) {
    const std::string command = fs::read_symlink("/proc/self/exe").string() + " --alone " +
                                run.name + (run.peer ? " --peer sqlite" : "") + " --in " +
                                practice.string();
    Json best;
    for (int i = 0; i < times; ++i) {
        FILE* output = popen(command.c_str(), "r");
        expect(output != nullptr, "cannot start another process");
        std::array<char, 4096> text{};
        const std::size_t size = std::fread(text.data(), 1, text.size(), output);
        expect(pclose(output) == 0, "a run in another process has failed");
        Json result = Json::parse(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(size));
        if (best.is_null() || result["processor_s"] < best["processor_s"]) best = result;
    }
    return best;
}

}  // namespace brenik::bench
