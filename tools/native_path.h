// The tool's paths for std::filesystem and streams.

#pragma once

#include <filesystem>
#include <string>

namespace brenik::tools {

// The tool's paths are UTF-8 on every system, but the C++ library of Windows takes narrow text for
// something else. In the other direction, path::string() is UTF-8 there too.
inline std::filesystem::path native_path(const std::string& path) {
    return std::u8string(path.begin(), path.end());
}

}  // namespace brenik::tools
