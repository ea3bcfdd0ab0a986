// Argument order, copy-back rules, the barrier, and the host's state that stays as it was found.

#include "api/bridge.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <string>

#include "BrenikDB/codes.h"
#include "fwp/fault_file.h"
#include "platform/host_state.h"
#include "util/fault.h"
#include "util/runtime.h"

namespace brenik {

namespace {

constexpr std::size_t kIdentifierSize = 7;

// The operation that begins a session.
constexpr const char* kBeginning = "StartUp";

// What the operation receives: the host's text when it is as long as an identifier, else blanks.
Value incoming_identifier(const char* buffer) {
    const bool given = buffer && std::strlen(buffer) == kIdentifierSize;
    return given ? std::string(buffer) : std::string(kIdentifierSize, ' ');
}

void copy_identifier(const Value& result, char* buffer) {
    const std::string text = pad_right(result.text(), kIdentifierSize);
    std::memcpy(buffer, text.data(), kIdentifierSize);
    buffer[kIdentifierSize] = '\0';
}

// The terminator goes one past the end, and the byte between stays the host's: published behaviour
// that hosts size their buffers for.
void copy_within(const Value& result, char* buffer, std::size_t room) {
    const std::size_t count = std::min(result.text().size(), room);
    std::memcpy(buffer, result.text().data(), count);
    buffer[count + 1] = '\0';
}

// Others may want to empty or remove the trace log between two calls.
struct ClosedTraceLog {
    explicit ClosedTraceLog(Session& in) : session(in) {}
    ~ClosedTraceLog() { session.trace_log.close(); }
    Session& session;
};

}  // namespace

template <class Call>
Bridge::Code Bridge::guarded(std::string_view operation, Call call) const noexcept {
    const platform::HostState host_state;
    try {
        return call(operation);
    } catch (const std::exception& fault) {
        recover(operation, fault.what());
    } catch (...) {
        recover(operation, "unknown fault");
    }
    return kStoppedByFault;
}

Bridge::Code Bridge::run(std::string_view name, Operation operation,
                         std::span<Value> arguments) const {
    Session& session = session_();
    if (session.variables.inherited && name != kBeginning) {
        throw EngineFault(FaultCode::kOtherProcess, std::string(name),
                          "the session belongs to the process that forked this one; "
                          "call BrenikInitialize first");
    }
    const ClosedTraceLog afterwards(session);
    return static_cast<Code>(operation(session, arguments).whole());
}

void Bridge::recover(std::string_view operation, std::string_view fault) const noexcept {
    try {
        Session& session = session_();
        const ClosedTraceLog afterwards(session);
        session.recover();
        note_fault(session, operation, fault);
    } catch (...) {
        // Without even a session the code alone has to tell.
    }
}

template <class... Arguments>
Bridge::Code Bridge::forward(const char* operation_name, Arguments... arguments) const noexcept {
    return guarded(operation_name, [&](std::string_view name) -> Code {
        const Operation operation = look_up_(name);
        if (!operation) return kNotRegistered;
        std::array<Value, sizeof...(Arguments)> values{Value(arguments)...};
        return run(name, operation, values);
    });
}

// The host finds its table number in `in_out` even after kNotRegistered: it is written between the
// look-up and the test of its outcome. The operation receives what was there before.
template <class... Arguments>
Bridge::Code Bridge::forward_start(const char* operation_name, int* in_out, int table,
                                   Arguments... arguments) const noexcept {
    return guarded(operation_name, [&](std::string_view name) -> Code {
        const int given = *in_out;
        const Operation operation = look_up_(name);
        *in_out = table;
        if (!operation) return kNotRegistered;
        std::array<Value, sizeof...(Arguments) + 2> values{Value(table), Value(arguments)...,
                                                           Value(given)};
        return run(name, operation, values);
    });
}

Bridge::Code Bridge::initialize(const char* data_path, int trace) const noexcept {
    return forward(kBeginning, data_path, trace != 0);
}

Bridge::Code Bridge::shut_down() const noexcept { return forward("ShutDown"); }

Bridge::Code Bridge::added_record(int table, int record) const noexcept {
    return forward("AddedRec", table, record);
}

Bridge::Code Bridge::deleted_record(int table, int record) const noexcept {
    return forward("DeletedRec", table, record);
}

Bridge::Code Bridge::add_start(int table, int* in_out) const noexcept {
    return forward_start("AddStart", in_out, table);
}

Bridge::Code Bridge::add_end(int table, char* identifier) const noexcept {
    return guarded("AddEnd", [&](std::string_view name) -> Code {
        const Operation operation = look_up_(name);
        if (!operation) return kNotRegistered;
        std::array<Value, 2> arguments{table, incoming_identifier(identifier)};
        const Code code = run(name, operation, arguments);
        copy_identifier(arguments[1], identifier);
        return code;
    });
}

Bridge::Code Bridge::edit_start(int table, const char* identifier, int* in_out) const noexcept {
    return forward_start("EditStart", in_out, table, identifier);
}

Bridge::Code Bridge::edit_begin(int table, int record, int* in_out) const noexcept {
    return forward_start("EditBegin", in_out, table, record);
}

Bridge::Code Bridge::set_field(int table, int record, const char* field,
                               const char* text) const noexcept {
    return forward("SetField", table, record, field, text);
}

Bridge::Code Bridge::edit_end(int table, int record) const noexcept {
    return forward("EditEnd", table, record);
}

Bridge::Code Bridge::get_my_firm(char* firm) const noexcept {
    return guarded("GetMyFirm", [&](std::string_view name) -> Code {
        const Operation operation = look_up_(name);
        const std::size_t room = std::strlen(firm);
        if (!operation) return kNotRegistered;
        std::array<Value, 1> arguments{firm};
        const Code code = run(name, operation, arguments);
        copy_within(arguments[0], firm, room);
        return code;
    });
}

Bridge::Code Bridge::get_u_id(int table, const char* key, char* identifier) const noexcept {
    return guarded("GetU_ID", [&](std::string_view name) -> Code {
        const Operation operation = look_up_(name);
        const std::size_t room = std::strlen(identifier);
        if (!operation) return kNotRegistered;
        std::array<Value, 3> arguments{table, key, incoming_identifier(identifier)};
        const Code code = run(name, operation, arguments);
        copy_within(arguments[2], identifier, room);
        return code;
    });
}

}  // namespace brenik
