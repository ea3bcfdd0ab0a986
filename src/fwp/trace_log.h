// The trace log: a text file beside the data in which an integrator reads the conversation between
// a host and the library.
//
// StartUp empties "Trace.Log" in the data folder; TRACELOG appends to it and never makes it. The
// file is opened for the first record of a host's call and closed with the call, because it can be
// emptied or removed at any time. One
// record, every line ended by CR LF:
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

// A routine on the way from the host to a record: its name, the line of its call, and who called
// it.
struct CallSite {
    std::string_view name;
    unsigned line = 0;
    const CallSite* called_by = nullptr;
};

// Appends one record: the calling operation's name in capitals and the line of the call, which the
// compiler fills in, then one line for each argument. When the first argument is not nil, lines for
// the callers of the caller come in between, from `called_by` outwards; nobody in the library asks
// for them. trace() tests LTRACE first. A file that cannot be opened or written to is passed over
// in silence; the result is always true.
bool TRACELOG(Session& session, std::string_view caller, const Array& arguments,
              unsigned line = __builtin_LINE(), const CallSite* called_by = nullptr);

// Appends a record of nil, so that no callers are shown, and `arguments`. For trace().
void write_trace(Session& session, std::string_view caller, Array arguments, unsigned line);

// Appends a record where tracing is on. Calls `arguments`, which returns an Array, only then.
template <std::invocable Arguments>
void trace(Session& session, std::string_view caller, const Arguments& arguments,
           unsigned line = __builtin_LINE()) {
    if (session.variables.LTRACE) write_trace(session, caller, arguments(), line);
}
// The same for a single text that exists already.
inline void trace(Session& session, std::string_view caller, std::string_view text,
                  unsigned line = __builtin_LINE()) {
    if (session.variables.LTRACE) write_trace(session, caller, {text}, line);
}

std::string trace_log_path(const Session& session);

}  // namespace brenik
