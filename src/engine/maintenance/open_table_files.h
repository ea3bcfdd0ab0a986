// The files of one table as the checking and mending code holds them: each by itself, so that what
// is wrong with one does not hide the others.

#pragma once

#include <string>

#include "platform/file.h"

namespace brenik::maintenance {

enum class Access {
    kCheck,  // shared and read only
    kTry,    // shared and writable
    kMend,   // exclusive and writable
};

struct OpenTableFiles {
    platform::File table;
    platform::File index;
    platform::File memo;

    // Opens the table's own file; the others follow when the header has told which there are.
    static OpenTableFiles open(const std::string& path, Access access);
    // Both leave the file closed, with its path and the reason, when it cannot be had.
    void open_index(Access access);
    void open_memo(std::uint8_t version, Access access);
};

}  // namespace brenik::maintenance
