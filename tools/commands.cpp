// The table of commands.

#include "commands.h"

#include <type_traits>

namespace brenik::tools {
namespace {

constexpr std::uint32_t kMostRows = 1'500'000;
constexpr int kLongestWait_s = 1800;

constexpr std::string_view kFolderHelp = "Folder of the practice";
constexpr std::string_view kPathHelp =
    "Folder of the practice, or a table: its file, with or without .DBF, or its alias";
constexpr std::string_view kTableHelp = "File name or alias of a table in the folder PATH";

constexpr Ending kCannotOpen{ExitCode::kCannotOpen, "a table or folder cannot be opened"};
constexpr Ending kHeld{ExitCode::kLocked, "another program holds a table exclusively"};

Option encoding_option(std::string& name) {
    return {"--encoding", "PAGE",
            "Code page of the tables' text, as number or name; default: the one that each table "
            "names, or 1252",
            &name};
}

// A command that either succeeds or throws.
template <typename Request>
std::function<ExitCode()> run(void (*command)(const Request&), const Request& request) {
    return [command, &request] {
        command(request);
        return ExitCode::kOk;
    };
}

template <typename Request>
std::function<ExitCode()> run(ExitCode (*command)(const Request&), const Request& request) {
    return [command, &request] { return command(request); };
}

Command sample_command(SampleRequest& request) {
    return {
        "sample",
        "Make an invented practice",
        "Makes tables, indexes and settings of an invented practice, to try things on. The same "
        "options always give the same files.",
        {{"DIR", "", "Folder to make it in; created if it is missing", &request.folder},
         {"--contacts",
          "N",
          "Contacts, the firm's own included",
          &request.contacts,
          {.least = 1, .most = kMostRows}},
         {"--matters", "N", "Matters", &request.matters, {.most = kMostRows}},
         {"--events", "N", "Events", &request.events, {.most = kMostRows}},
         {"--notes", "N", "Notes on contacts", &request.notes, {.most = kMostRows}},
         {"--v14", "", "With the newer notes table", &request.v14},
         {"--wide", "", "With contacts of 45 fields, 738 bytes a record", &request.wide},
         {"--json", "", "Summary as JSON, one object", &request.json}},
        {{"sample practice", "a small practice"},
         {"sample large --contacts 100000 --matters 50000", "a large one"}},
        {{ExitCode::kProblem, "the folder holds a practice already; nothing was changed"},
         {ExitCode::kCannotOpen, "the folder or a file in it cannot be written"}},
        run(make_sample, request),
    };
}

Command show_command(ShowRequest& request) {
    return {
        "show",
        "Describe a table or print records of it",
        "Without options, prints the fields and orders of a table. With --record, --seek or --all, "
        "prints records. Uses the engine that the practice names; the embedded one says if the "
        "memo "
        "file or the index is missing or damaged, shows the rest, and needs no permission to "
        "write. "
        "Changes nothing.",
        {{"PATH", "", kPathHelp, &request.where.path},
         {"[TABLE]", "", kTableHelp, &request.where.table},
         {"--record", "N", "Print record N", &request.record, {.excludes = "--seek --all --order"}},
         {"--order",
          "ORDER",
          "Order to seek or list in",
          &request.order,
          {.needs = "--seek --all"}},
         {"--seek",
          "KEY",
          "Print the first record with this key",
          &request.seek,
          {.needs = "--order", .excludes = "--all"}},
         {"--all", "", "Print every record", &request.all},
         {"--raw",
          "",
          "Print the bytes of records and memos in hexadecimal",
          &request.raw,
          {.needs = "--record --seek --all"}},
         encoding_option(request.encoding),
         {"--json", "", "As JSON: the description as one object, records as one line each",
          &request.json}},
        {{"show practice Names", "the fields and orders of the contacts"},
         {"show practice LAW3 --record 5", "matter 5"},
         {"show practice LAW3 --order U_ID --seek A100001", "a matter by its identifier"},
         {"show practice LAW1 --all --json", "all contacts, for a program"}},
        {{ExitCode::kProblem, "there is no such record, key or order; or the table is damaged"},
         kCannotOpen,
         kHeld},
        run(show, request),
    };
}

Command journal_command(JournalRequest& request) {
    return {
        "journal",
        "Print the change journal",
        "Prints who added, edited or deleted which record, and when, the oldest entry first. An "
        "edit lists the changed fields. Uses the engine that the practice names.",
        {{"DIR", "", kFolderHelp, &request.folder},
         {"--limit", "N", "Only the last N entries", &request.limit},
         encoding_option(request.encoding),
         {"--json", "", "As JSON, one line per entry", &request.json}},
        {{"journal practice --limit 20", "the last 20 changes"}},
        {{ExitCode::kProblem, "the journal is damaged"}, kCannotOpen, kHeld},
        run(print_journal, request),
    };
}

Command faults_command(FaultsRequest& request) {
    return {
        "faults",
        "Print the faults and refused opens of this user's sessions",
        "Prints the fault file of the current user, the oldest line first: the time, the call that "
        "failed and the reason. BRENIK_FAULTS in the environment names another file.",
        {{"--json", "", "As JSON, one line per fault", &request.json}},
        {{"faults", "what failed, and why"}},
        {{ExitCode::kCannotOpen, "the fault file exists and cannot be read"}},
        run(print_faults, request),
    };
}

Command call_command(CallRequest& request) {
    return {
        "call",
        "Call routines of the library",
        "Reads one JSON array per line from standard input: the routine's name, then its "
        "arguments. Prints one JSON line for each. All lines run in one session.",
        {{"--dir",
          "DIR",
          "Practice to start a session on",
          &request.folder,
          {.excludes = "--list"}},
         {"--engine",
          "NAME",
          "Engine of a session without a practice: embedded or advantage",
          &request.engine,
          {.excludes = "--dir --list"}},
         {"--list", "", "Print the routines and their arguments", &request.list}},
        {{"call --list", "what can be called"}, {"call --dir practice", "a session on a practice"}},
        {{ExitCode::kCannotOpen, "the session on the practice cannot be started"}},
        run(call_routines, request),
    };
}

Command check_command(CheckRequest& request) {
    return {
        "check",
        "Report every fault of a practice or a table",
        "Reads every table, memo and index and compares them, even while programs use them. "
        "Each finding names the remedy. Changes nothing. Reads the files themselves, whichever "
        "engine the practice uses.",
        {{"PATH", "", kPathHelp, &request.where.path},
         {"[TABLE]", "", kTableHelp, &request.where.table},
         encoding_option(request.encoding),
         {"--json", "", "As JSON, one line per finding and one for the summary", &request.json}},
        {{"check practice", "all tables, and what they say about each other"},
         {"check practice Names", "one table"},
         {"check practice/LAW1.DBF", "the same table, named by its file"}},
        {{ExitCode::kProblem, "there are faults"},
         kCannotOpen,
         {ExitCode::kLocked, "something could not be checked, because it is in use"}},
        run(check, request),
    };
}

// What repair and reindex have in common.
Command repairing_command(RepairRequest& request) {
    return {
        {},
        {},
        {},
        {{"PATH", "", kPathHelp, &request.where.path},
         {"[TABLE]", "", kTableHelp, &request.where.table},
         {"--backup", "DIR", "Folder for copies of changed files; default: beside them",
          &request.backup},
         {"--dry-run", "", "Only report what would be done", &request.dry_run},
         {"--force", "",
          "Work even on a table of which more than one record in ten begins with neither blank nor "
          "asterisk, as if its records lay elsewhere",
          &request.force},
         {"--json", "", "As JSON, one line per step and one for the summary", &request.json}},
        {},
        {{ExitCode::kProblem, "something could not be repaired"},
         kCannotOpen,
         {ExitCode::kLocked, "other programs use a table; nothing of it was changed"}},
        {},
    };
}

Command repair_command(RepairRequest& request) {
    Command command = repairing_command(request);
    command.name = "repair";
    command.purpose = "Repair what check reports";
    command.about =
        "Repairs tables, memos and indexes, then counters and the journal. Copies each file before "
        "it changes the file. Works on the files themselves, whichever engine the practice uses: "
        "other programs, a database server among them, must have closed the table.";
    command.options.push_back(
        {"--without-memos", "",
         "Give up the memos of a table whose memo file is lost: empty its memo fields, and make an "
         "empty memo file",
         &request.without_memos});
    command.examples = {{"repair practice --dry-run", "what would be done"},
                        {"repair practice --backup before", "with copies elsewhere"}};
    command.run = run(repair, request);
    return command;
}

Command reindex_command(RepairRequest& request) {
    Command command = repairing_command(request);
    command.name = "reindex";
    command.purpose = "Rebuild indexes";
    command.about =
        "Builds the index of a table, or of all tables, anew from the records. Works on the files "
        "themselves, whichever engine the practice uses: other programs, a database server among "
        "them, must have closed the table.";
    command.options.push_back(
        {"--tag", "DEFINITION",
         "Tag to use instead of, or besides, those of the old index: "
         "NAME=KEY[;FOR CONDITION][;UNIQUE][;CANDIDATE][;DESCENDING]. May be repeated.",
         &request.tags});
    command.options.push_back(
        {"--like", "PATH",
         "Use the tags of another practice's table: its file, or its folder if the file has the "
         "same name. They replace tags of the old index with the same names; --tag replaces them.",
         &request.like});
    command.examples = {
        {"reindex practice", "all indexes"},
        {"reindex practice Names --like other", "one index, with the tags of another practice"},
        {"reindex practice LAW1 --tag \"LAST=UPPER(LAST)\"", "one index, with another tag"}};
    command.run = run(reindex, request);
    return command;
}

Command doctor_command(DoctorRequest& request) {
    return {
        "doctor",
        "Test whether a folder is sound for a practice",
        "Tests on scratch files what the library relies on: locks, sizes and contents. On a share, "
        "run it with --with on two workstations at the same time.",
        {{"DIR", "", "Folder on the share", &request.folder},
         {"--with", "", "Together with another workstation that runs this command too",
          &request.with},
         {"--wait",
          "N",
          "Seconds to wait for the other workstation",
          &request.wait_s,
          {.needs = "--with", .least = 1, .most = kLongestWait_s}},
         {"--json", "", "As JSON, one object", &request.json}},
        {{"doctor practice", "what one workstation can tell"},
         {"doctor practice --with", "the same command on another one, within a minute"}},
        {{ExitCode::kProblem, "the folder is unsound: use it for no practice until it is mended"},
         {ExitCode::kCannotOpen, "no file can be created in the folder"},
         {ExitCode::kLocked, "no other workstation came, or it stopped answering"}},
        run(doctor, request),
    };
}

Command engine_command(EngineRequest& request) {
    return {
        "engine",
        "Tell which engine opens the tables of a practice",
        "Tells which engine the settings of the practice name, what the client library of a "
        "database server can do, and whether a server answers. With --probe, makes scratch tables "
        "in the folder, tries out on them what the library's documentation leaves open, and "
        "removes them.",
        {{"DIR", "", kFolderHelp, &request.folder},
         {"--all", "",
          "Name every function of the library, not only the missing ones; with --json also what "
          "the client engine takes for granted",
          &request.all},
         {"--probe", "", "Try out the library; needs permission to create files in the folder",
          &request.probe},
         {"--json", "", "As JSON, one object", &request.json}},
        {{"engine practice", "the engine, the library and the server"},
         {"engine practice --probe", "what the library does where its documentation is silent"}},
        {{ExitCode::kProblem,
          "the engine can open no table; or a probe was refuted or could not run"},
         {ExitCode::kCannotOpen, "the folder cannot be opened, or a file in it cannot be written"}},
        run(print_engine, request),
    };
}

Command manual_command(ManualRequest& request) {
    return {
        "manual",
        "Write the manual pages and the completion for bash",
        "Writes brenik.1, a page for each command, and brenik, which bash sources to complete "
        "commands, options, folders and tables.",
        {{"DIR", "", "Folder to write to; created if it is missing", &request.folder}},
        {{"manual ~/.local/share/man/man1", "pages for \"man brenik-check\""}},
        {{ExitCode::kCannotOpen, "a file cannot be written"}},
        run(write_manual, request),
    };
}

}  // namespace

std::vector<Command> make_commands(Requests& requests) {
    return {sample_command(requests.sample),   show_command(requests.show),
            journal_command(requests.journal), faults_command(requests.faults),
            check_command(requests.check),     repair_command(requests.repair),
            reindex_command(requests.reindex), doctor_command(requests.doctor),
            engine_command(requests.engine),   call_command(requests.call),
            manual_command(requests.manual)};
}

std::string_view Option::word() const {
    if (!is_argument()) return value;
    return is_required() ? name : name.substr(1, name.size() - 2);
}

std::string Option::default_text() const {
    return std::visit(
        [](const auto* place) -> std::string {
            using Value = std::remove_cvref_t<decltype(*place)>;
            if constexpr (std::is_same_v<Value, int> || std::is_same_v<Value, std::uint32_t>) {
                return std::to_string(*place);
            } else {
                return {};
            }
        },
        target);
}

}  // namespace brenik::tools
