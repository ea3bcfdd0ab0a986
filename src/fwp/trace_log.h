// The trace log: a text file in the data folder that shows an integrator the calls between a host
// and the library.
//
// StartUp empties "Trace.Log" in the data folder; TRACELOG appends to it and never creates it. The
// first record of a host's call opens the file and the end of the call closes it, because the file
// can be emptied or removed at any time. One record, with every line ended by CR LF:
//     [ADDSTART] (    4) Called from:
//     >>>NIL<<<
//     >>>AddStart nTable:<<<
//     >>>3<<<
//     (an empty line)

#pragma once

#include <concepts>
#include <string>
#include <string_view>

#include "session/session.h"

namespace brenik {

// A routine between the host and a record: its name, the line of its call, and its caller.
struct CallSite {
    std::string_view name;
    unsigned line = 0;
    const CallSite* called_by = nullptr;
};

// Appends one record: the calling operation's name in capitals, the line of the call, which the
// compiler fills in, and one line per argument. If the first argument is not nil, lines for the
// callers of the caller precede the arguments, from `called_by` outwards; no call in the library
// uses this. Ignores LTRACE, which trace() tests. Ignores a file that cannot be opened or written.
// Always returns true.
bool TRACELOG(Session& session, std::string_view caller, const Array& arguments,
              unsigned line = __builtin_LINE(), const CallSite* called_by = nullptr);

// Appends a record for trace(): nil, which suppresses the callers, and then `arguments`.
void write_trace(Session& session, std::string_view caller, Array arguments, unsigned line);

// Appends a record if tracing is on, and only then calls `arguments`, which returns an Array.
template <std::invocable Arguments>
void trace(Session& session, std::string_view caller, const Arguments& arguments,
           unsigned line = __builtin_LINE()) {
    if (session.variables.LTRACE) write_trace(session, caller, arguments(), line);
}
// The same for a single text that already exists.
inline void trace(Session& session, std::string_view caller, std::string_view text,
                  unsigned line = __builtin_LINE()) {
    if (session.variables.LTRACE) write_trace(session, caller, {text}, line);
}

std::string trace_log_path(const Session& session);

}  // namespace brenik
