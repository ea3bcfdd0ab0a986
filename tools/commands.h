// The commands of the tool as one table: what each is for, takes, prints and returns.
//
// The parser, the help, the manual pages and the completion of the shell are made from it. A new
// option is one row in commands.cpp and a member of the command's request.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "call.h"
#include "check.h"
#include "doctor.h"
#include "engine.h"
#include "faults.h"
#include "journal.h"
#include "manual.h"
#include "practice.h"
#include "repair.h"
#include "sample.h"
#include "show.h"

namespace brenik::tools {

// Where the value of an option goes. A flag has a bool; an option that may be repeated has a
// vector.
using Target = std::variant<bool*, int*, std::uint32_t*, std::optional<std::uint32_t>*,
                            std::string*, std::optional<std::string>*, std::vector<std::string>*>;

// Other options that an option needs or excludes, as names separated by blanks; bounds of a number.
struct Rules {
    std::string_view needs = {};  // at least one of these
    std::string_view excludes = {};
    std::int64_t least = 0;
    std::int64_t most = UINT32_MAX;
};

struct Option {
    // "--limit" is an option, "DIR" a required argument, "[TABLE]" an argument that may be left
    // out.
    std::string_view name;
    // The word for the option's value; empty for flags and arguments. The words DIR, PATH and
    // TABLE, here and as names of arguments, also tell the shell what to complete.
    std::string_view value;
    std::string_view help;
    Target target;
    Rules rules = {};

    bool is_argument() const { return !name.starts_with('-'); }
    bool is_required() const { return is_argument() && !name.starts_with('['); }
    bool is_flag() const { return std::holds_alternative<bool*>(target); }
    // The word that stands for the value: DIR for "DIR", "[DIR]" and "--backup DIR".
    std::string_view word() const;
    // The value without the option on the command line; empty if there is none to tell.
    std::string default_text() const;
};

struct Example {
    std::string_view arguments;  // without the name of the tool
    std::string_view meaning;
};

struct Ending {
    ExitCode code;
    std::string_view meaning;
};

struct Command {
    std::string_view name;
    std::string_view purpose;  // one line, without a full stop
    std::string_view about;    // a paragraph
    std::vector<Option> options;
    std::vector<Example> examples;
    std::vector<Ending> endings;  // besides success and wrong usage
    std::function<ExitCode()> run;
};

// The requests of all commands, which the targets point to.
struct Requests {
    SampleRequest sample;
    ShowRequest show;
    JournalRequest journal;
    FaultsRequest faults;
    CallRequest call;
    CheckRequest check;
    RepairRequest repair;
    RepairRequest reindex;
    DoctorRequest doctor;
    EngineRequest engine;
    ManualRequest manual;
};

// In the order in which the overview lists them. REQUIRES: `requests` outlives the result.
std::vector<Command> make_commands(Requests& requests);

}  // namespace brenik::tools
