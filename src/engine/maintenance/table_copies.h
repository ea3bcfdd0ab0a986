// Copies of a table's files: backups before a repair, and all files for a trial.

#pragma once

#include <string>

#include "engine/maintenance/finding.h"
#include "platform/file.h"

namespace brenik::maintenance {

// Copies a file to its own or the given folder, under a new name that contains the date and time,
// and returns that name. Throws EngineFault, and then leaves nothing behind.
std::string back_up_file(const platform::File& file, const std::string& folder,
                         const Progress& progress = {});

// Copies all existing files of the table to the folder. Throws EngineFault.
void copy_table(const std::string& path, const std::string& folder, const Progress& progress = {});

}  // namespace brenik::maintenance
