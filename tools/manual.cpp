// Lays out the table of commands: as help, as manual pages, as completion for bash.

#include "manual.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "colours.h"
#include "commands.h"
#include "native_path.h"
#include "paragraph.h"
#include "platform/console.h"
#include "practice/catalogue.h"
#include "reason.h"
#include "util/runtime.h"
#include "version.h"

namespace brenik::tools {
namespace {

using platform::StandardStream;

constexpr std::size_t kPageWidth = 80;
constexpr std::size_t kLeastWidth = 40;
constexpr std::size_t kMostWidth = 100;  // longer lines are hard to read
constexpr std::size_t kTermColumn = 20;  // where the meaning of a term begins in help

constexpr std::string_view kTool = "brenik";
constexpr std::string_view kToolPurpose = "Companion tool for practice tables";
constexpr std::string_view kToolUsage = "brenik COMMAND [ARGUMENT...] [OPTION...]";
constexpr std::string_view kHelpOption = "-h, --help";
constexpr std::string_view kHelpMeaning = "Print this help";
constexpr std::string_view kVersionMeaning = "Print the version and the commit";
constexpr std::string_view kSuccess = "success";
constexpr std::string_view kWrongUsage = "wrong usage";

// What stands for the option in lists: "--limit N", "DIR".
std::string term_of(const Option& option) {
    if (option.is_argument()) return std::string(option.word());
    return std::string(option.name) + (option.is_flag() ? "" : " " + std::string(option.value));
}

std::string meaning_of(const Option& option) {
    const std::string value = option.default_text();
    return std::string(option.help) + (value.empty() ? "" : "; default: " + value);
}

// The line of usage in parts that must not be broken.
std::vector<std::string> usage_of(const Command& command) {
    std::vector<std::string> parts{std::string(kTool), std::string(command.name)};
    for (const Option& option : command.options) {
        if (option.is_argument()) parts.emplace_back(option.name);
    }
    for (const Option& option : command.options) {
        if (!option.is_argument()) parts.push_back("[" + term_of(option) + "]");
    }
    return parts;
}

// The width of help on this terminal.
std::size_t width() {
    const int columns = platform::terminal_columns(StandardStream::kOutput);
    if (columns <= 0) return kPageWidth;
    return std::clamp(static_cast<std::size_t>(columns), kLeastWidth, kMostWidth);
}

// The ways in which a command ends, success and wrong usage among them.
std::vector<Ending> endings_of(const Command& command) {
    std::vector<Ending> endings{{ExitCode::kOk, kSuccess}, {ExitCode::kUsage, kWrongUsage}};
    endings.insert(endings.end(), command.endings.begin(), command.endings.end());
    std::ranges::sort(endings, {}, &Ending::code);
    return endings;
}

std::string heading(const char* text, StandardStream stream = StandardStream::kOutput) {
    return "\n" + coloured(Colour::kHeading, text, stream) + "\n";
}

// A term and its meaning, which begins on a line of its own if the term is long.
std::string row(const std::string& term, std::string_view meaning) {
    std::string text = "  " + term;
    if (text.size() + 2 > kTermColumn) {
        text += "\n" + std::string(kTermColumn, ' ');
    } else {
        text = pad_right(text, kTermColumn);
    }
    return text + wrapped(words_of(meaning), kTermColumn, width());
}

std::string option_rows(const Command& command, bool arguments) {
    std::string rows;
    for (const Option& option : command.options) {
        if (option.is_argument() == arguments) rows += row(term_of(option), meaning_of(option));
    }
    return rows;
}

}  // namespace

std::string overview(const std::vector<Command>& commands, StandardStream stream) {
    std::string text = std::string(kToolPurpose) + "\n" + heading("Usage", stream) + "  " +
                       wrapped(words_of(kToolUsage), 6, width()) + heading("Commands", stream);
    for (const Command& command : commands) text += row(std::string(command.name), command.purpose);
    text += heading("Options", stream) + row(std::string(kHelpOption), kHelpMeaning) +
            row("--version", kVersionMeaning);
    return text + "\n" +
           wrapped(words_of("\"brenik COMMAND --help\" describes a command."), 0, width());
}

std::string help_of(const Command& command) {
    std::string text = wrapped(words_of(command.purpose), 0, width()) + heading("Usage") + "  " +
                       wrapped(usage_of(command), 6, width()) + "\n" +
                       wrapped(words_of(command.about), 0, width());
    const std::string arguments = option_rows(command, true);
    if (!arguments.empty()) text += heading("Arguments") + arguments;
    text += heading("Options") + option_rows(command, false) +
            row(std::string(kHelpOption), kHelpMeaning) + heading("Exit codes");
    for (const Ending& ending : endings_of(command)) {
        text += row(std::to_string(static_cast<int>(ending.code)), ending.meaning);
    }
    text += heading("Examples");
    for (const Example& example : command.examples) {
        text += "  brenik " + std::string(example.arguments) + "\n" + std::string(6, ' ') +
                wrapped(words_of(example.meaning), 6, width());
    }
    return text;
}

namespace {

// A word in a manual page. The formatter would take some of its characters for its own commands.
std::string roff_word(std::string_view word) {
    std::string escaped = word.starts_with('.') || word.starts_with('\'') ? "\\&" : "";
    for (const char each : word) {
        switch (each) {
            case '\\':
                escaped += "\\e";
                break;
            case '-':
                escaped += "\\-";
                break;
            case '~':
                escaped += "\\(ti";
                break;
            case '^':
                escaped += "\\(ha";
                break;
            default:
                escaped += each;
        }
    }
    return escaped;
}

// On one line, as the argument of a command of the formatter.
std::string roff_line(std::string_view text) {
    std::string line;
    for (const std::string& word : words_of(text))
        line += (line.empty() ? "" : " ") + roff_word(word);
    return line;
}

std::string roff_paragraph(std::string_view text) {
    std::vector<std::string> words = words_of(text);
    for (std::string& word : words) word = roff_word(word);
    return wrapped(words, 0, kPageWidth);
}

std::string page_name(const Command& command) {
    return std::string(kTool) + "-" + std::string(command.name);
}

std::string roff_head(const std::string& name, std::string_view purpose) {
    return ".TH " + roff_line(upper(name)) + " 1 \"" + commit_day() + "\" \"brenik " +
           version_number() + "\" \"BrenikDB\"\n.SH NAME\n" + roff_line(name) + " \\- " +
           roff_line(purpose) + "\n";
}

std::string roff_row(std::string_view term, std::string_view meaning) {
    return ".TP\n.B " + roff_line(term) + "\n" + roff_paragraph(meaning);
}

std::string page_of(const Command& command) {
    std::string page = roff_head(page_name(command), command.purpose) + ".SH SYNOPSIS\n.nh\n.B " +
                       std::string(kTool) + " " + std::string(command.name) + "\n";
    const std::vector<std::string> usage = usage_of(command);
    for (std::size_t i = 2; i < usage.size(); ++i) page += roff_line(usage[i]) + "\n";
    page += ".hy\n.SH DESCRIPTION\n" + roff_paragraph(command.about) + ".SH OPTIONS\n";
    for (const Option& option : command.options) {
        page += roff_row(term_of(option), meaning_of(option));
    }
    page += roff_row(kHelpOption, kHelpMeaning) + ".SH EXIT STATUS\n";
    for (const Ending& ending : endings_of(command)) {
        page += roff_row(std::to_string(static_cast<int>(ending.code)), ending.meaning);
    }
    page += ".SH EXAMPLES\n";
    for (const Example& example : command.examples) {
        page += roff_row("brenik " + std::string(example.arguments), example.meaning);
    }
    return page + ".SH SEE ALSO\n.BR brenik (1)\n";
}

std::string page_of_tool(const std::vector<Command>& commands) {
    std::string page = roff_head(std::string(kTool), kToolPurpose) +
                       ".SH SYNOPSIS\n.B brenik\nCOMMAND [ARGUMENT...] [OPTION...]\n"
                       ".SH DESCRIPTION\n"
                       "Data goes to standard output, messages go to standard error.\n"
                       ".SH COMMANDS\n";
    for (const Command& command : commands) page += roff_row(command.name, command.purpose);
    page += ".SH OPTIONS\n" + roff_row(kHelpOption, kHelpMeaning) +
            roff_row("--version", kVersionMeaning) + ".SH SEE ALSO\n";
    for (const Command& command : commands) {
        const bool is_last = &command == &commands.back();
        page += ".BR " + roff_line(page_name(command)) + " (1)" + (is_last ? "\n" : ",\n");
    }
    return page;
}

// The part of the script that does not depend on the table. The functions that come before it set
// `options`, the words of the arguments, and the words of the options that take a value.
constexpr const char* kCompletion = R"(
# Sets COMPREPLY to names that may follow: of folders, of folders and tables, or of tables in a folder.
_brenik_names() {
    local word=$2 folder=$3 name file
    COMPREPLY=()
    case $1 in
        DIR)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -d -- "$word")
            ;;
        PATH)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -d -- "$word"
                compgen -f -X '!*.[dD][bB][fF]' -- "$word")
            ;;
        TABLE)
            # Not by compgen -W: it would run commands that are in a file's name.
            for file in "${folder%/}"/*.[dD][bB][fF]; do
                [[ -e $file ]] || continue
                name=${file##*/}
                name=${name%.*}
                for name in "$name" "${_brenik_aliases[${name^^}]}"; do
                    [[ -n $name && $name == "$word"* ]] || continue
                    printf -v name %q "$name"
                    COMPREPLY+=("$name")
                done
            done
            ;;
    esac
}

_brenik() {
    local word=${COMP_WORDS[COMP_CWORD]} options arguments before=() i
    local -A values=()
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W "$_brenik_commands --help --version" -- "$word")
        return
    fi
    _brenik_describe "${COMP_WORDS[1]}"
    for ((i = 2; i < COMP_CWORD; i++)); do
        if [[ -n ${values[${COMP_WORDS[i]}]} ]]; then
            ((++i < COMP_CWORD)) || {
                _brenik_names "${values[${COMP_WORDS[i - 1]}]}" "$word" ""
                return
            }
        elif [[ ${COMP_WORDS[i]} != -* ]]; then
            before+=("${COMP_WORDS[i]}")
        fi
    done
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options --help" -- "$word")
    elif ((${#before[@]} < ${#arguments[@]})); then
        local folder=${before[0]}
        case $folder in
            \"*\" | \'*\') folder=${folder:1:-1} ;;
            *) folder=${folder//\\/} ;;
        esac
        [[ $folder != "~"* ]] || folder=$HOME${folder#"~"}
        _brenik_names "${arguments[${#before[@]}]}" "$word" "$folder"
    fi
}

complete -F _brenik brenik
)";

std::string completion_case(const Command& command) {
    std::string arguments, options, values;
    for (const Option& option : command.options) {
        std::string& list = option.is_argument() ? arguments : options;
        list += (list.empty() ? "" : " ") +
                std::string(option.is_argument() ? option.word() : option.name);
        if (option.is_argument() || option.is_flag()) continue;
        values += "            values[" + std::string(option.name) +
                  "]=" + std::string(option.value) + "\n";
    }
    return "        " + std::string(command.name) + ")\n            arguments=(" + arguments +
           ")\n            options=\"" + options + "\"\n" + values + "            ;;\n";
}

std::string completion_of(const std::vector<Command>& commands) {
    std::string names, cases, aliases;
    for (const Command& command : commands) {
        names += (names.empty() ? "" : " ") + std::string(command.name);
        cases += completion_case(command);
    }
    for (const practice::TableEntry& table : practice::kTables) {
        if (upper(table.file) == table.alias) continue;
        aliases += "    [" + upper(table.file) + "]=" + table.alias + "\n";
    }
    return "# Completion of brenik for bash: commands, options, folders and tables.\n"
           "# \"brenik manual\" makes this file. Source it, or install it among the shell's "
           "own.\n\n"
           "_brenik_commands=\"" +
           names + "\"\ndeclare -gA _brenik_aliases=(\n" + aliases +
           ")\n\n# Describes a command in the variables of the caller.\n"
           "_brenik_describe() {\n    arguments=()\n    case $1 in\n" +
           cases + "    esac\n}\n" + kCompletion;
}

void write_file(const std::string& path, const std::string& text) {
    std::ofstream file(native_path(path), std::ios::binary);
    file << text;
    if (!file.flush()) {
        throw ToolError(ExitCode::kCannotOpen, path + ": cannot be written");
    }
}

}  // namespace

void write_manual(const ManualRequest& request) {
    const std::string folder = request.folder + "/";
    std::error_code error;
    std::filesystem::create_directories(native_path(request.folder), error);
    if (error) throw ToolError(ExitCode::kCannotOpen, request.folder + ": " + reason_of(error));
    Requests requests;
    const std::vector<Command> commands = make_commands(requests);
    write_file(folder + "brenik.1", page_of_tool(commands));
    for (const Command& command : commands) {
        write_file(folder + page_name(command) + ".1", page_of(command));
    }
    write_file(folder + "brenik", completion_of(commands));
}

}  // namespace brenik::tools
