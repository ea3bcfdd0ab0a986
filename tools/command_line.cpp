// Parses the command line by the table of commands.
//
// The parser only splits the words into options and arguments. Values are converted and rules are
// checked here, so that every message says the same kind of thing in the same words.

#include "command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <iostream>

#include "commands.h"
#include "manual.h"
#include "paragraph.h"
#include "util/suggestion.h"
#include "version.h"

namespace brenik::tools {
namespace {

[[noreturn]] void refuse(const std::string& message) { throw ToolError(ExitCode::kUsage, message); }

[[noreturn]] void refuse(const Command& command, const std::string& message) {
    const std::string name(command.name);
    refuse(name + ": " + message + (message.ends_with('?') ? " " : "; ") + "see \"brenik " + name +
           " --help\"");
}

const Command& find_command(const std::vector<Command>& commands, const std::string& name) {
    std::vector<std::string> names;
    for (const Command& command : commands) {
        if (command.name == name) return command;
        names.emplace_back(command.name);
    }
    const bool is_option = name.starts_with('-');
    if (is_option) names = {"--help", "--version"};
    const std::string close = did_you_mean(name, names);
    refuse((is_option ? "no option \"" : "no command \"") + name + "\"" +
           (close.empty() ? ";" : close) + " \"brenik --help\" lists the commands");
}

// The words of one command. Its options are found by their names.
class Line {
  public:
    Line(const Command& command, std::vector<std::string> words);

    bool wants_help() const { return app_.count(kHelp) > 0; }
    // Converts all values and stores them in the request.
    void store() const;

  private:
    static constexpr const char* kHelp = "--help";

    std::string why_not_parsed(const std::vector<std::string>& words) const;
    bool given(std::string_view name) const { return app_.count(std::string(name)) > 0; }
    void refuse_remaining() const;
    void check_rules(const Option& option) const;
    void store(const Option& option) const;
    std::int64_t number(const Option& option, const std::string& text) const;

    const Command& command_;
    CLI::App app_;
};

Line::Line(const Command& command, std::vector<std::string> words) : command_(command) {
    app_.allow_windows_style_options(false);  // paths may begin with a slash
    app_.allow_extras();                      // refuse_remaining() knows more to say
    app_.set_help_flag();
    app_.add_flag("-h," + std::string(kHelp))->disable_flag_override();
    for (const Option& option : command.options) {
        const std::string name(option.is_argument() ? option.word() : option.name);
        if (option.is_flag()) {
            app_.add_flag(name)->disable_flag_override();
        } else {
            app_.add_option(name)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        }
    }
    const std::vector<std::string> in_order = words;
    std::reverse(words.begin(), words.end());
    try {
        app_.parse(words);
    } catch (const CLI::ParseError&) {
        refuse(command_, why_not_parsed(in_order));
    }
}

// Only two things stop the parser: a flag with a value, and an option at the end without one.
std::string Line::why_not_parsed(const std::vector<std::string>& words) const {
    for (const std::string& word : words) {
        const std::string name = word.substr(0, word.find('='));
        const bool is_flag =
            name == kHelp || std::ranges::any_of(command_.options, [&](const Option& option) {
                return option.is_flag() && option.name == name;
            });
        if (is_flag && name != word) return name + " takes no value";
    }
    return words.back().substr(0, words.back().find('=')) + " needs a value";
}

void Line::refuse_remaining() const {
    std::vector<std::string> remaining = app_.remaining();
    const bool are_arguments = std::erase(remaining, "--") > 0;  // the parser keeps this word
    if (remaining.empty()) return;
    const std::string& word = remaining.front();
    if (are_arguments || !word.starts_with('-'))
        refuse(command_, "unexpected argument \"" + word + "\"");
    std::vector<std::string> names{kHelp};
    for (const Option& option : command_.options) {
        if (!option.is_argument()) names.emplace_back(option.name);
    }
    const std::string name = word.substr(0, word.find('='));
    refuse(command_, "no option \"" + name + "\"" + did_you_mean(name, names));
}

void Line::check_rules(const Option& option) const {
    const std::string name(option.name);
    if (option.is_required() && !given(option.word())) refuse(command_, name + " is missing");
    if (option.is_argument() || !given(option.name)) return;
    // Only a key may be empty. Any other empty value probably comes from a script whose variable
    // is not set.
    const bool may_be_empty = std::holds_alternative<std::optional<std::string>*>(option.target);
    if (!may_be_empty && app_.get_option(name)->results().back().empty()) {
        refuse(command_, name + " needs a value");
    }
    const auto is_given = [&](const std::string& other) { return given(other); };
    const std::vector<std::string> excluded = words_of(option.rules.excludes);
    const auto other = std::ranges::find_if(excluded, is_given);
    if (other != excluded.end()) refuse(command_, name + " excludes " + *other);
    const std::vector<std::string> needed = words_of(option.rules.needs);
    if (needed.empty() ||
        std::ranges::any_of(needed, [&](const auto& each) { return given(each); }))
        return;
    std::string choice = needed.front();
    for (std::size_t i = 1; i < needed.size(); ++i) choice += " or " + needed[i];
    refuse(command_, name + " needs " + choice);
}

std::int64_t Line::number(const Option& option, const std::string& text) const {
    std::int64_t amount = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, amount);
    const Rules& rules = option.rules;
    if (error == std::errc() && stop == end && amount >= rules.least && amount <= rules.most) {
        return amount;
    }
    refuse(command_, std::string(option.name) + " " + text + ": expected a whole number from " +
                         std::to_string(rules.least) + " to " + std::to_string(rules.most));
}

void Line::store(const Option& option) const {
    const std::string name(option.is_argument() ? option.word() : option.name);
    const std::vector<std::string> values = app_.get_option(name)->results();
    if (values.empty()) return;
    const std::string& last = values.back();
    struct Storing {
        void operator()(bool* place) const { *place = true; }
        void operator()(int* place) const { *place = static_cast<int>(number()); }
        void operator()(std::uint32_t* place) const {
            *place = static_cast<std::uint32_t>(number());
        }
        void operator()(std::optional<std::uint32_t>* place) const {
            *place = static_cast<std::uint32_t>(number());
        }
        void operator()(std::string* place) const { *place = last; }
        void operator()(std::optional<std::string>* place) const { *place = last; }
        void operator()(std::vector<std::string>* place) const { *place = values; }
        std::int64_t number() const { return line.number(option, last); }

        const Line& line;
        const Option& option;
        const std::string& last;
        const std::vector<std::string>& values;
    };
    std::visit(Storing{*this, option, last, values}, option.target);
}

void Line::store() const {
    refuse_remaining();
    for (const Option& option : command_.options) check_rules(option);
    for (const Option& option : command_.options) store(option);
}

}  // namespace

ExitCode run_command_line(const std::vector<std::string>& words) {
    Requests requests;
    const std::vector<Command> commands = make_commands(requests);
    if (words.empty()) {
        std::cerr << overview(commands, platform::StandardStream::kError);
        return ExitCode::kUsage;
    }
    const std::string& first = words.front();
    if (first == "--help" || first == "-h") {
        std::cout << overview(commands, platform::StandardStream::kOutput);
        return ExitCode::kOk;
    }
    if (first == "--version") {
        std::cout << version_text() << "\n";
        return ExitCode::kOk;
    }
    const Command& command = find_command(commands, first);
    const Line line(command, {words.begin() + 1, words.end()});
    if (line.wants_help()) {
        std::cout << help_of(command);
        return ExitCode::kOk;
    }
    line.store();
    return command.run();
}

}  // namespace brenik::tools
