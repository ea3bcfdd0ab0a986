// Memo files: texts and binary objects of any length, in numbered blocks.
//
// .FPT files are read and written, .DBT files only read.
// A block number and a length are checked against the file's size before anything is read.
//
// A text is never written over the one that it replaces: it goes into other blocks, then the record
// names those, and a process that ends in between has changed nothing. The format has no list of
// free blocks, but whoever replaces a text that he wrote himself knows that its blocks are free,
// and uses them again, once those who still hold the record as it was have had the time to read
// them. Older texts stay where they are: other programs leave deleted records behind that name the
// text of a live one.

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
    // How long a released text can still be read.
    static constexpr std::chrono::milliseconds kTextStays{1000};

    // Opens the memo file that belongs to the table. Refused when it cannot be had; a damaged one
    // is EngineFault kDamagedFile.
    static std::unique_ptr<MemoFile> open(const std::string& table_path, std::uint8_t version,
                                          const locks::FileUse& use);
    // Makes an empty .FPT beside the table, replacing what is there.
    static void create(const std::string& table_path);

    // Opens the file again where its share's session was lost. Throws EngineFault.
    void reopen();

    // The memo that begins at `block`; empty for block 0.
    std::string read(std::uint32_t block) const;
    // Stores a memo in blocks that nothing names and answers the first; 0 for empty text.
    // EngineFault kUnsupported for .DBT files. A durable one is on the disk then.
    std::uint32_t write(std::string_view text, bool binary, bool durable = false);
    // The record that named this memo does so no more; 0 is none.
    void release(std::uint32_t block);
    // The lock under which blocks are added, kept through several writes: for those who must have
    // every lock before they write anything.
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
    // EngineFault kLimit when there is no room at the end for memos of that many bytes in all.
    void require_room(std::uint64_t memos, std::uint64_t bytes);
    // The same for the memos that a new record may come to have.
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
    void check_room(std::uint64_t next_free, std::uint64_t blocks) const;
    [[noreturn]] void damaged(std::uint64_t offset, const std::string& what) const;

    platform::File file_;
    record::MemoFormat format_;
    locks::LockRange lock_;
    locks::LockQueue queue_{file_};
    bool doubtful_ = false;           // the header was written when others may have gone further
    bool allocating_ = false;         // the lock is held by an Allocation
    std::uint64_t known_blocks_ = 0;  // in use when blocks were last added; 0: not known

    struct Written {
        std::uint32_t block;
        std::uint64_t blocks;
    };
    struct Released {
        std::uint32_t block;
        std::uint64_t blocks;
        Clock::time_point free_from;
    };
    std::deque<Released> released_;  // the longest free first
    std::deque<Written> ours_;       // memos written here, the oldest first
};

}  // namespace brenik::local
