// A practice folder as the tool's commands use it: which tables their arguments name, and how to
// open one.

#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "engine/engine.h"
#include "engine/engine_choice.h"
#include "platform/file.h"
#include "practice/catalogue.h"

namespace brenik::tools {

// persistent: scripts depend on these exit codes.
enum class ExitCode { kOk = 0, kProblem = 1, kUsage = 2, kCannotOpen = 3, kLocked = 4 };

// Ends a command with an exit code and a message for the user.
class ToolError : public std::runtime_error {
  public:
    ToolError(ExitCode code, const std::string& message)
        : std::runtime_error(message), code_(code) {}
    ExitCode code() const { return code_; }

  private:
    ExitCode code_;
};

// kLocked only if another program is in the way; kCannotOpen for a file that is missing or not
// permitted.
ExitCode exit_code_of(const EngineFault& fault);

// The arguments that name tables: a folder, a table's file, or a folder and one of its tables.
struct TableArguments {
    std::string path;
    std::string table = {};

    // As the user wrote it, for messages and summaries.
    std::string text() const { return table.empty() ? path : path + " " + table; }
};

// Throws ToolError, with the reason, unless the path is that of a folder: kUsage for a file.
void require_folder(const std::string& path);

// What such arguments name.
struct NamedTables {
    std::string folder;              // of the tables; "." for the current one
    std::vector<std::string> files;  // paths in the system's form, sorted
    bool whole_folder = false;       // the arguments name the folder, not a table

    const std::string& file() const { return files.front(); }
    // True if the arguments name the folder of a practice, not only some table.
    bool is_practice() const;
};

// A table is named by its file or its alias, in any letter case and with or without ".DBF". A bare
// name is looked for in the current folder. If a folder and a table have the same name, the folder
// is meant, unless it holds no tables. Throws ToolError: kUsage for arguments that cannot name a
// table, kCannotOpen if there is no such table or folder, or no permission to look for it.
NamedTables find_tables(const TableArguments& arguments);
// The same, but kUsage unless the arguments name a single table.
NamedTables find_table(const TableArguments& arguments);

// What LAWSYS.INI of the folder says about the engine.
EngineSettings engine_settings(const std::string& folder);

// For a command that works on files and found one in use: tells the user that a database server may
// hold it, and what to stop. Says nothing unless the practice asks for such a server.
void tell_of_server(const std::string& folder);

class Practice {
  public:
    // Which engine opens the tables: the one that the practice's settings ask for, or the embedded
    // one on the files.
    enum class Through { kItsEngine, kFiles };
    // Uses the locking mode of the practice's settings, like hosts. With the embedded engine,
    // read-only access needs no write permission, and opens a table even if its memo file or its
    // index cannot be opened.
    Practice(std::string folder, platform::OpenMode access, Through through);
    Practice(const Practice&) = delete;
    Practice& operator=(const Practice&) = delete;

    // Opens a table of the folder, named as for find_tables(), in physical order. Throws ToolError
    // if it is missing, cannot be read or is held exclusively.
    std::unique_ptr<Table> open(const std::string& name);
    // The same for the path of a table's file.
    std::unique_ptr<Table> open_file(const std::string& path);
    // The files that tables opened for reading had to do without, and why.
    const std::vector<Refusal>& unavailable() const { return unavailable_; }
    // The table with this number; null if the practice has none.
    const practice::TableEntry* find(int number) const;

  private:
    void use_client(const EngineChoice& choice, const EngineSettings& settings);
    void use_files(platform::OpenMode access);

    std::string folder_;
    std::vector<Refusal> unavailable_;
    std::unique_ptr<Engine> engine_;
};

}  // namespace brenik::tools
