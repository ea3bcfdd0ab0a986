// Work on a whole table: how long it takes, and how much memory the process comes to use.
//
//   walk     every contact in the order of names, one field read
//   rebuild  all six orders
//   reindex  the same as "brenik reindex", which checks the new index (SQLite only rebuilds)
//   append   as many contacts as there are, at most 20,000, with counter and journal
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

// The peer's database, in the practice's folder.
inline constexpr const char* kPeerFile = "peer.db";

inline constexpr const char* kWholeRuns[] = {"walk", "rebuild", "reindex", "append"};

// Runs it in this process. Returns processor and elapsed time in seconds and the peak of the memory
// in megabytes.
nlohmann::ordered_json run_whole(const WholeRun& run, const std::filesystem::path& practice);

// Runs it in a new process of this program. Of several runs, the one with the least processor time.
nlohmann::ordered_json run_whole_apart(const WholeRun& run, const std::filesystem::path& practice,
                                       int times);

}  // namespace brenik::bench
