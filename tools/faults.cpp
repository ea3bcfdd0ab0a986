// Prints the fault file, whose format fwp/fault_file.h describes.

#include "faults.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "display.h"
#include "fwp/fault_file.h"
#include "platform/file.h"
#include "platform/folders.h"
#include "platform/text_conversion.h"
#include "practice.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;

// False if there is no such file.
bool read(const std::string& path, std::string& text) {
    const platform::File file = platform::File::open(path, platform::OpenMode::kSettings);
    if (file.failure() == platform::OpenFailure::kMissing) return false;
    if (!file.is_open()) {
        throw ToolError(ExitCode::kCannotOpen, path + ": " + file.why_not_open());
    }
    text.resize(static_cast<std::size_t>(file.size_at_open()));
    text.resize(file.read_at(0, {reinterpret_cast<Byte*>(text.data()), text.size()}));
    return true;
}

// A line has the columns time, call and reason, separated by tabs.
void print_line(std::string_view line, bool json) {
    constexpr std::array<const char*, 3> kColumns{"time", "call", "reason"};
    Json columns = Json::object();
    std::string text;
    for (const char* column : kColumns) {
        const bool is_last = column == kColumns.back();
        const std::size_t end = is_last ? line.size() : std::min(line.find('\t'), line.size());
        columns[column] = to_utf8(line.substr(0, end));
        text += to_line(line.substr(0, end)) + (end < line.size() ? "\t" : "");
        line.remove_prefix(std::min(end + 1, line.size()));
    }
    std::cout << (json ? dump(columns) : text) << "\n";
}

void print_lines(const std::string& text, bool json) {
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        const std::string line = text.substr(begin, end - begin);
        const std::string whole = line.substr(0, line.find_last_not_of('\r') + 1);
        print_line(platform::utf8_of_host(whole), json);
        begin = end + 1;
    }
}

}  // namespace

void print_faults(const FaultsRequest& request) {
    const std::string path = platform::fault_file_path();
    bool any = false;
    std::optional<ToolError> unreadable;
    for (const std::string& file : {earlier_fault_file(path), path}) {
        std::string text;
        try {
            any = read(file, text) || any;
        } catch (const ToolError& error) {
            unreadable = error;
        }
        print_lines(text, request.json);
    }
    if (unreadable) throw ToolError(*unreadable);
    if (!any) std::cerr << "brenik: no faults: there is no file " << to_utf8(path) << "\n";
}

}  // namespace brenik::tools
