// What a check reports: findings, each with its place and its remedy.
//
// A check reports every fault and continues past it. It works beside programs that use the table:
// it checks suspicious keys and the record count again under the locks that a change would hold,
// and reads suspicious memo pointers a second time, so that it rarely takes a half-done change for
// damage.

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

enum class Remedy {
    kNothing,
    kRepair,
    kReindex,
    kRestore,
    kByHand,
    kTryAgain,
    kPermit,  // let this user open the file
    kTell
};

struct Finding {
    Severity severity = Severity::kFault;
    std::string kind;  // persistent: programs distinguish findings by this word
    std::string file;
    std::string what;
    Remedy remedy = Remedy::kNothing;
    std::optional<RecordNumber> record = {};
    std::string field = {};
    std::string tag = {};
    std::uint8_t code_page = 0;              // the table's mark, for the names of field and tag
    std::optional<std::uint64_t> page = {};  // offset in the file
};

using Report = std::function<void(const Finding&)>;
// Called every few thousand records or every megabyte. No call marks the end, and short work may
// make none.
using Progress =
    std::function<void(const std::string& what, std::uint64_t done, std::uint64_t total)>;

struct CheckedTable {
    std::uint8_t code_page = 0;  // the table's mark
    RecordNumber records = 0;
    std::size_t tags = 0;
    std::size_t faults = 0;
    std::size_t notes = 0;
    std::size_t unchecked = 0;
};

}  // namespace brenik::maintenance
