// What every function of the stand-in does: it counts and logs the call, fails when a test wants it
// to, checks its arguments, and turns exceptions into statuses.
//
// A caller's breach of the library's rules is a violation: an error status, and a line for the test
// that looks for them.

#pragma once

#include <concepts>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#ifndef STAND_IN_CALL
#define STAND_IN_CALL
#endif
// Defines an exported function: its name, its parameters, those that the log shows, and its work.
#define STAND_IN(name, parameters, shown, ...)                              \
    extern "C" STAND_IN_EXPORT Status STAND_IN_CALL name parameters {       \
        return call(                                                        \
            #name, [&] { __VA_ARGS__; }, [&] { return shown_line shown; }); \
    }

namespace brenik::stand_in {

enum class Handle : std::uintptr_t { kNone = 0 };
using Status = std::uint32_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using I32 = std::int32_t;

// Statuses that the stand-in answers for several reasons. The others stand beside their reasons.
enum : Status {
    kSuccess = 0,
    kInternalFault = 5000,
    kShortBuffer = 5005,
    kBadArgument = 5012,
    kBadRecordNumber = 5022,
    kNoConnection = 5036,
    kNotFound = 5041,
    kTruncated = 5071,
    kReadOnly = 5072,
    kBadMonth = 5080,
    kWrongType = 5095,
    kServerLost = 6610,
    kCorrupt = 7016,
    kDuplicateKey = 7057,
    kMadeToFail = 7999,
};

// Ends a call with this status.
struct Failure {
    Status status = kSuccess;
    std::string text = {};
};
[[noreturn]] void fail(Status status, const std::string& text);
[[noreturn]] void violate(Status status, const std::string& text);
inline void require(bool kept, const char* rule) {
    if (!kept) violate(kBadArgument, rule);
}

// The log, what went wrong, and the failure that a test asked for.
struct CallRecord {
    // "FUNCTION:OCCURRENCE[:STATUS]"; "any" means every function. Occurrences are counted from now
    // on. An empty text ends it. False if it is malformed.
    bool set_failure(const std::string& text);
    // Counts an occurrence of a function, or of a part of one that can fail by itself. True when it
    // is to fail.
    bool is_due(std::string_view name);
    void write_log(const std::string& name, const std::string& shown, Status status) const;

    const char* function = "";  // of the present call
    std::vector<std::string> violations;
    Failure last_error;
    std::FILE* log = nullptr;

    std::string failing;  // the function; empty for none
    unsigned occurrence = 0;
    Status failure_status = kMadeToFail;
    unsigned matches = 0;  // calls of the function since the failure was set
};
CallRecord& record_of_calls();

// -- Arguments, as the log shows them. What a pointer points to is shown after the call.
std::string shown(Handle handle);
std::string shown(const Handle* answer);
std::string shown(const char* text);  // or a field's position
std::string shown(std::integral auto number) { return std::to_string(number); }
template <std::integral Number>
std::string shown(const Number* answer) {
    return answer == nullptr ? "-" : std::to_string(*answer);
}
std::string shown_line(auto... arguments) {
    std::string line;
    ((line += (line.empty() ? "" : ", ") + shown(arguments)), ...);
    return line;
}

// -- The frame of a call.
Status call(const char* function, const std::function<void()>& work,
            const std::function<std::string()>& shown) noexcept;

// -- Arguments and results.

// A text that must end in NUL within a sane length.
std::string text_argument(const char* text, const char* what);
std::string_view data_argument(const void* data, U32 size);
// Positions of fields are handed over as pointers below a certain value: true for those.
bool is_position(const char* field);
template <class T, class V>
void give(T* result, V value) {
    require(result != nullptr, "a pointer for a result is null");
    *result = static_cast<T>(value);
}
// Gives a text back. `size` is the size of the buffer, and afterwards the length of the text. A
// short buffer gets what fits, and `size` what is needed. No NUL follows data.
enum class Ending { kNul, kNone };
template <class Size>
void give_text(std::string_view text, void* buffer, Size* size, Ending ending = Ending::kNul);
void give_handle(Handle handle, Handle* result, std::size_t number = 0);

}  // namespace brenik::stand_in
