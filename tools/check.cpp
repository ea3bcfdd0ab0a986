// Checks the tables of a folder.

#include "check.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <system_error>

#include "display.h"
#include "engine/maintenance/check_table.h"
#include "findings.h"
#include "native_path.h"
#include "platform/file.h"
#include "platform/share.h"
#include "practice/catalogue.h"
#include "practice_check.h"
#include "progress.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

void print_summary(const CheckRequest& request, const FindingPrinter& printer, std::size_t tables,
                   std::uint64_t records) {
    if (request.json) {
        const Json summary{{"summary", request.path},  {"tables", tables},
                           {"records", records},       {"faults", printer.faults()},
                           {"notes", printer.notes()}, {"unchecked", printer.unchecked()}};
        std::cout << dump(summary) << "\n";
        return;
    }
    std::cout << request.path << ": " << counted(tables, "table") << ", "
              << counted(records, "record") << ": "
              << (printer.faults() == 0 ? "no faults" : counted(printer.faults(), "fault"));
    if (printer.notes() > 0) std::cout << ", " << counted(printer.notes(), "note");
    if (printer.unchecked() > 0) std::cout << ", " << printer.unchecked() << " not checked";
    std::cout << "\n";
}

void check_share(const std::string& path, FindingPrinter& printer) {
    const platform::ShareFacts share = platform::share_facts(path);
    const auto find = [&](maintenance::Severity severity, const char* kind,
                          const std::string& what) {
        if (what.empty()) return;
        maintenance::Finding finding;
        finding.severity = severity;
        finding.kind = kind;
        finding.file = path;
        finding.what = what;
        finding.remedy = maintenance::Remedy::kByHand;
        printer.print(finding);
    };
    find(maintenance::Severity::kFault, "share-unsound", share.unsound);
    find(maintenance::Severity::kNote, "share-doubtful", share.doubtful);
    printer.finish_file();
}

}  // namespace

bool is_practice(const std::string& path) {
    std::error_code error;
    return fs::is_directory(native_path(platform::system_path(path)), error) &&
           platform::file_exists(path + "/" + practice::kSystem.file + ".DBF");
}

std::vector<std::string> tables_at(const std::string& path) {
    const std::string found = platform::system_path(path);
    std::error_code error;
    if (!fs::is_directory(native_path(found), error)) {
        for (const std::string& name : {found, platform::system_path(path + ".DBF")}) {
            if (platform::file_exists(name)) return {name};
        }
        throw ToolError(ExitCode::kCannotOpen, path + ": no such table or folder");
    }
    std::vector<std::string> tables;
    for (fs::directory_iterator entry(native_path(found), error), end; !error && entry != end;
         entry.increment(error)) {
        const fs::path& file = entry->path();
        if (equal_ignoring_case(file.extension().string(), ".DBF")) tables.push_back(file.string());
    }
    if (error)
        throw ToolError(ExitCode::kCannotOpen, path + ": " + platform::system_text(error.value()));
    if (tables.empty()) throw ToolError(ExitCode::kCannotOpen, path + ": contains no tables");
    std::sort(tables.begin(), tables.end());
    return tables;
}

ExitCode check(const CheckRequest& request) {
    FindingPrinter printer(request.json);
    check_share(request.path, printer);
    std::uint64_t records = 0;
    const std::vector<std::string> tables = tables_at(request.path);
    for (const std::string& table : tables) {
        ProgressBar bar(base_name(table));
        const maintenance::Report report = [&](const maintenance::Finding& finding) {
            bar.clear();
            printer.print(finding);
        };
        records += maintenance::check_table(table, report, bar.progress()).records;
        printer.finish_file();
    }
    if (is_practice(request.path)) {
        check_practice({request.path},
                       [&](const maintenance::Finding& finding) { printer.print(finding); });
        printer.finish_file();
    }
    print_summary(request, printer, tables.size(), records);
    return printer.exit_code();
}

}  // namespace brenik::tools
