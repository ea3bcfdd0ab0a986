// The page cache of an index file: what is remembered, when it may be used, and how it is written.
//
// Pages are remembered as long as the leading bytes of the file (directory root, free list, update
// counter) read as they did. A walk begins with begin_read(), which makes that comparison; the
// first page that must come from the file takes the index lock, shared, and compares once more. If
// something changed in between the walk is told to start over (StaleCache), now under the lock.
//
// Order of writing, so that a process killed between any two writes leaves a tree that every reader
// can walk and that the next change mends (cdx_tree.h):
//   1. pages new to the file, which nothing names yet; pages taken from the free list leave it
//   first
//   2. the update counter: nobody may go on trusting what he remembers
//   3. changed entries, leaves before their parents
//   4. pages of which only a sibling pointer changed, right pointers last
//   5. pages that nothing names any more, linked into the free list
//   6. the head of the free list, where pages were let go
//
// The counter goes first and once: readers of pages hold the index lock, so they wait until the
// pages are written.
//
// A durable change also waits for the disk: after step 1, after step 6, and, where pages are added
// or let go, after each level of step 3, and before and after step 5. So a power failure leaves
// what a kill leaves, whichever of the writes that were still under way it lets through.

#pragma once

#include <array>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "engine/index/cdx_page.h"
#include "engine/locks/lock_queue.h"
#include "platform/file.h"

namespace brenik::index {

// Thrown inside a walk that has used remembered pages and finds that they are out of date.
struct StaleCache {};

class CdxPages {
  public:
    CdxPages(platform::File file, bool exclusive, locks::LockMode mode);

    platform::File& file() { return file_; }
    const std::string& path() const { return file_.path(); }

    // -- Reading.
    // For as long as the object lives, how long pages that must be read are waited for.
    class ReadTimeout {
      public:
        ReadTimeout(CdxPages& pages, int timeout_ms) : pages_(pages) {
            pages.read_timeout_ms_ = timeout_ms;
        }
        ~ReadTimeout() { pages_.read_timeout_ms_ = platform::kShortLockTimeout_ms; }
        ReadTimeout(const ReadTimeout&) = delete;
        ReadTimeout& operator=(const ReadTimeout&) = delete;

      private:
        CdxPages& pages_;
    };
    void begin_read();
    void end_read() noexcept;
    // Keeps the index locked for reading, and what the file begins with at hand, so that a file
    // costs few calls to open. False when the lock is not to be had.
    bool begin_opening(int timeout_ms);
    void end_opening() noexcept;
    // The bytes of a tag's header, fewer where the file ends.
    std::vector<Byte> tag_header(std::uint64_t offset);
    std::uint32_t root(const CdxForm& form);
    CdxPage& page(const CdxForm& form, std::uint32_t offset);
    // Fills `into` from the file, zeros where it ends; what is remembered is still good then.
    void read_bytes(std::uint64_t offset, MutableBytes into);
    // Changes whenever anything that a caller remembers about pages may have become wrong.
    std::uint64_t generation() const { return generation_; }
    // At least so many; exactly after measure().
    std::uint64_t page_count() const { return file_size_ / kCdxPageSize; }
    void measure() { file_size_ = file_.size(); }
    [[noreturn]] void damaged(std::uint64_t offset, const std::string& what) const;
    bool exclusive() const { return exclusive_; }

    // -- Changing.
    void require_room() const;
    // With a try: false when the lock is somebody else's; without one it is waited for, as long as
    // for any short lock, and false then. A durable change goes to the disk step by step.
    bool begin_change(std::optional<LockTry> attempt, bool durable);
    [[noreturn]] void refuse_busy(const char* operation, platform::LockKind wanted) const;
    // Drops whatever was not published, and the lock.
    void end_change() noexcept;
    CdxPage& add(const CdxForm& form, bool leaf);
    void touch_entries(CdxPage& page);
    void touch_pointers(CdxPage& page);
    // Of a tag whose header is still to be written.
    void set_root(const CdxForm& form, std::uint32_t offset);
    // Nothing may name the page any more; it is gone afterwards.
    void free(CdxPage& page);
    // Room for a tag header, two pages in a row, and its bytes.
    std::uint32_t reserve_header();
    void fill_header(std::uint32_t offset, std::vector<Byte> bytes);
    void write_new_pages();
    void publish();
    // True when a page was written under a lock that was lost by then: what somebody else has
    // written meanwhile may be gone.
    bool doubtful() const { return doubtful_; }
    // For those who write every tree anew: nothing is taken from the free list, and the counter
    // becomes one that nobody can have seen.
    void start_afresh();
    // The page goes on at another place, in the place of the page there.
    void move(CdxPage& page, const CdxForm& form, std::uint32_t place);

  private:
    static constexpr std::size_t kHeaderBytes = 16;
    using PageList = std::vector<CdxPage*>;

    std::size_t fetch(std::uint64_t offset, MutableBytes into) const;
    void prepare_to_load();
    bool header_matches() const;
    void read_header();
    void write_header();
    void drop() noexcept;
    CdxPage& load(const CdxForm& form, std::uint32_t offset);
    void check_page_offset(std::uint64_t offset, const std::string& what);
    std::uint32_t allocate();
    std::uint32_t extend(std::uint64_t bytes);
    std::uint32_t take_free_page();
    void write(CdxPage& page);
    void put(std::uint64_t offset, Bytes bytes);
    void write_all(PageList::iterator first, PageList::iterator last);
    void write_published();
    void write_changed_pages();
    void write_pointers();
    void write_freed_pages();
    void wait_for_disk();
    bool lock_changes(std::optional<LockTry> attempt);
    void find_end();
    void cut_off_part_of_page() noexcept;
    [[noreturn]] void full() const;

    platform::File file_;
    bool exclusive_;
    locks::LockRange lock_;
    locks::LockQueue queue_{file_};
    int read_timeout_ms_ = platform::kShortLockTimeout_ms;
    bool changing_ = false;
    bool opening_ = false;
    bool locked_ = false;

    // What the leading bytes said; nothing is remembered while `known_` is false.
    bool known_ = false;
    std::array<Byte, kHeaderBytes> header_{};
    std::vector<Byte> beginning_;  // of the file, while it is opened
    std::uint32_t free_head_ = 0;
    std::uint64_t file_size_ = 0;  // it may have grown since; a file does not shrink in shared use
    std::unordered_map<std::uint32_t, std::unique_ptr<CdxPage>> pages_;
    std::unordered_map<std::uint32_t, std::uint32_t> roots_;  // by offset of the tag header
    std::size_t memory_ = 0;
    std::uint64_t generation_ = 1;

    // The change in progress.
    bool end_found_ = false;
    bool doubtful_ = false;
    bool durable_ = false;
    bool added_pages_written_ = false;
    bool publishing_ = false;
    bool free_pages_taken_ = false;
    PageList touched_;
    std::map<std::uint32_t, std::vector<Byte>> new_headers_;
    std::vector<std::uint32_t> freed_;
};

}  // namespace brenik::index
