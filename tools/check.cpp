// Checks the tables of a folder.

#include "check.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "display.h"
#include "engine/maintenance/check_table.h"
#include "findings.h"
#include "platform/share.h"
#include "practice_check.h"
#include "progress.h"
#include "util/runtime.h"

namespace brenik::tools {
namespace {

using Json = nlohmann::ordered_json;

void print_summary(const CheckRequest& request, const FindingPrinter& printer, std::size_t tables,
                   std::uint64_t records) {
    if (request.json) {
        const Json summary{{"summary", to_utf8(request.where.text())},
                           {"tables", tables},
                           {"records", records},
                           {"faults", printer.faults()},
                           {"notes", printer.notes()},
                           {"unchecked", printer.unchecked()}};
        std::cout << dump(summary) << "\n";
        return;
    }
    std::cout << to_line(request.where.text()) << ": " << counted(tables, "table") << ", "
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

ExitCode check(const CheckRequest& request) {
    const EncodingChoice encoding = encoding_named(request.encoding);
    FindingPrinter printer(request.json, encoding);
    const NamedTables named = find_tables(request.where);
    check_share(named.whole_folder ? named.folder : named.file(), printer);
    std::uint64_t records = 0;
    for (const std::string& table : named.files) {
        ProgressBar bar(base_name(table));
        const maintenance::Report report = [&](const maintenance::Finding& finding) {
            bar.clear();
            printer.print(finding);
        };
        records += maintenance::check_table(table, report, bar.progress()).records;
        printer.finish_file();
    }
    if (named.is_practice()) {
        ProgressBar bar("identifiers");
        const maintenance::Report report = [&](const maintenance::Finding& finding) {
            bar.clear();
            printer.print(finding);
        };
        check_practice({named.folder}, report, bar.progress(), {}, encoding);
        bar.clear();
        printer.finish_file();
    }
    print_summary(request, printer, named.files.size(), records);
    if (printer.exit_code() == ExitCode::kLocked) tell_of_server(named.folder);
    return printer.exit_code();
}

}  // namespace brenik::tools
