// The files of one table as checks and repairs hold them: opened separately, so that a fault in one
// does not hide those in the others.

#pragma once

#include <string>

#include "platform/file.h"

namespace brenik::maintenance {

enum class Access {
    kCheck,   // shared and read only
    kTry,     // shared and writable
    kRepair,  // exclusive and writable
};

struct OpenTableFiles {
    platform::File table;
    platform::File index;
    platform::File memo;

    // Opens the table's own file; its header determines which others exist.
    static OpenTableFiles open(const std::string& path, Access access);
    // If the file cannot be opened, both leave it closed, with its path and the reason.
    void open_index(Access access);
    void open_memo(std::uint8_t version, Access access);
};

}  // namespace brenik::maintenance
