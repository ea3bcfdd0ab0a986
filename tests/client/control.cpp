// What tests use to direct the stand-in: readings, servers, failures, counts.
//
// Read from the environment when the library is loaded:
//     STAND_IN_READINGS=name=value,...           see readings.h
//     STAND_IN_SERVERS=local|both|none           the servers that answer; local by default
//     STAND_IN_LOG=FILE                          one line per call
// StandInControl() takes one of the same at run time: a reading, "servers=...", "server=lost",
// "server=back", or "fail=FUNCTION:OCCURRENCE[:STATUS]" (nothing behind "=" for none).

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "client/readings.h"
#include "client/stand_in.h"

namespace brenik::stand_in {

std::array<std::size_t, kReadingCount> chosen_values{};

Status status_read(std::string_view name) {
    const auto* row = std::ranges::find(kReadings, name, &Reading::name);
    const std::string_view value = value_of(*row, chosen_values[std::size_t(row - kReadings)]);
    Status status = kInternalFault;
    std::from_chars(value.data(), value.data() + value.size(), status);
    return status;
}

namespace {

bool control(const std::string& text) {
    const std::string name = text.substr(0, text.find('='));
    const std::string value = text.substr(std::min(name.size() + 1, text.size()));
    if (name == "fail") return record_of_calls().set_failure(value);
    if (text == "server=back" || text == "server=lost") {
        process().server_is_lost = value == "lost";
        if (value == "lost") process().lose_server();
        return true;
    }
    if (name == "servers") {
        const bool both = value == "both";
        process().servers = both               ? kLocalServer | kRemoteServer
                            : value == "local" ? kLocalServer
                                               : 0;
        return both || value == "local" || value == "none";
    }
    const Choice choice = find_choice(text);
    if (choice.known()) chosen_values[choice.reading] = choice.value;
    return choice.known();
}

// A test with a mistyped setting would test something else.
void control_or_end(const std::string& text) {
    if (control(text)) return;
    std::fprintf(stderr, "stand-in client library: unknown setting %s\n", text.c_str());
    std::_Exit(3);
}

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

const bool kEnvironmentRead = [] {
    const std::string readings = environment("STAND_IN_READINGS");
    for (std::size_t begin = 0; begin < readings.size();) {
        const std::size_t end = std::min(readings.find(',', begin), readings.size());
        control_or_end(readings.substr(begin, end - begin));
        begin = end + 1;
    }
    const std::string servers = environment("STAND_IN_SERVERS");
    if (!servers.empty()) control_or_end("servers=" + servers);
    const std::string log = environment("STAND_IN_LOG");
    if (!log.empty()) record_of_calls().log = std::fopen(log.c_str(), "ab");
    return true;
}();

std::string lines;  // of the last answer

}  // namespace

#define STAND_IN_CONTROL(type) extern "C" STAND_IN_EXPORT type STAND_IN_CALL

// 0, or -1 for an unknown setting.
STAND_IN_CONTROL(int) StandInControl(const char* name_equals_value) {
    return control(name_equals_value) ? 0 : -1;
}

// "handles" and "locks" of this process on servers that were not lost, without those of orders; or
// "violations".
STAND_IN_CONTROL(unsigned) StandInCount(const char* what) {
    const std::string_view name = what;
    if (name == "violations") return static_cast<unsigned>(record_of_calls().violations.size());
    unsigned count = 0;
    for (const auto& [handle, connection] : process().connections) {
        if (connection->lost) continue;
        if (name == "handles") ++count;
        for (const auto& [number, table] : connection->tables) {
            count += name == "handles" ? 1 : table->lock_count();
        }
    }
    return count;
}

// One line per reading: its name, the default and the other values.
STAND_IN_CONTROL(const char*) StandInReadings() {
    lines.clear();
    for (const Reading& reading : kReadings) {
        lines += std::string(reading.name) + ' ' + std::string(reading.values) + '\n';
    }
    return lines.c_str();
}

// One line per violation so far.
STAND_IN_CONTROL(const char*) StandInViolations() {
    lines.clear();
    for (const std::string& violation : record_of_calls().violations) lines += violation + '\n';
    return lines.c_str();
}

}  // namespace brenik::stand_in
