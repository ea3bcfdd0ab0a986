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

// Of the exception that is being handled.
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

bool CallRecord::is_due(std::string_view name) {
    const bool is_meant = failing == name || (failing == "any" && name == function);
    return is_meant && ++matches == occurrence;
}

bool CallRecord::set_failure(const std::string& text) {
    failing.clear();
    matches = 0;
    failure_status = kMadeToFail;
    if (text.empty()) return true;
    const std::size_t colon = text.find(':');
    if (colon == 0 || colon == std::string::npos) return false;
    const char* end = text.data() + text.size();
    auto number = std::from_chars(text.data() + colon + 1, end, occurrence);
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

Status call(const char* function, const std::function<void()>& work,
            const std::function<std::string()>& shown) noexcept {
    CallRecord& record = record_of_calls();
    record.function = function;
    const bool fails = record.is_due(function);
    Status status = kSuccess;
    try {
        if (!fails || reads("fail_after=1")) work();
        if (fails) fail(record.failure_status, "made to fail by a test");
        if (reads("last_error=cleared")) record.last_error = {};
    } catch (...) {
        status = status_of_exception();
    }
    if (record.log != nullptr) record.write_log(function, shown(), status);
    return status;
}

// -- Arguments in the log.

std::string shown(Handle handle) {
    return 'h' + std::to_string(static_cast<std::uintptr_t>(handle));
}

std::string shown(const Handle* answer) {
    Handle handle = Handle::kNone;
    if (answer != nullptr) std::memcpy(&handle, answer, handle_width());
    return '[' + shown(handle) + ']';
}

std::string shown(const char* text) {
    if (is_position(text)) return std::to_string(reinterpret_cast<std::uintptr_t>(text));
    return '"' + std::string(text, strnlen(text, kLongestText)) + '"';
}

// -- Arguments and results.

std::string text_argument(const char* text, const char* what) {
    if (text == nullptr) violate(kBadArgument, std::string(what) + " is null");
    const std::size_t length = strnlen(text, kLongestText);
    if (length == kLongestText) violate(kBadArgument, std::string(what) + " does not end in NUL");
    return {text, length};
}

bool is_position(const char* field) {
    constexpr std::uintptr_t kLowestPointer = 0x10000;
    return reinterpret_cast<std::uintptr_t>(field) < kLowestPointer;
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

void give_handle(Handle handle, Handle* result, std::size_t number) {
    require(result != nullptr, "a pointer for a handle is null");
    char* place = reinterpret_cast<char*>(result) + number * handle_width();
    std::memcpy(place, &handle, handle_width());
}

}  // namespace brenik::stand_in
