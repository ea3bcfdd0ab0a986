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

// What tells one folder from another, by whatever path each is reached; the path itself where the
// system does not tell.
std::string folder_identity(const std::string& path);

// Where the fault file lies, which belongs to the user: $BRENIK_FAULTS, else "Faults.log" in the
// local folder "BrenikDB" of the user's application data, on other systems in ".brenik" in the home
// folder. Empty for a user who has no such place.
std::string fault_file_path();

// Makes the folder that the file is to lie in, but none above it. Where that fails nothing happens.
void make_folder_of(const std::string& file) noexcept;

// The folder of the workstation's settings, without a trailing separator: $BRENIK_WINDIR, else the
// Windows folder, on other systems ".brenik" in the home folder.
std::string windows_folder();

}  // namespace brenik::platform
