// The line and its way into the trace log.

#include "fwp/fault_file.h"

#include "fwp/trace_log.h"

namespace brenik {

void note_fault(Session& session, std::string_view call, std::string_view reason) noexcept {
    try {
        if (session.variables.LTRACE) TRACELOG(session, call, {Value(), reason});
    } catch (const std::exception&) {
        // Without memory even for the line, the code alone has to tell.
    }
}

}  // namespace brenik
