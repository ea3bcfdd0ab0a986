// The twelve exports.
//
// An export passes its arguments to call(), which looks up the operation by name, runs it, copies
// results back into the host's memory and returns the operation's code. call() is also the only
// exception barrier: any exception ends here as code kStoppedByFault, with a line in the fault file
// and the trace log. All locks are then released and the session stays usable.

#include "brenikdb.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <string>

#include "BrenikDB/codes.h"
#include "BrenikDB/process_session.h"
#include "BrenikDB/registry.h"
#include "fwp/fault_file.h"
#include "platform/host_state.h"
#include "util/fault.h"
#include "util/runtime.h"

namespace brenik {

namespace {

static_assert(int{kNotRegistered} == BRENIK_NOT_REGISTERED &&
              int{kStoppedByFault} == BRENIK_FAULT && int{kKeyNotFound} == BRENIK_KEY_NOT_FOUND);

constexpr std::size_t kIdentifierSize = 7;

// The operation that starts a session.
constexpr std::string_view kBeginning = "StartUp";

// `in_out` receives the table number even if the look-up fails with kNotRegistered, so the write
// comes between the look-up and the test of its result. The operation gets the value on entry.
struct TableNumber {
    int table;
    int* in_out;
    int given = *in_out;
    operator Value() const { return given; }
};

// Memory of the host that an operation reads and that receives its result.
struct Buffer {
    char* bytes;
    Value (*read)(const char* bytes);
    void (*write)(char* bytes, const std::string& result);
    operator Value() const { return read(bytes); }
};

Value given_text(const char* bytes) { return bytes; }

// The host's text if it has the length of an identifier, else blanks.
Value given_identifier(const char* bytes) {
    const bool given = bytes && std::strlen(bytes) == kIdentifierSize;
    return given ? std::string(bytes) : std::string(kIdentifierSize, ' ');
}

void write_identifier(char* bytes, const std::string& result) {
    std::memcpy(bytes, pad_right(result, kIdentifierSize).c_str(), kIdentifierSize + 1);
}

// Copies at most the length of the host's own text. The NUL goes one byte past the end, and the
// byte between is left as it was: published behaviour, for which hosts size their buffers.
void write_within(char* bytes, const std::string& result) {
    const std::size_t count = std::min(result.size(), std::strlen(bytes));
    std::memcpy(bytes, result.data(), count);
    bytes[count + 1] = '\0';
}

void looked_up(const auto&) {}
void looked_up(const TableNumber& number) { *number.in_out = number.table; }

void copy_back(const auto&, const Value&) {}
void copy_back(const Buffer& buffer, const Value& result) {
    buffer.write(buffer.bytes, result.text());
}

// Closes the trace log after each call, because others may empty or remove it between two calls.
struct ClosedTraceLog {
    explicit ClosedTraceLog(Session& in) : session(in) {}
    ~ClosedTraceLog() { session.trace_log.close(); }
    Session& session;
};

BrenikCode run(std::string_view name, Operation operation, std::span<Value> arguments) {
    Session& session = process_session();
    if (session.variables.inherited && name != kBeginning) {
        throw EngineFault(FaultCode::kOtherProcess, std::string(name),
                          "the session belongs to the process that forked this one; "
                          "call BrenikInitialize first");
    }
    const ClosedTraceLog afterwards(session);
    return static_cast<BrenikCode>(operation(session, arguments).whole());
}

void recover(std::string_view name, std::string_view fault) noexcept {
    try {
        Session& session = process_session();
        const ClosedTraceLog afterwards(session);
        const WorkAreas::HostCall host_call(session.areas);
        session.recover();
        note_fault(session, name, fault);
    } catch (...) {
        // Without even a session, the code must suffice.
    }
}

template <class... Arguments>
BrenikCode call(std::string_view name, const Arguments&... arguments) noexcept {
    const platform::HostState host_state;
    try {
        const Operation operation = find_operation(name);
        (looked_up(arguments), ...);
        if (!operation) return kNotRegistered;
        std::array<Value, sizeof...(Arguments)> values{Value(arguments)...};
        const BrenikCode code = run(name, operation, values);
        [[maybe_unused]] const Value* result = values.data();
        (copy_back(arguments, *result++), ...);
        return code;
    } catch (const std::exception& fault) {
        recover(name, fault.what());
    } catch (...) {
        recover(name, "unknown fault");
    }
    return kStoppedByFault;
}

}  // namespace

}  // namespace brenik

using namespace brenik;

BrenikCode BRENIK_CALL BrenikInitialize(const char* data_path, int trace, int /*reserved*/) {
    return call(kBeginning, data_path, trace != 0);
}

BrenikCode BrenikShutDown(void) { return call("ShutDown"); }

BrenikCode BRENIK_CALL BrenikAddedRecord(int table, int record) {
    return call("AddedRec", table, record);
}

BrenikCode BRENIK_CALL BrenikDeletedRecord(int table, int record) {
    return call("DeletedRec", table, record);
}

BrenikCode BRENIK_CALL BrenikAddStart(int table, int* in_out) {
    return call("AddStart", table, TableNumber{table, in_out});
}

BrenikCode BRENIK_CALL BrenikAddEnd(int table, char* identifier) {
    return call("AddEnd", table, Buffer{identifier, given_identifier, write_identifier});
}

BrenikCode BRENIK_CALL BrenikEditStart(int table, const char* identifier, int* in_out) {
    return call("EditStart", table, identifier, TableNumber{table, in_out});
}

BrenikCode BRENIK_CALL BrenikEditBegin(int table, int record, int* in_out) {
    return call("EditBegin", table, record, TableNumber{table, in_out});
}

BrenikCode BRENIK_CALL BrenikSetField(int table, int record, const char* field, const char* text) {
    return call("SetField", table, record, field, text);
}

BrenikCode BRENIK_CALL BrenikEditEnd(int table, int record) {
    return call("EditEnd", table, record);
}

BrenikCode BRENIK_CALL BrenikGetMyFirm(char* firm) {
    return call("GetMyFirm", Buffer{firm, given_text, write_within});
}

BrenikCode BRENIK_CALL BrenikGetU_ID(int table, const char* key, char* identifier) {
    return call("GetU_ID", table, key, Buffer{identifier, given_identifier, write_within});
}
