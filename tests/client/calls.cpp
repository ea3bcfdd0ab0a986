// Calls, arguments and results of the stand-in, as every function handles them.

#include "client/calls.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
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

void separate(std::string& line) {
    if (!line.empty()) line += ", ";
}

}  // namespace

void fail(Status status, const std::string& text) { throw Failure{status, text}; }

void violate(Status status, const std::string& text) {
    record_of_calls().add_violation(text);
    fail(status, text);
}

// -- The record of calls.

// Never destroyed: the process may end while a host still uses its tables.
CallRecord& record_of_calls() {
    static CallRecord& record = *new CallRecord;
    return record;
}

bool CallRecord::begin(const char* name) {
    function = name;
    ++calls;
    ++calls_of[name];
    return !failing_.empty() && is_due(name);
}

bool CallRecord::is_due(std::string_view name) {
    if (failing_ != "any" && failing_ != name) return false;
    ++matches;
    if (matches != occurrence_ && !(lasting_ && matches > occurrence_)) return false;
    ++failed;
    return true;
}

bool CallRecord::set_failure(const std::string& text) {
    failing_.clear();
    matches = failed = 0;
    failure_status_ = kMadeToFail;
    if (text.empty()) return true;
    const std::size_t colon = text.find(':');
    if (colon == 0 || colon == std::string::npos) return false;
    const char* end = text.data() + text.size();
    auto number = std::from_chars(text.data() + colon + 1, end, occurrence_);
    lasting_ = number.ptr != end && *number.ptr == '+';
    if (lasting_) ++number.ptr;
    if (number.ptr != end && *number.ptr == ':') {
        number = std::from_chars(number.ptr + 1, end, failure_status_);
    }
    if (number.ec != std::errc() || number.ptr != end || occurrence_ == 0) return false;
    failing_ = text.substr(0, colon);
    return true;
}

void CallRecord::open_log(const std::string& path) { log_ = std::fopen(path.c_str(), "ab"); }

// One write per line, so that the lines of several processes stay whole.
void CallRecord::log(const std::string& name, const std::string& arguments, Status status) const {
    const std::string line = std::to_string(getpid()) + '\t' + name + '\t' + arguments + '\t' +
                             std::to_string(status) + '\n';
    std::fwrite(line.data(), 1, line.size(), log_);
    std::fflush(log_);
}

void CallRecord::add_violation(const std::string& text) {
    violations.push_back(std::string(function) + ": " + text);
    if (logging()) log("violation", violations.back(), kSuccess);
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
    return error.status;
}

void note_success() {
    if (reads("last_error=cleared")) record_of_calls().last_error = {kSuccess, ""};
}

bool fails_after() noexcept { return reads("fail_after=1"); }

Status made_to_fail() noexcept {
    CallRecord& calls = record_of_calls();
    calls.last_error = {calls.failure_status(), "made to fail by a test"};
    return calls.failure_status();
}

// -- Arguments in the log.

void show(std::string& line, HandleArgument argument) {
    separate(line);
    line += 'h' + std::to_string(argument.handle);
}

void show(std::string& line, HandleResult argument) {
    separate(line);
    line += '[';
    const U8* bytes = static_cast<const U8*>(argument.handles);
    const std::size_t width = reads("handle_width=four") ? sizeof(U32) : sizeof(Handle);
    const std::size_t count = argument.count == nullptr ? 1 : *argument.count;
    for (std::size_t i = 0; bytes != nullptr && i < count; ++i) {
        Handle handle = 0;
        std::memcpy(&handle, bytes + i * width, width);
        line += (i == 0 ? "h" : " h") + std::to_string(handle);
    }
    line += ']';
}

void show(std::string& line, FieldArgument argument) {
    const auto position = reinterpret_cast<std::uintptr_t>(argument.field);
    if (position >= kLowestPointer) return show(line, argument.field);
    show(line, static_cast<std::int64_t>(position));
}

void show(std::string& line, const char* text) {
    separate(line);
    if (text == nullptr) {
        line += '-';
        return;
    }
    line += '"';
    line.append(text, strnlen(text, kLongestText));
    line += '"';
}

void show(std::string& line, std::int64_t number) {
    separate(line);
    line += std::to_string(number);
}

void show(std::string& line, const U16* number) {
    number == nullptr ? show(line, static_cast<const char*>(nullptr))
                      : show(line, static_cast<std::int64_t>(*number));
}

void show(std::string& line, const U32* number) {
    number == nullptr ? show(line, static_cast<const char*>(nullptr))
                      : show(line, static_cast<std::int64_t>(*number));
}

// -- Checks and results.

std::string_view text_argument(const char* text, const char* what) {
    require(text != nullptr, what);
    const std::size_t length = strnlen(text, kLongestText);
    require(length < kLongestText, what);
    return {text, length};
}

template <class Size>
void give_text(std::string_view text, char* buffer, Size* size) {
    result_argument(size);
    require(buffer != nullptr || *size == 0, "a buffer is null");
    const std::size_t room = *size;
    const std::size_t needed = text.size() + 1;
    const bool fits = needed <= room;
    const std::size_t copied = std::min(text.size(), room);
    if (copied != 0) std::memcpy(buffer, text.data(), copied);
    *size = static_cast<Size>(fits ? text.size() : needed);
    if (!fits) fail(kShortBuffer, "the buffer is too small");
    buffer[text.size()] = '\0';
}
template void give_text(std::string_view, char*, U16*);
template void give_text(std::string_view, char*, U32*);

template <class Size>
void give_data(std::string_view data, void* buffer, Size* size) {
    result_argument(size);
    require(buffer != nullptr || *size == 0, "a buffer is null");
    const std::size_t room = *size;
    const std::size_t copied = std::min(data.size(), room);
    if (copied != 0) std::memcpy(buffer, data.data(), copied);
    *size = static_cast<Size>(data.size());
    if (room < data.size()) fail(kShortBuffer, "the buffer is too small");
}
template void give_data(std::string_view, void*, U16*);
template void give_data(std::string_view, void*, U32*);

void give_handle(Handle handle, void* result, std::size_t number) {
    require(result != nullptr, "a pointer for a handle is null");
    const std::size_t width = reads("handle_width=four") ? sizeof(U32) : sizeof(Handle);
    std::memcpy(static_cast<U8*>(result) + number * width, &handle, width);
}

}  // namespace brenik::stand_in
