// Which build of the tool this is. The build generates the source from version.cpp.in.

#pragma once

#include <string>

namespace brenik::tools {

// "brenik 0.1.0, commit 0123456789ab"; without the commit if the sources came without their
// history.
std::string version_text();
// "0.1.0"
std::string version_number();
// The day of the commit as YYYY-MM-DD; that of the build if the sources came without their history.
std::string commit_day();

}  // namespace brenik::tools
