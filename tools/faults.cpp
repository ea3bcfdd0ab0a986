// Prints the fault file, whose format fwp/fault_file.h describes.

#include "faults.h"

#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
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

void print_line(const std::string& line, bool json) {
    if (!json) {
        std::cout << to_utf8(line) << "\n";
        return;
    }
    const std::size_t first = std::min(line.find('\t'), line.size());
    const std::size_t second = std::min(line.find('\t', first + 1), line.size());
    const auto column = [&](std::size_t from, std::size_t to) {
        return from < line.size() ? to_utf8(line.substr(from, to - from)) : std::string();
    };
    std::cout << dump(Json{{"time", column(0, first)},
                           {"call", column(first + 1, second)},
                           {"reason", column(second + 1, line.size())}})
              << "\n";
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
