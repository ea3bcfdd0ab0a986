// What every function of the stand-in does: it counts and logs the call, fails when it is told to,
// checks its arguments, and turns faults into statuses.
//
// The caller's breaches of the library's rules are violations: each is an error status and a line
// for the test that looks for them.

#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#ifndef STAND_IN_EXPORT
#define STAND_IN_EXPORT
#endif
#ifndef STAND_IN_CALL
#define STAND_IN_CALL
#endif
// Begins the definition of a function that the library exports.
#define STAND_IN_FUNCTION(type) extern "C" STAND_IN_EXPORT type STAND_IN_CALL

namespace brenik::stand_in {

using Handle = std::uintptr_t;
using Status = std::uint32_t;
using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using I32 = std::int32_t;

// The statuses that the stand-in answers with.
enum : Status {
    kSuccess = 0,
    kInternalFault = 5000,
    kTooLong = 5003,
    kShortBuffer = 5005,
    kBadArgument = 5012,
    kBadOrderHandle = 5014,
    kBadHandle = 5018,
    kBadRecordNumber = 5022,
    kBadTableHandle = 5023,
    kNoDriveConnection = 5033,
    kNoConnection = 5036,
    kNoFilter = 5037,
    kNotFound = 5041,
    kDuplicateAlias = 5051,
    kUnknownField = 5059,
    kNotLocked = 5062,
    kNotShared = 5064,
    kIndexAlreadyOpen = 5065,
    kNoCurrentRecord = 5068,
    kTruncated = 5071,
    kReadOnly = 5072,
    kBadDay = 5079,
    kBadMonth = 5080,
    kPendingUpdate = 5086,
    kTableNotLocked = 5087,
    kWrongType = 5095,
    kServerLost = 6610,
    kCannotOpen = 7008,
    kCorrupt = 7016,
    kDuplicateKey = 7057,
    kDictionary = 7077,
    kMadeToFail = 7999,
};

// Ends a call with this status.
struct Failure {
    Status status;
    std::string text;
};
[[noreturn]] void fail(Status status, const std::string& text);
[[noreturn]] void violate(Status status, const std::string& text);
inline void require(bool kept, const char* rule) {
    if (!kept) violate(kBadArgument, rule);
}

// The calls so far, the log, and the failure that a test asked for.
class CallRecord {
  public:
    // Begins the call of a function. True when it is to fail.
    bool begin(const char* function);
    // Ends it, and writes it to the log.
    bool logging() const { return log_ != nullptr; }
    void log(const std::string& function, const std::string& arguments, Status status) const;

    void open_log(const std::string& path);
    // "function:occurrence[+][:status]"; "any" means every function, "+" that call and all later
    // ones. Occurrences are counted from now, or from the last "calls=0", on. An empty text ends
    // it. False if it is malformed.
    bool set_failure(const std::string& text);
    // True for the calls of the failure's function that are to fail. A part of a function with a
    // name of its own is asked for like a function.
    bool is_due(std::string_view function);
    Status failure_status() const { return failure_status_; }

    void add_violation(const std::string& text);
    std::vector<std::string> violations;
    unsigned calls = 0;
    unsigned failed = 0;   // calls made to fail
    unsigned matches = 0;  // calls that the failure's function had since it was set
    std::unordered_map<const char*, unsigned> calls_of;
    const char* function = "";  // of the present call
    Failure last_error{kSuccess, ""};

  private:
    std::FILE* log_ = nullptr;
    std::string failing_;
    unsigned occurrence_ = 0;
    bool lasting_ = false;
    Status failure_status_ = kMadeToFail;
};
CallRecord& record_of_calls();

// -- Arguments, as the log shows them. What a pointer points to is shown after the call.
struct HandleArgument {
    Handle handle;
};
struct HandleResult {
    const void* handles;
    const U16* count = nullptr;  // one without
};
struct FieldArgument {
    const char* field;
};
inline HandleArgument given(Handle handle) { return {handle}; }
void show(std::string& line, HandleArgument argument);
void show(std::string& line, HandleResult argument);
void show(std::string& line, FieldArgument argument);
void show(std::string& line, const char* text);
void show(std::string& line, std::int64_t number);
void show(std::string& line, const U16* number);
void show(std::string& line, const U32* number);

// Runs the work of a function and returns its status.
template <class Work>
Status attempt(const Work& work) noexcept;
Status status_of_exception() noexcept;  // of the one being handled
void note_success();

template <class Work>
Status attempt(const Work& work) noexcept {
    try {
        work();
        note_success();
        return kSuccess;
    } catch (...) {
        return status_of_exception();
    }
}

Status made_to_fail() noexcept;
bool fails_after() noexcept;

template <class Work, class... Arguments>
Status call(const char* function, const Work& work, Arguments... arguments) noexcept {
    CallRecord& calls = record_of_calls();
    const bool fails = calls.begin(function);
    Status status = fails && !fails_after() ? kSuccess : attempt(work);
    if (fails) status = made_to_fail();
    if (calls.logging()) {
        std::string line;
        (show(line, arguments), ...);
        calls.log(function, line, status);
    }
    return status;
}

// -- Checks of arguments.
// The text, which must end in NUL within a sane length.
std::string_view text_argument(const char* text, const char* what);
template <class T>
T& result_argument(T* result) {
    require(result != nullptr, "a pointer for a result is null");
    return *result;
}

// Gives a text back. `size` is the size of the buffer, and afterwards the length of the text. A
// short buffer gets what fits, and `size` what is needed.
template <class Size>
void give_text(std::string_view text, char* buffer, Size* size);
// The same for data, which no NUL follows.
template <class Size>
void give_data(std::string_view data, void* buffer, Size* size);
void give_handle(Handle handle, void* result, std::size_t number = 0);

}  // namespace brenik::stand_in
