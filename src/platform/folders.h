// The process's current drive and directory, and the folders of settings and of the fault file.

#pragma once

#include <string>

namespace brenik::platform {

// The current drive's letter; "\" on systems without drives, or if the current directory is on a
// network share.
std::string current_drive();

// The current directory without drive and leading separator, in the library's form (backslashes);
// empty at the root. On a network share it keeps one leading separator.
std::string current_directory();

// The absolute path; a relative path begins in the current directory. Returns `path` itself if the
// process's code page cannot express the result.
std::string absolute_path(const std::string& path);

// Identifies a folder, whichever path leads to it. Returns the path itself if the system cannot
// identify the folder.
std::string folder_identity(const std::string& path);

// The path of the user's fault file: $BRENIK_FAULTS, else "Faults.log" in the local folder
// "BrenikDB" of the user's application data, on other systems in ".brenik" in the home folder.
// Empty for a user who has no such folder.
std::string fault_file_path();

// The path that a variable of the environment holds; empty if it is unset, or if the process's code
// page cannot express the path.
std::string path_variable(const std::string& name);

// Creates the folder of a file, but no folder above it. Ignores a failure.
void make_folder_of(const std::string& file) noexcept;

// The folder of the workstation's settings, without a trailing separator: $BRENIK_WINDIR, else the
// Windows folder, on other systems ".brenik" in the home folder.
std::string windows_folder();

}  // namespace brenik::platform
