// Reads lines and finds a value in them, for malformed files and for files with a mark that the
// system's own reader does not understand.
//
// Only the first section of a name is searched. The file is read in chunks, and only its first 64
// MB, so that a wrong path to a huge file costs little memory and time.

#include "platform/profile.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/file.h"
#include "platform/marked_text.h"
#include "platform/profile_reader.h"
#include "util/runtime.h"

namespace brenik::platform {

namespace {

constexpr std::size_t kChunkSize = std::size_t{64} * 1024;
constexpr std::uint64_t kMostBytesRead = 64ull * 1024 * 1024;

class LineReader {
  public:
    explicit LineReader(File file) : file_(std::move(file)) {
        if (!fill()) return;
        form_ = marked_form(rest_);
        rest_.remove_prefix(mark_size(form_));
    }

    bool marked() const { return form_ != TextForm::kBytes; }

    // Reads the next line, without its LF; a CR before the LF stays and counts as a blank. The line
    // is UTF-8 if the file is marked.
    bool next(std::string& line) {
        line.clear();
        bool ended = false;
        while (!ended && (!rest_.empty() || fill())) {
            const std::size_t length = line_end(rest_, form_);
            line.append(rest_.substr(0, length));
            ended = length < rest_.size();
            rest_.remove_prefix(ended ? length + unit_size(form_) : length);
        }
        if (marked()) line = utf8_of(line, form_);
        return ended || !line.empty();
    }

    // Converts a part of a line to the process's code page.
    std::string text(std::string_view part) const {
        return marked() ? in_code_page(std::string(part)) : std::string(part);
    }

  private:
    // Every chunk but the last has an even size, so no two-byte unit spans two chunks.
    bool fill() {
        if (offset_ >= std::min(kMostBytesRead, file_.size_at_open())) return false;
        const std::uint64_t left = file_.size_at_open() - offset_;
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, kChunkSize));
        chunk_.resize(wanted);
        const std::size_t count = file_.read_at(offset_, chunk_);
        offset_ += count;
        rest_ = {reinterpret_cast<const char*>(chunk_.data()), count};
        return count > 0;
    }

    File file_;
    TextForm form_ = TextForm::kBytes;
    std::vector<std::uint8_t> chunk_;
    std::string_view rest_;
    std::uint64_t offset_ = 0;
};

// Old editors end a text with the byte 0x1A, which counts as a blank.
std::string_view without_blanks(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\v\f\x1A";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view without_quotes(std::string_view value) {
    const bool quoted = value.size() >= 2 && value.front() == value.back() &&
                        (value.front() == '"' || value.front() == '\'');
    return quoted ? value.substr(1, value.size() - 2) : value;
}

// The name in a line of the form "[name]". The line must have no blanks around it.
std::optional<std::string_view> section_name(std::string_view line) {
    if (line.empty() || line.front() != '[') return std::nullopt;
    const std::size_t end = line.find(']');
    if (end == std::string_view::npos) return std::nullopt;
    return without_blanks(line.substr(1, end - 1));
}

std::optional<std::string> find_value(LineReader& lines, std::string_view section,
                                      std::string_view key) {
    bool inside = false;
    std::string raw;
    while (lines.next(raw)) {
        const std::string_view line = without_blanks(raw);
        if (line.empty() || line.front() == ';') continue;
        if (const auto name = section_name(line)) {
            if (inside) return std::nullopt;
            inside = equal_ignoring_case(lines.text(*name), section);
            continue;
        }
        const std::size_t equals = line.find('=');
        if (!inside || equals == std::string_view::npos) continue;
        if (equal_ignoring_case(lines.text(without_blanks(line.substr(0, equals))), key)) {
            return lines.text(without_quotes(without_blanks(line.substr(equals + 1))));
        }
    }
    return std::nullopt;
}

// File name and reason; empty for a file that is open or missing.
std::string why_unreadable(const File& file) {
    const bool missing = file.failure() == OpenFailure::kMissing;
    return file.is_open() || missing ? std::string() : file.path() + ": " + file.why_not_open();
}

// A missing file has no lines.
std::string value_in(File file, const std::string& section, const std::string& key,
                     const std::string& fallback, const std::string& path) {
    LineReader lines(std::move(file));
    if (!lines.marked()) {
        if (const auto value = system_profile_string(section, key, fallback, path)) return *value;
    }
    return find_value(lines, without_blanks(section), without_blanks(key)).value_or(fallback);
}

}  // namespace

std::string profile_string(const std::string& section, const std::string& key,
                           const std::string& fallback, const std::string& path,
                           std::string* unreadable) {
    File file = File::open(path, OpenMode::kSettings);
    std::string reason = why_unreadable(file);
    try {
        if (reason.empty()) return value_in(std::move(file), section, key, fallback, path);
    } catch (const FileError& error) {
        reason = error.what();
    }
    if (unreadable != nullptr) *unreadable = reason;
    return fallback;
}

}  // namespace brenik::platform
