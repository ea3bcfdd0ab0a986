// The bytes of a file, read and written past the engine.

#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

namespace brenik {

inline std::string bytes_of(const std::filesystem::path& file) {
    std::stringstream all;
    all << std::ifstream(file, std::ios::binary).rdbuf();
    return all.str();
}

inline void write_over(const std::filesystem::path& file, std::uint64_t offset,
                       std::string_view bytes) {
    std::fstream open(file, std::ios::in | std::ios::out | std::ios::binary);
    open.seekp(static_cast<std::streamoff>(offset)) << bytes;
}

}  // namespace brenik
