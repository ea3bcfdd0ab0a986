// Consoles of Windows. A console shows UTF-16 text whatever its code page is. Bytes it would
// interpret in that code page, so none are written to it.

#include "platform/console.h"

#include <windows.h>
// After windows.h, which it needs.
#include <shellapi.h>

#include <array>
#include <iostream>
#include <memory>
#include <optional>
#include <streambuf>
#include <string_view>

#include "platform/windows/system_text.h"

namespace brenik::platform {

namespace {

HANDLE handle_of(StandardStream stream) {
    return GetStdHandle(stream == StandardStream::kOutput ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

std::optional<DWORD> console_mode(StandardStream stream) {
    DWORD mode = 0;
    if (GetConsoleMode(handle_of(stream), &mode) == 0) return std::nullopt;
    return mode;
}

// How many of the last bytes begin a character of UTF-8 that is not complete yet.
std::size_t unfinished_bytes(std::string_view text) {
    for (std::size_t back = 1; back <= 3 && back <= text.size(); ++back) {
        const auto byte = static_cast<unsigned char>(text[text.size() - back]);
        if ((byte & 0xC0) == 0x80) continue;
        const std::size_t needed = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        return needed > back ? back : 0;
    }
    return 0;
}

// Bytes that are not UTF-8 become replacement characters.
std::wstring shown_form(std::string_view text) {
    const int size = static_cast<int>(text.size());
    const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), length);
    return wide;
}

// Writes UTF-8 to a console in place of a stream's own buffer, which it puts back at its end.
class ConsoleBuffer : public std::streambuf {
  public:
    ConsoleBuffer(std::ostream& stream, StandardStream which)
        : stream_(stream), console_(handle_of(which)), before_(stream.rdbuf(this)) {
        setp(bytes_.data(), bytes_.data() + bytes_.size());
    }
    ~ConsoleBuffer() override {
        write_out();
        stream_.rdbuf(before_);
    }
    ConsoleBuffer(const ConsoleBuffer&) = delete;
    ConsoleBuffer& operator=(const ConsoleBuffer&) = delete;

  protected:
    int_type overflow(int_type next) override {
        if (!write_out()) return traits_type::eof();
        if (!traits_type::eq_int_type(next, traits_type::eof())) {
            sputc(traits_type::to_char_type(next));
        }
        return traits_type::not_eof(next);
    }
    int sync() override { return write_out() ? 0 : -1; }

  private:
    bool write_out() {
        const std::string_view text(pbase(), static_cast<std::size_t>(pptr() - pbase()));
        const std::size_t kept = unfinished_bytes(text);
        const bool written = write(shown_form(text.substr(0, text.size() - kept)));
        const std::string tail(text.substr(text.size() - kept));
        setp(bytes_.data(), bytes_.data() + bytes_.size());
        for (const char byte : tail) sputc(byte);
        return written;
    }

    bool write(std::wstring_view text) const {
        while (!text.empty()) {
            DWORD written = 0;
            const auto size = static_cast<DWORD>(text.size());
            if (WriteConsoleW(console_, text.data(), size, &written, nullptr) == 0) return false;
            if (written == 0) return false;
            text.remove_prefix(written);
        }
        return true;
    }

    std::ostream& stream_;
    HANDLE console_;
    std::streambuf* before_;
    std::array<char, 8192> bytes_{};  // a console that gets more at once may refuse it
};

}  // namespace

class ProgramText::Console {
  public:
    Console() {
        for (const StandardStream each : {StandardStream::kOutput, StandardStream::kError}) {
            const std::optional<DWORD> mode = console_mode(each);
            if (!mode) continue;
            const bool output = each == StandardStream::kOutput;
            auto& buffer = output ? output_ : error_;
            buffer = std::make_unique<ConsoleBuffer>(output ? std::cout : std::cerr, each);
            if (!mode_) mode_ = {handle_of(each), *mode};
            SetConsoleMode(handle_of(each), *mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
        }
    }
    ~Console() {
        output_.reset();
        error_.reset();
        if (mode_) SetConsoleMode(mode_->console, mode_->mode);
    }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

  private:
    struct Mode {
        HANDLE console;
        DWORD mode;
    };

    std::unique_ptr<ConsoleBuffer> output_, error_;
    std::optional<Mode> mode_;  // before this program; both streams share one console
};

// The C library's arguments lack the characters outside the ANSI code page.
ProgramText::ProgramText(int argc, char** argv) {
    use_utf8();
    int count = 0;
    wchar_t** words = CommandLineToArgvW(GetCommandLineW(), &count);
    if (words == nullptr) {
        arguments_.assign(argv, argv + argc);
    } else {
        for (int i = 0; i < count; ++i) arguments_.push_back(narrow_text(words[i]));
        LocalFree(words);
    }
    console_ = std::make_unique<Console>();
}

ProgramText::~ProgramText() = default;

bool is_terminal(StandardStream stream) { return console_mode(stream).has_value(); }

bool takes_escapes(StandardStream stream) {
    return (console_mode(stream).value_or(0) & ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

int terminal_columns(StandardStream stream) {
    CONSOLE_SCREEN_BUFFER_INFO facts;
    if (GetConsoleScreenBufferInfo(handle_of(stream), &facts) == 0) return 0;
    return facts.srWindow.Right - facts.srWindow.Left + 1;
}

bool is_pipe(StandardStream stream) { return GetFileType(handle_of(stream)) == FILE_TYPE_PIPE; }

bool is_disk_file(StandardStream stream) {
    return GetFileType(handle_of(stream)) == FILE_TYPE_DISK;
}

void outlive_readers() {}  // Windows has no signal for it

}  // namespace brenik::platform
