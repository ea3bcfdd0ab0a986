// One session: all state that the operations of one host share, in one object.
//
// The exports own the only session of a process; tests create as many as they need. Every routine
// above the engine takes the session as its first argument, and there is no other mutable state.
// Before StartUp a session has no settings and no tables, and its queries return neutral values.

#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "engine/engine_choice.h"
#include "engine/work_areas.h"
#include "platform/clock.h"
#include "platform/file.h"
#include "platform/ui.h"
#include "practice/catalogue.h"
#include "session/module_state.h"
#include "session/yielding_ui.h"
#include "util/date.h"
#include "util/value.h"

namespace brenik {

// Work areas with a fixed table; hosts pass these numbers.
inline constexpr int kNamesArea = practice::kNames.area;
inline constexpr int kEventsArea = practice::kEvents.area;
inline constexpr int kMattersArea = practice::kMatters.area;
inline constexpr int kNotesArea = practice::kNotes.area;
inline constexpr int kSystemArea = practice::kSystem.area;
inline constexpr int kCodesArea = practice::kCodes.area;
inline constexpr int kCrossReferenceArea = practice::kCrossReferences.area;
inline constexpr int kSecondNotesArea = practice::kSecondNotesArea;
inline constexpr int kJournalArea = practice::kJournal.area;

// Slots of the settings table that the library reads, counted from 1, under their established
// names.
// NOLINTNEXTLINE(readability-identifier-naming)
enum class Setting : std::size_t { SharedUse = 2, ServerType = 5, WinIniFile = 22, DataPath = 24 };

// The session's variables, which every StartUp resets.
struct SessionVariables {
    ArrayReference PUBLICVARS;  // the settings table
    Date TODAY;                 // the date of start-up
    std::string MOPERATOR;      // recorded as the operator of added records
    bool LTRACE = false;        // tracing on or off
    bool inherited = false;     // begun by the parent of this forked process
};

// Two hooks for the companion batch program: whether it runs, and running it with a switch.
struct CompanionHooks {
    std::function<bool()> is_running = [] { return false; };
    std::function<void(const std::string& command_line)> run = [](const std::string&) {};
};

struct Session {
    Session(EngineChooser chooser, platform::Clock& session_clock,
            platform::UserInterface& session_ui)
        : choose_engine_(std::move(chooser)), clock(session_clock), ui(session_ui, areas) {}
    // For a caller that supplies the engine, which must outlive the session and is always chosen.
    Session(Engine& engine, platform::Clock& session_clock, platform::UserInterface& session_ui)
        : clock(session_clock), ui(session_ui, areas) {
        areas.set_engine(engine);
    }

    // Nil before the first StartUp.
    Value setting(Setting slot) const {
        const auto index = static_cast<std::size_t>(slot) - 1;
        const ArrayReference& table = variables.PUBLICVARS;
        return table && index < table->size() ? (*table)[index] : Value();
    }
    // The data folder as an absolute path that ends in a backslash; empty before the first StartUp.
    // The setting DataPath keeps the host's spelling.
    const std::string& data_path() const { return areas.default_folder(); }
    // Resolves a relative file name in the data folder.
    std::string path_of(const std::string& file) const { return areas.path_of(file); }
    bool is_begun() const { return variables.PUBLICVARS && !module.shut_down; }
    // Copies what the trace log needs from the session of a parent process.
    void inherit(const Session& parents) {
        variables = parents.variables;
        areas.set_default_folder(parents.data_path());
        variables.inherited = true;
    }
    // The engine that these settings ask for. Each StartUp asks, and then takes it.
    EngineChoice choose_engine(const EngineSettings& settings) const {
        return choose_engine_ ? choose_engine_(settings) : EngineChoice();
    }
    // True if the session has another engine now. Its tables must be closed before take_engine().
    bool leaves_engine(const EngineChoice& choice) const {
        return choose_engine_ && areas.has_engine() && !uses(choice);
    }
    // Uses the chosen engine from now on. An engine that the session had before is used again: it
    // remembers what it could not finish.
    Engine& take_engine(const EngineChoice& choice) {
        if (choose_engine_ && !uses(choice)) {
            std::unique_ptr<Engine>& engine = engines_[key(choice)];
            if (!engine) engine = choice.make();
            areas.set_engine(*engine);
        }
        return areas.engine();
    }
    bool may_close_at_unload() const {
        return !areas.has_engine() || areas.engine().closes_at_unload();
    }
    // True if the engines may be destroyed then, too: also that of an earlier start may owe a call
    // to a library of its own.
    bool may_end_at_unload() const {
        return std::ranges::all_of(
            engines_, [](const auto& each) { return each.second->closes_at_unload(); });
    }
    // After a fault: drops half-done changes, which releasing their locks would otherwise write.
    void recover() noexcept {
        areas.release_all_locks();
        module.journal_locked = false;
    }
    Date today() {
        const platform::LocalDay day = clock.today();
        return Date::from_civil(day.year, day.month, day.day);
    }

  private:
    // A client engine made while its library was missing stays unusable, so it is not used again
    // once the library is there.
    using EngineKey = std::pair<EngineKind, bool>;
    static EngineKey key(const EngineChoice& choice) {
        return {choice.kind, choice.problem.empty()};
    }
    bool uses(const EngineChoice& choice) const {
        const auto known = engines_.find(key(choice));
        return known != engines_.end() && &areas.engine() == known->second.get();
    }

    EngineChooser choose_engine_;  // empty if the caller supplies the engine
    std::map<EngineKey, std::unique_ptr<Engine>> engines_;  // outlive the tables

  public:
    WorkAreas areas;
    platform::Clock& clock;
    YieldingUserInterface ui;
    ModuleState module;
    SessionVariables variables;
    ArrayReference buffer;     // the transaction buffer; null before the first Start operation
    platform::File trace_log;  // open until the end of the call that has written to it
    std::string link_type;     // type of new cross-references; empty until first needed
    CompanionHooks companion;
    // The query behind a work area's filter, for callers that keep it; CLEARFILTER removes it
    // together with the filter.
    std::map<int, std::string> related_queries;
};

}  // namespace brenik
