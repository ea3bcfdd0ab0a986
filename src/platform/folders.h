// Where the session is: current drive and directory, and the folder of workstation settings.

#pragma once

#include <string>

namespace brenik::platform {

// The current drive's letter; "\" on systems without drives, and where the current directory lies
// on a network share.
std::string current_drive();

// The current directory without drive and without leading separator, in the library's form
// (backslashes); empty at the root. On a network share one separator is left at the front.
std::string current_directory();

// The path from the root: a relative one begins in the current directory. One that cannot be told
// in the process's code page stays as it is.
std::string absolute_path(const std::string& path);

// The folder of the workstation's settings, without a trailing separator: $BRENIK_WINDIR, else the
// Windows folder, on other systems ".brenik" in the home folder.
std::string windows_folder();

// Makes one folder. Does nothing where the name is in use or the folder cannot be made.
void make_folder(const std::string& path) noexcept;

}  // namespace brenik::platform
