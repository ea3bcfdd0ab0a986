// Memo files: texts and binary objects of any length, in numbered blocks.
//
// .FPT (read and write), all numbers big-endian: the header holds the next free block (offset 0)
// and the block size (offset 6); a memo's first block begins with its type and the length of the
// data that follows, which runs on over block borders. .DBT (reading only): generation III texts
// run to the first 0x1A, generation IV blocks begin with FF FF 08 00 and a length that counts
// itself.
//
// A block number and a length are checked against the file's size before anything is read. There is
// no list of free blocks: a memo that outgrows its blocks moves to the end of the file.

#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "engine/engine.h"
#include "platform/file.h"

namespace brenik::local {

class MemoFile {
  public:
    // Opens the memo file that belongs to the table. Null when it is somebody's exclusive use; a
    // missing or damaged one is EngineFault kDamagedFile.
    static std::unique_ptr<MemoFile> open(const std::string& table_path, std::uint8_t version,
                                          platform::Sharing sharing);
    // Makes an empty .FPT beside the table, replacing what is there.
    static void create(const std::string& table_path);

    // The memo that begins at `block`; empty for block 0.
    std::string read(std::uint32_t block) const;
    // Stores a memo and answers its block: the old one where it still fits, else new blocks at the
    // end; 0 for empty text. EngineFault kUnsupported for .DBT files.
    std::uint32_t write(std::uint32_t old_block, std::string_view text, bool binary);
    void sync() { file_.sync(); }
    const std::string& path() const { return file_.path(); }

  private:
    enum class Kind { kFpt, kGeneration3, kGeneration4 };

    MemoFile(platform::File file, Kind kind) : file_(std::move(file)), kind_(kind) {}
    void read_header();
    std::string read_generation3(std::uint64_t offset) const;
    std::uint64_t data_length(std::uint64_t block_offset) const;
    std::uint32_t allocate(std::uint64_t blocks);
    std::uint64_t blocks_for(std::uint64_t data_length) const;
    [[noreturn]] void damaged(std::uint64_t offset, const std::string& what) const;

    platform::File file_;
    Kind kind_;
    std::uint32_t block_size_ = 512;
};

}  // namespace brenik::local
