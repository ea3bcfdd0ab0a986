// Layout of trace log records, and writing them to the file.

#include "fwp/trace_log.h"

#include "platform/file.h"
#include "util/bytes.h"
#include "util/runtime.h"

#include <algorithm>

namespace brenik {

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr int kLineNumberWidth = 5;
constexpr int kWidestNumber = 20;
constexpr std::size_t kCallerIndent = 30;

// A number wider than its own width is shown in full.
std::string whole_text(const Number& number) {
    return trimmed_number({number.amount, std::max(number.width, kWidestNumber), number.decimals});
}

std::string argument_text(const Value& value) {
    switch (value.kind()) {
        case ValueKind::kNil:
            return "NIL";
        case ValueKind::kLogical:
            return value.logical() ? ".t." : ".f.";
        case ValueKind::kNumber:
            return whole_text(value.number_form());
        case ValueKind::kCharacter:
        case ValueKind::kMemo:
            return value.text();
        case ValueKind::kDate:
            return value.date().to_mdy();
        case ValueKind::kArray:
            return "{ ... }";
    }
    return {};
}

std::string line_text(unsigned line) {
    return number_text(Number{static_cast<double>(line)}, kLineNumberWidth, 0);
}

bool shows_callers(const Array& arguments) {
    return !arguments.empty() && !arguments.front().is_nil();
}

std::string trace_record(const CallSite& caller, const Array& arguments) {
    std::string record =
        "[" + upper(caller.name) + "] (" + line_text(caller.line) + ") Called from: ";
    record += kLineEnd;
    const CallSite* level = shows_callers(arguments) ? caller.called_by : nullptr;
    for (; level != nullptr && !level->name.empty(); level = level->called_by) {
        record.append(kCallerIndent, ' ').append(upper(level->name));
        record.append("(").append(line_text(level->line)).append(")").append(kLineEnd);
    }
    for (const Value& argument : arguments) {
        record.append(">>>").append(argument_text(argument)).append("<<<").append(kLineEnd);
    }
    return record.append(kLineEnd);
}

}  // namespace

std::string trace_log_path(const Session& session) { return session.data_path() + "Trace.Log"; }

bool TRACELOG(Session& session, std::string_view caller, const Array& arguments, unsigned line,
              const CallSite* called_by) {
    const std::string record = trace_record({caller, line, called_by}, arguments);
    try {
        platform::File& log = session.trace_log;
        if (!log.is_open()) {
            log = platform::File::open(trace_log_path(session), platform::OpenMode::kAppendOnly);
        }
        // On a share, the size query makes the system ask the server for the current end of the
        // file.
        if (log.is_open()) log.write_at(log.size(), as_bytes(record));
    } catch (const EngineFault&) {
        // A full disk must not fail the traced operation.
        session.trace_log.close();
    }
    return true;
}

void write_trace(Session& session, std::string_view caller, Array arguments, unsigned line) {
    arguments.emplace(arguments.begin());
    TRACELOG(session, caller, arguments, line);
}

}  // namespace brenik
