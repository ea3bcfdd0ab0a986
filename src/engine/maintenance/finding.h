// What a check reports: findings, each with its place and its remedy.
//
// A check reports every fault and continues past it. It works beside programs that use the table:
// every suspicion is checked again under the locks that a change would hold, so that a half-done
// change is not taken for damage.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "engine/record_number.h"

namespace brenik::maintenance {

enum class Severity {
    kFault,
    kNote,       // harmless, or how other programs leave their files
    kUnchecked,  // could not be checked: another program holds a lock, or the file cannot be opened
};

enum class Remedy { kNothing, kRepair, kReindex, kRestore, kByHand, kTryAgain, kTell };

struct Finding {
    Severity severity = Severity::kFault;
    std::string kind;  // persistent: programs distinguish findings by this word
    std::string file;
    std::string what;
    Remedy remedy = Remedy::kNothing;
    std::optional<RecordNumber> record = {};
    std::string field = {};
    std::string tag = {};
    std::optional<std::uint64_t> page = {};  // offset in the file
};

using Report = std::function<void(const Finding&)>;
// Called at intervals during long work; the last call has `done` equal to `total`.
using Progress =
    std::function<void(const std::string& what, std::uint64_t done, std::uint64_t total)>;

struct CheckedTable {
    RecordNumber records = 0;
    std::size_t tags = 0;
    std::size_t faults = 0;
    std::size_t notes = 0;
    std::size_t unchecked = 0;
};

}  // namespace brenik::maintenance
