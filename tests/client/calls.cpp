// Calls, arguments and results of the stand-in, as every function handles them.

#include "client/calls.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "client/readings.h"
#include "util/fault.h"

namespace brenik::stand_in {
namespace {

constexpr std::size_t kLongestText = 4096;
// Positions of fields are handed over as pointers below this value.
constexpr std::uintptr_t kLowestPointer = 0x10000;

Status status_of(const EngineFault& fault) {
    switch (fault.code()) {
        case FaultCode::kDamagedFile:
        case FaultCode::kUnsupported:
            return kCorrupt;
        case FaultCode::kDuplicateKey:
            return kDuplicateKey;
        case FaultCode::kNotLocked:
        case FaultCode::kBusy:
            return status_read("lock_failed");
        case FaultCode::kUnsuitableValue:
            return kWrongType;
        default:
            return kInternalFault;
    }
}

std::size_t handle_width() { return reads("handle_width=four") ? sizeof(U32) : sizeof(Handle); }

}  // namespace

void fail(Status status, const std::string& text) { throw Failure{status, text}; }

void violate(Status status, const std::string& text) {
    CallRecord& calls = record_of_calls();
    calls.violations.push_back(std::string(calls.function) + ": " + text);
    if (calls.log != nullptr) calls.write_log("violation", calls.violations.back(), status);
    fail(status, text);
}

// -- The record of calls.

// Never destroyed: the process may end while a host still uses its tables.
CallRecord& record_of_calls() {
    static CallRecord& record = *new CallRecord;
    return record;
}

bool begin_call(const char* function) {
    CallRecord& record = record_of_calls();
    record.function = function;
    ++record.calls;
    ++record.calls_of[function];
    return !record.failing.empty() && record.is_due(function);
}

bool CallRecord::is_due(std::string_view name) {
    const bool part = name != function;
    if (failing != name && (part || failing != "any")) return false;
    ++matches;
    if (matches != occurrence && !(lasting && matches > occurrence)) return false;
    ++failed;
    return true;
}

bool CallRecord::set_failure(const std::string& text) {
    failing.clear();
    matches = failed = 0;
    failure_status = kMadeToFail;
    if (text.empty()) return true;
    const std::size_t colon = text.find(':');
    if (colon == 0 || colon == std::string::npos) return false;
    const char* end = text.data() + text.size();
    auto number = std::from_chars(text.data() + colon + 1, end, occurrence);
    lasting = number.ptr != end && *number.ptr == '+';
    if (lasting) ++number.ptr;
    if (number.ptr != end && *number.ptr == ':') {
        number = std::from_chars(number.ptr + 1, end, failure_status);
    }
    if (number.ec != std::errc() || number.ptr != end || occurrence == 0) return false;
    failing = text.substr(0, colon);
    return true;
}

// One write per line, so that the lines of several processes stay whole.
void CallRecord::write_log(const std::string& name, const std::string& shown, Status status) const {
    const std::string line = std::to_string(getpid()) + '\t' + name + '\t' + shown + '\t' +
                             std::to_string(status) + '\n';
    std::fwrite(line.data(), 1, line.size(), log);
    std::fflush(log);
}

Status status_of_exception() noexcept {
    Failure& error = record_of_calls().last_error;
    try {
        throw;
    } catch (const Failure& failure) {
        error = failure;
    } catch (const EngineFault& fault) {
        error = {status_of(fault), fault.what()};
    } catch (const std::exception& fault) {
        error = {kInternalFault, fault.what()};
    }
    // The numbers from 7000 on and that of a refused lock have readings of their own.
    constexpr Status kElsewhere = 400;
    const bool other = error.status < kServerLost && error.status != status_read("lock_failed");
    if (other && reads("numbers=others")) error.status += kElsewhere;
    return error.status;
}

void note_success() {
    if (reads("last_error=cleared")) record_of_calls().last_error = {};
}

bool fails_after_work() { return reads("fail_after=1"); }

// -- Arguments in the log.

std::string shown(Given argument) { return 'h' + std::to_string(argument.handle); }

std::string shown(Answered argument) {
    std::string line;
    const char* bytes = static_cast<const char*>(argument.handles);
    const std::size_t count = argument.count == nullptr ? 1 : *argument.count;
    for (std::size_t i = 0; bytes != nullptr && i < count; ++i) {
        Handle handle = 0;
        std::memcpy(&handle, bytes + i * handle_width(), handle_width());
        line += (line.empty() ? "" : " ") + shown(Given{handle});
    }
    return '[' + line + ']';
}

std::string shown(FieldName argument) {
    const auto position = reinterpret_cast<std::uintptr_t>(argument.name);
    return position < kLowestPointer ? std::to_string(position) : shown(argument.name);
}

std::string shown(const char* text) {
    return text == nullptr ? "-" : '"' + std::string(text, strnlen(text, kLongestText)) + '"';
}

// -- Arguments and results.

std::string text_argument(const char* text, const char* what) {
    if (text == nullptr) violate(kBadArgument, std::string(what) + " is null");
    const std::size_t length = strnlen(text, kLongestText);
    if (length == kLongestText) violate(kBadArgument, std::string(what) + " does not end in NUL");
    return {text, length};
}

std::string_view data_argument(const void* data, U32 size) {
    require(data != nullptr || size == 0, "the data are null");
    return {static_cast<const char*>(data), size};
}

template <class Size>
void give_text(std::string_view text, void* buffer, Size* size, Ending ending) {
    require(size != nullptr, "a pointer for a length is null");
    require(buffer != nullptr || *size == 0, "a buffer is null");
    const std::size_t room = *size;
    const std::size_t needed = text.size() + (ending == Ending::kNul ? 1 : 0);
    if (room != 0)
        std::copy_n(text.data(), std::min(text.size(), room), static_cast<char*>(buffer));
    *size = static_cast<Size>(needed <= room ? text.size() : needed);
    if (needed > room) fail(kShortBuffer, "the buffer is too small");
    if (ending == Ending::kNul) static_cast<char*>(buffer)[text.size()] = '\0';
}
template void give_text(std::string_view, void*, U16*, Ending);
template void give_text(std::string_view, void*, U32*, Ending);

void give_handle(Handle handle, void* result, std::size_t number) {
    require(result != nullptr, "a pointer for a handle is null");
    std::memcpy(static_cast<char*>(result) + number * handle_width(), &handle, handle_width());
}

}  // namespace brenik::stand_in
