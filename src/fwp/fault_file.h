// The fault file: one line per fault and per refused open, whether or not tracing is on.
//
// The file belongs to the user (platform::fault_file_path) and all sessions write to it. A line is
// one write at the end, under a lock, because on some systems finding the end and writing there are
// two steps. At 256 KB the file is renamed and replaces the earlier one; if that fails, it is
// emptied. A line has three columns, separated by tabs, and ends in CR LF:
//     2026-11-22 14:03:07	NET_USE	/srv/practice/LAW3.FPT: no such file

#pragma once

#include <string>
#include <string_view>

#include "session/session.h"

namespace brenik {

// The path that the file is renamed to when it is full.
std::string earlier_fault_file(const std::string& path);

// `call` is the operation or routine that met the fault; `reason` begins with the file. Writes to
// the trace log too if tracing is on. Ignores a file that it cannot write to.
void note_fault(Session& session, std::string_view call, std::string_view reason) noexcept;

// Writes the fault file only, for what the trace log says in other words.
void write_fault_line(Session& session, std::string_view call, std::string_view reason) noexcept;

}  // namespace brenik
