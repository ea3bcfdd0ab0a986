// What went wrong, for whoever has to find out: one line for each fault and each refused open,
// whether the session is traced or not.
//
// The file belongs to the user (platform::fault_file_path) and is every session's: a line is one
// write at its end, under a lock, because not every system makes finding the end and writing there
// one step. At 256 KB the file is renamed, in the place of an earlier one, or emptied where it
// cannot be.
// A line has three columns with a tab between them, and ends in CR LF:
//     2026-11-22 14:03:07	NET_USE	/srv/practice/LAW3.FPT: no such file

#pragma once

#include <string>
#include <string_view>

#include "session/session.h"

namespace brenik {

// Where the lines are that were in the file before it was begun anew.
std::string earlier_fault_file(const std::string& path);

// `call` is the operation or routine that met the fault; `reason` begins with the file. It goes to
// the trace log too, where tracing is on. A file that cannot be written to is passed over.
void note_fault(Session& session, std::string_view call, std::string_view reason) noexcept;

// The line alone, for what the trace log says in other words.
void write_fault_line(Session& session, std::string_view call, std::string_view reason) noexcept;

}  // namespace brenik
