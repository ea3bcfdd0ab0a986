// A temporary file for the sorted runs of keys that do not fit into memory.

#pragma once

#include <cstdint>
#include <string>

#include "platform/file.h"
#include "util/bytes.h"

namespace brenik::index {

// The path of the file for an index. A file found there was left behind by a killed process.
std::string run_file_path(const std::string& index_path);

class RunFile {
  public:
    // The file is made when it is first needed, and removed in the end.
    explicit RunFile(std::string path) : path_(std::move(path)) {}
    ~RunFile();
    RunFile(const RunFile&) = delete;
    RunFile& operator=(const RunFile&) = delete;

    std::uint64_t size() const { return size_; }
    // EngineFault when the file cannot be made or the disk is full.
    void append(Bytes bytes);
    void read(std::uint64_t offset, MutableBytes into) const;

  private:
    std::string path_;
    platform::File file_;
    std::uint64_t size_ = 0;
};

}  // namespace brenik::index
