// Work on a whole table: how long it takes, and how much memory the process comes to use.
//
//   walk     every contact in the order of names, one field read
//   append   20,000 contacts with counter and journal
//   rebuild  all six orders, as "brenik reindex" does
//
// Each run has a process of its own, because memory that one run has used would count for the next.

#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

namespace brenik::bench {

struct WholeRun {
    std::string name;
    bool peer = false;  // in SQLite
};

inline constexpr const char* kWholeRuns[] = {"walk", "append", "rebuild"};

// Runs it in this process, on a practice or on the peer's database. Returns processor and elapsed
// time in seconds and the peak of the memory in megabytes.
nlohmann::ordered_json run_whole(const WholeRun& run, const std::filesystem::path& place);

// Runs it in a new process of this program. Of several runs, the one with the least processor time.
nlohmann::ordered_json run_whole_apart(const WholeRun& run, const std::filesystem::path& place,
                                       int times);

}  // namespace brenik::bench
