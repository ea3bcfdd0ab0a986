// The companion tool: makes sample practices, shows tables and records, prints the journal, checks
// and repairs files, tests whether a share is sound, prints the fault file, and calls any routine
// of the library.
//
// Data goes to standard output, messages to standard error. Exit codes: 0 success, 1 a problem was
// found, 2 wrong usage, 3 a file cannot be opened, 4 another program holds a lock or no partner
// came.

#include <CLI/CLI.hpp>
#include <iostream>

#include "call.h"
#include "check.h"
#include "doctor.h"
#include "faults.h"
#include "journal.h"
#include "practice.h"
#include "repair.h"
#include "sample.h"
#include "show.h"

namespace brenik::tools {
namespace {

constexpr std::uint32_t kMostRows = 1'500'000;

void add_sample(CLI::App& app, SampleRequest& request) {
    CLI::App* command = app.add_subcommand("sample", "Make an invented practice");
    const CLI::Range rows(0U, kMostRows);
    command->add_option("DIR", request.folder, "Folder to make it in")->required();
    command->add_option("--contacts", request.contacts, "Contacts, the firm's own included")
        ->check(CLI::Range(1U, kMostRows))
        ->capture_default_str();
    command->add_option("--matters", request.matters)->check(rows)->capture_default_str();
    command->add_option("--events", request.events)->check(rows)->capture_default_str();
    command->add_option("--notes", request.notes)->check(rows)->capture_default_str();
    command->add_flag("--v14", request.v14, "With the newer notes table");
    command->add_flag("--wide", request.wide, "With contacts of 45 fields, 738 bytes a record");
    command->add_flag("--json", request.json, "Summary as JSON");
    command->callback([&request] { make_sample(request); });
}

void add_show(CLI::App& app, ShowRequest& request) {
    CLI::App* command = app.add_subcommand("show", "Describe a table or print records of it");
    command->add_option("DIR", request.folder, "Folder of the practice")->required();
    command->add_option("TABLE", request.table, "File name or alias of a table")->required();
    auto* record = command->add_option("--record", request.record, "Print the record N");
    auto* order = command->add_option("--order", request.order, "Order to seek or list in");
    auto* seek = command->add_option("--seek", request.seek, "Print the first record of this key");
    auto* all = command->add_flag("--all", request.all, "Print every record");
    seek->needs(order);
    record->excludes(seek)->excludes(all)->excludes(order);
    seek->excludes(all);
    command->add_flag("--json", request.json, "As JSON, one line per record");
    command->callback([&request] {
        if (!request.order.empty() && !request.seek && !request.all) {
            throw ToolError(ExitCode::kUsage, "--order needs --seek or --all");
        }
        show(request);
    });
}

void add_journal(CLI::App& app, JournalRequest& request) {
    CLI::App* command = app.add_subcommand("journal", "Print the change journal");
    command->add_option("DIR", request.folder, "Folder of the practice")->required();
    command->add_option("--limit", request.limit, "Only the last N entries");
    command->add_flag("--json", request.json, "As JSON, one line per entry");
    command->callback([&request] { print_journal(request); });
}

void add_faults(CLI::App& app, FaultsRequest& request) {
    CLI::App* command =
        app.add_subcommand("faults", "Print the faults and refused opens of this user's sessions");
    command->add_flag("--json", request.json, "As JSON, one line per fault");
    command->callback([&request] { print_faults(request); });
}

void add_call(CLI::App& app, CallRequest& request) {
    CLI::App* command = app.add_subcommand(
        "call", "Call routines of the library: reads JSON arrays, prints one JSON line for each");
    auto* folder = command->add_option("--dir", request.folder, "Practice to start a session on");
    command->add_flag("--list", request.list, "Print the routines and their arguments")
        ->excludes(folder);
    command->callback([&request] { call_routines(request); });
}

void add_check(CLI::App& app, CheckRequest& request, ExitCode& code) {
    CLI::App* command = app.add_subcommand("check", "Report every fault of a practice or a table");
    command->add_option("PATH", request.path, "Folder of the practice, or a table's file")
        ->required();
    command->add_flag("--json", request.json, "As JSON, one line per finding");
    command->callback([&request, &code] { code = check(request); });
}

void add_doctor(CLI::App& app, DoctorRequest& request, ExitCode& code) {
    CLI::App* command =
        app.add_subcommand("doctor", "Test whether a folder is sound for a practice");
    command->add_option("DIR", request.folder, "Folder on the share")->required();
    auto* with = command->add_flag("--with", request.with,
                                   "Together with another workstation that runs this command too");
    command->add_option("--wait", request.wait_s, "Seconds to wait for the other workstation")
        ->needs(with)
        ->check(CLI::Range(1, 1800))
        ->capture_default_str();
    command->add_flag("--json", request.json, "As JSON, one object");
    command->callback([&request, &code] { code = doctor(request); });
}

using Repair = ExitCode (*)(const RepairRequest&);

CLI::App* add_repair(CLI::App& app, const char* name, const char* purpose, RepairRequest& request,
                     Repair repair_files, ExitCode& code) {
    CLI::App* command = app.add_subcommand(name, purpose);
    command->add_option("PATH", request.path, "Folder of the practice, or a table's file")
        ->required();
    command->add_option("--backup", request.backup,
                        "Folder for copies of changed files; default: beside them");
    command->add_flag("--dry-run", request.dry_run, "Only report what would be done");
    command->add_flag("--json", request.json, "As JSON, one line per step");
    command->callback([&request, &code, repair_files] { code = repair_files(request); });
    return command;
}

// Runs the command, whose callback sets `code`.
ExitCode run(CLI::App& app, const ExitCode& code, int argc, char** argv) {
    try {
        app.parse(argc, argv);
        return code;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ExitCode::kOk : ExitCode::kUsage;
    } catch (const ToolError& error) {
        std::cerr << "brenik: " << error.what() << "\n";
        return error.code();
    } catch (const EngineFault& fault) {
        std::cerr << "brenik: " << fault.what() << "\n";
        return fault.code() == FaultCode::kBusy ? ExitCode::kLocked : ExitCode::kProblem;
    } catch (const std::exception& error) {
        std::cerr << "brenik: " << error.what() << "\n";
        return ExitCode::kProblem;
    }
}

}  // namespace
}  // namespace brenik::tools

// Outside run(), only an error in the definition of the options throws.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    using namespace brenik::tools;
    std::ios::sync_with_stdio(false);
    CLI::App app("Companion tool for practice tables", "brenik");
    app.require_subcommand(1);
    app.allow_windows_style_options(false);  // paths may begin with a slash
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    SampleRequest sample;
    ShowRequest show_request;
    JournalRequest journal;
    add_sample(app, sample);
    add_show(app, show_request);
    add_journal(app, journal);
    FaultsRequest faults;
    add_faults(app, faults);
    CallRequest call;
    add_call(app, call);
    CheckRequest check_request;
    ExitCode outcome = ExitCode::kOk;
    add_check(app, check_request, outcome);
    DoctorRequest doctor_request;
    add_doctor(app, doctor_request, outcome);
    RepairRequest repair_request;
    add_repair(app, "repair", "Repair what check reports", repair_request, repair, outcome);
    RepairRequest reindex_request;
    add_repair(app, "reindex", "Rebuild indexes", reindex_request, reindex, outcome)
        ->add_option("--tag", reindex_request.tags,
                     "Tag to use instead of, or besides, those of the old index: "
                     "NAME=KEY[;FOR CONDITION][;UNIQUE][;CANDIDATE][;DESCENDING]")
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    const ExitCode code = run(app, outcome, argc, argv);
    // A full disk or a closed pipe shows only when the last output is written.
    if (!std::cout.flush() && code == ExitCode::kOk) {
        std::cerr << "brenik: standard output cannot be written\n";
        return static_cast<int>(ExitCode::kProblem);
    }
    return static_cast<int>(code);
}
