// Memo files: texts and binary objects of any length, in numbered blocks.
//
// .FPT files are read and written, .DBT files are only read. Block numbers are checked before they
// are used, and a large length is compared with the file's size before memory is allocated for it.
//
// A text is never overwritten in place. Its replacement goes to other blocks, then the record
// refers to those; a process that ends in between has changed nothing. The format has no list of
// free blocks. But a process that replaces a text that it wrote itself knows that the old blocks
// are free. It reuses them after a delay, in which others that have read the old record can read
// its text. Older texts stay where they are, because other programs leave deleted records that
// refer to the text of a live one.

#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>

#include "engine/locks/lock_queue.h"
#include "engine/locks/open_file.h"
#include "engine/record/memo_format.h"
#include "engine/table.h"
#include "platform/file.h"

namespace brenik::local {

class MemoFile {
  public:
    using Clock = std::chrono::steady_clock;
    // How long a released text stays readable.
    static constexpr std::chrono::milliseconds kTextStays{1000};

    // Opens the memo file that belongs to the table. Throws Refused when it is missing, not
    // permitted or held by others; a damaged file is EngineFault kDamagedFile.
    static std::unique_ptr<MemoFile> open(const std::string& table_path, std::uint8_t version,
                                          const locks::FileUse& use);
    // Creates an empty .FPT beside the table and replaces an existing one.
    static void create(const std::string& table_path);

    // Reopens the file after its share's session was lost. Throws EngineFault.
    void reopen();

    // The memo that begins at `block`; empty for block 0.
    std::string read(std::uint32_t block) const;
    // Stores a memo in blocks that nothing refers to, and returns the first; 0 for empty text.
    // EngineFault kUnsupported for .DBT files. A durable memo is on the disk when this returns.
    std::uint32_t write(std::string_view text, bool binary, bool durable = false);
    // Releases the blocks of a memo to which its record no longer refers; 0 is no memo.
    void release(std::uint32_t block);
    // Holds the lock under which blocks are added during several writes, for callers that must
    // acquire every lock before they write anything.
    class Allocation {
      public:
        Allocation(MemoFile& memo, LockTry attempt);
        ~Allocation();
        Allocation(const Allocation&) = delete;
        Allocation& operator=(const Allocation&) = delete;
        bool begun() const { return memo_.allocating_; }

      private:
        MemoFile& memo_;
    };
    // EngineFault kLimit when the end of the file has no room for these memos of `bytes` bytes in
    // all.
    void require_room(std::uint64_t memos, std::uint64_t bytes);
    // The same for the memos that a new record may get.
    void require_room_for_record();
    void sync() { file_.sync(); }
    const platform::File& file() const { return file_; }
    const std::string& path() const { return file_.path(); }

  private:
    MemoFile(platform::File file, record::MemoKind kind, locks::LockMode mode)
        : file_(std::move(file)), format_{kind}, lock_(locks::LockScheme::memo(mode)) {}
    void read_header();
    void pass_over_used_blocks();
    MutableBytes up_to_lock(MutableBytes bytes, std::uint64_t offset) const;
    std::string read_generation3(std::uint64_t offset) const;
    std::uint64_t data_length(std::uint64_t block_offset, Bytes header) const;
    std::uint32_t reuse(std::uint64_t blocks);
    std::uint32_t allocate(std::uint64_t blocks, bool durable);
    std::uint32_t allocate_locked(std::uint64_t blocks, bool durable);
    std::uint64_t next_free_block() const;
    void require_unused(std::uint64_t block) const;
    void check_room(std::uint64_t next_free, std::uint64_t blocks) const;
    [[noreturn]] void damaged(std::uint64_t offset, const std::string& what) const;

    platform::File file_;
    record::MemoFormat format_;
    locks::LockRange lock_;
    locks::LockQueue queue_{file_};
    bool doubtful_ = false;           // header written while others may have raised it
    bool allocating_ = false;         // the lock is held by an Allocation
    std::uint64_t known_blocks_ = 0;  // in use when blocks were last added; 0: unknown
    // The next free block as this object last left it; 0: unknown. While the header still has it,
    // nobody has added blocks since, so the end of the file need not be compared with it again.
    std::uint64_t left_free_ = 0;

    struct Written {
        std::uint32_t block;
        std::uint64_t blocks;
    };
    struct Released {
        std::uint32_t block;
        std::uint64_t blocks;
        Clock::time_point free_from;
    };
    std::deque<Released> released_;  // longest released first
    std::deque<Written> ours_;       // memos written here, oldest first
};

}  // namespace brenik::local
