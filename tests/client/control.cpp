// What tests use to direct the stand-in: readings, servers, failures, counts.
//
// Read from the environment when the library is first used:
//     STAND_IN_READINGS=name=value,...           see readings.h
//     STAND_IN_SERVERS=local|remote|both|none    the servers that answer; local by default
//     STAND_IN_LOG=FILE                          one line per call
//     STAND_IN_FAIL=FUNCTION:OCCURRENCE[+][:STATUS]
// StandInControl() takes one of the same at run time: a reading, "servers=...", "fail=..." (empty
// for none), "server=lost", "server=back", "calls=0".

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "client/readings.h"
#include "client/stand_in.h"

namespace brenik::stand_in {

std::array<std::size_t, kReadingCount> chosen_values{};

std::uint32_t status_read(std::string_view name) {
    std::uint32_t status = 0;
    for (std::size_t row = 0; row < kReadingCount; ++row) {
        if (kReadings[row].name != name) continue;
        const std::string_view value = value_of(kReadings[row], chosen_values[row]);
        std::from_chars(value.data(), value.data() + value.size(), status);
    }
    return status;
}

namespace {

bool set_servers(std::string_view which) {
    constexpr std::pair<std::string_view, U16> kServers[] = {
        {"none", 0},
        {"local", kLocalServer},
        {"remote", kRemoteServer},
        {"both", kLocalServer | kRemoteServer},
    };
    for (const auto& [name, types] : kServers) {
        if (name != which) continue;
        process().servers = types;
        return true;
    }
    return false;
}

bool set_server(std::string_view state) {
    if (state != "lost" && state != "back") return false;
    process().server_is_lost = state == "lost";
    if (state == "lost") process().lose_server();
    return true;
}

bool reset_calls(std::string_view value) {
    CallRecord& calls = record_of_calls();
    calls.calls = 0;
    calls.calls_of.clear();
    calls.matches = 0;
    return value == "0";
}

bool control(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) return false;
    const std::string name = text.substr(0, equals);
    const std::string value = text.substr(equals + 1);
    if (name == "servers") return set_servers(value);
    if (name == "server") return set_server(value);
    if (name == "fail") return record_of_calls().set_failure(value);
    if (name == "calls") return reset_calls(value);
    const Choice choice = find_choice(text);
    if (choice.known()) chosen_values[choice.reading] = choice.value;
    return choice.known();
}

// A test with a mistyped setting would test something else.
void control_or_end(const std::string& text) {
    if (control(text)) return;
    std::fprintf(stderr, "stand-in client library: unknown setting %s\n", text.c_str());
    std::exit(3);
}

const char* environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

// Once per process, when the library is loaded.
const bool kEnvironmentRead = [] {
    std::string readings = environment("STAND_IN_READINGS");
    for (std::size_t comma = 0; !readings.empty(); readings.erase(0, comma)) {
        comma = std::min(readings.find(','), readings.size());
        control_or_end(readings.substr(0, comma));
        comma = std::min(comma + 1, readings.size());
    }
    const std::string servers = environment("STAND_IN_SERVERS");
    if (!servers.empty()) control_or_end("servers=" + servers);
    control_or_end(std::string("fail=") + environment("STAND_IN_FAIL"));
    const std::string log = environment("STAND_IN_LOG");
    if (!log.empty()) record_of_calls().open_log(log);
    return true;
}();

unsigned count_locks() {
    unsigned locks = 0;
    for (const auto& [handle, connection] : process().connections) {
        for (const auto& [number, table] : connection->tables) locks += table->lock_count();
    }
    return locks;
}

unsigned count_handles() {
    std::size_t handles = process().connections.size();
    for (const auto& [handle, connection] : process().connections) {
        handles += connection->tables.size();
    }
    return static_cast<unsigned>(handles);
}

}  // namespace

// 0, or -1 for an unknown setting.
STAND_IN_FUNCTION(int) StandInControl(const char* name_equals_value) {
    return control(name_equals_value) ? 0 : -1;
}

// "calls", "handles" (of open connections and tables), "locks" (held by this process),
// "violations", "failed" (calls made to fail since the failure was set), or the name of a function:
// its calls.
STAND_IN_FUNCTION(unsigned) StandInCount(const char* what) {
    const std::string_view name = what;
    const CallRecord& calls = record_of_calls();
    if (name == "calls") return calls.calls;
    if (name == "locks") return count_locks();
    if (name == "handles") return count_handles();
    if (name == "violations") return static_cast<unsigned>(calls.violations.size());
    if (name == "failed") return calls.failed;
    unsigned count = 0;
    for (const auto& [function, number] : calls.calls_of) {
        if (name == function) count += number;
    }
    return count;
}

// One line per reading: its name, the default and the other values.
STAND_IN_FUNCTION(const char*) StandInReadings() {
    static std::string lines;
    lines.clear();
    for (const Reading& reading : kReadings) {
        lines += std::string(reading.name) + ' ' + std::string(reading.values) + '\n';
    }
    return lines.c_str();
}

// One line per violation so far.
STAND_IN_FUNCTION(const char*) StandInViolations() {
    static std::string lines;
    lines.clear();
    for (const std::string& violation : record_of_calls().violations) lines += violation + '\n';
    return lines.c_str();
}

}  // namespace brenik::stand_in
