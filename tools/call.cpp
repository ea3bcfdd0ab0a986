// Reads lines, finds the routine that each one names, and prints the replies.

#include "call.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "BrenikDB/registry.h"
#include "call_arguments.h"
#include "call_table.h"
#include "data/ads.h"
#include "display.h"
#include "engine/choice/choose_engine.h"
#include "platform/ui.h"
#include "practice.h"
#include "reason.h"
#include "util/runtime.h"
#include "util/suggestion.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;

void print_line(std::string_view name, std::string_view arguments) {
    std::cout << name << (arguments.empty() ? "" : ": ") << arguments << "\n";
}

void print_names() {
    for (const NamedOperation& each : operations()) print_line(each.name, each.arguments);
    for (const Routine& each : library_routines()) print_line(each.name, each.arguments);
    for (const Routine& each : table_operations()) print_line(each.name, each.arguments);
}

std::vector<std::string> routine_names() {
    std::vector<std::string> names;
    for (const NamedOperation& each : operations()) names.emplace_back(each.name);
    for (const auto routines : {library_routines(), table_operations()}) {
        for (const Routine& each : routines) names.emplace_back(each.name);
    }
    return names;
}

const Routine* find(std::span<const Routine> routines, std::string_view name) {
    const auto found = std::ranges::find_if(
        routines, [&](const Routine& each) { return equal_ignoring_case(each.name, name); });
    return found == routines.end() ? nullptr : &*found;
}

Value run(Session& session, const std::string& name, CallArguments& arguments) {
    for (const auto routines : {library_routines(), table_operations()}) {
        if (const Routine* routine = find(routines, name))
            return routine->call({routine->name, session, arguments});
    }
    if (const Operation operation = find_operation(name))
        return operation(session, arguments.values());
    const std::string close = did_you_mean(name, routine_names());
    throw CallError("no routine is called \"" + name + "\"" + (close.empty() ? ";" : close) +
                    " --list names them all");
}

Json answer(Session& session, const std::string& line) {
    const Json call = json_from_line(line);
    if (!call.is_array() || call.empty() || !call[0].is_string()) {
        throw CallError("a line must be an array that begins with the name of a routine");
    }
    CallArguments arguments(session, call);
    Json reply{{"result", value_to_json(run(session, call[0].get<std::string>(), arguments))}};
    if (arguments.has_references()) reply["refs"] = arguments.references();
    return reply;
}

// Each line is a call of the host. A line that fails gets a reply too, and the session continues. A
// malformed line has changed nothing, so it releases no locks.
Json answer_or_error(Session& session, const std::string& line) {
    const WorkAreas::HostCall call(session.areas);
    try {
        return answer(session, line);
    } catch (const CallError& error) {
        return Json{{"error", to_utf8(error.what())}};
    } catch (const EngineFault& fault) {
        session.recover();
        return Json{{"error", to_utf8(fault.operation() + ": " + fault.what() + " (" +
                                      std::to_string(static_cast<int>(fault.code())) + ")")}};
    } catch (const std::exception& error) {
        session.recover();
        return Json{{"error", to_utf8(reason_of(error))}};
    }
}

void start_up(Session& session, const std::string& folder) {
    std::array<Value, 2> arguments{Value(folder), Value(false)};
    const std::int64_t code = find_operation("StartUp")(session, arguments).whole();
    if (code != 0) {
        throw ToolError(ExitCode::kCannotOpen,
                        folder + ": no session can be started: StartUp returned " +
                            std::to_string(code) + "; \"brenik faults\" may tell why");
    }
}

// For lines without a practice that could name the engine.
void take_engine(Session& session, const std::string& name) {
    const EngineChoice choice = session.choose_engine({name});
    if (!choice.warning.empty()) {
        throw ToolError(ExitCode::kUsage, "--engine " + name + ": must be advantage or embedded");
    }
    if (!choice.problem.empty()) throw ToolError(ExitCode::kCannotOpen, choice.problem);
    session.take_engine(choice).set_server_type(kLocalServer);
}

}  // namespace

void call_routines(const CallRequest& request) {
    if (request.list) return print_names();
    const std::unique_ptr<platform::UserInterface> ui = platform::make_user_interface();
    Session session(choose_engine, platform::system_clock(), *ui);
    RDDINIT(session);
    if (request.folder) {
        start_up(session, *request.folder);
    } else {
        take_engine(session, request.engine);
    }
    for (std::string line; std::cout && std::getline(std::cin, line);) {
        if (trim_both(line).empty()) continue;
        const Json reply = answer_or_error(session, line);
        std::cout << dump(reply) << std::endl;
    }
}

}  // namespace brenik::tools
