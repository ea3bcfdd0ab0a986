// The page cache of an index file: what it holds, when it is valid, and in which order it is
// written.
//
// Pages are valid while the leading bytes of the file (directory root, free list, update counter)
// are unchanged. A walk starts with begin_read(), which compares them. If they differ, an epoch
// begins: a page of an earlier epoch is compared with the file before it is used again, and decoded
// only if it differs. The first page that must be read takes the index lock, shared, and compares
// the leading bytes again. If something has changed in between, the walk starts over (StaleCache),
// now under the lock.
//
// Order of writes, so that a process killed between any two of them leaves a tree that every reader
// can walk and that the next change repairs (cdx_tree.h):
//   1. new pages, which nothing refers to yet; pages from the free list are first removed from it
//   2. the update counter, which makes the caches of other processes stale
//   3. changed entries, leaves before their parents
//   4. pages of which only a sibling pointer changed, right pointers last
//   5. removed pages, linked into the free list
//   6. the head of the free list, if pages were removed
//
// The counter can precede the pages: readers of pages hold the index lock, so they wait until the
// pages are written.
//
// A durable change also flushes: after step 1, after step 6 and, if pages are added or removed,
// after each level of step 3 and before and after step 5. So a power failure leaves what a kill
// could leave, whichever of the pending writes reach the disk.

#pragma once

#include <array>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

#include "engine/index/cdx_page.h"
#include "engine/index/page_cache.h"
#include "engine/locks/lock_queue.h"
#include "platform/file.h"

namespace brenik::index {

// Holds the index of some 180,000 records with six tags.
inline constexpr std::size_t kDefaultCacheBytes = std::size_t{8} << 20;

// Thrown in a walk that has used cached pages and finds them stale.
struct StaleCache {};

class CdxPages {
  public:
    CdxPages(platform::File file, bool exclusive, locks::LockMode mode);

    platform::File& file() { return file_; }
    const std::string& path() const { return file_.path(); }

    // -- Reading.
    // Limits the memory for pages. A single walk or change may use more while it lasts.
    void set_cache_bytes(std::size_t bytes) { cache_bytes_ = bytes; }
    // Limits the wait for the lock under which pages are read, while the object lives.
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
    // Locks the index for reading and reads the beginning of the file, so that opening it takes few
    // calls. False on timeout.
    bool begin_opening(int timeout_ms);
    void end_opening() noexcept;
    // The bytes of a tag's header; fewer if the file ends before.
    std::vector<Byte> tag_header(std::uint64_t offset);
    std::uint32_t root(const CdxForm& form);
    CdxPage& page(const CdxForm& form, std::uint32_t offset);
    // Fills `into` from the file, with zeros past its end. What is cached is valid when this
    // returns.
    void read_bytes(std::uint64_t offset, MutableBytes into);
    // Changes whenever something that a caller has cached about pages may be stale.
    std::uint64_t generation() const { return generation_; }
    // A lower bound; exact after measure().
    std::uint64_t page_count() const { return file_size_ / kCdxPageSize; }
    void measure();
    [[noreturn]] void damaged(std::uint64_t offset, const std::string& what) const;
    bool exclusive() const { return exclusive_; }

    // -- Changing.
    void require_room() const;
    // With `attempt`: false when another process holds the lock. Without: waits as long as for any
    // short lock, then false. A durable change is flushed step by step.
    bool begin_change(std::optional<LockTry> attempt, bool durable);
    [[noreturn]] void refuse_busy(const char* operation, platform::LockKind wanted) const;
    // Drops what was not published, and releases the lock.
    void end_change() noexcept;
    CdxPage& add(const CdxForm& form, bool leaf);
    void touch_entries(CdxPage& page);
    void touch_pointers(CdxPage& page);
    // Sets the root of a tag whose header is not written yet.
    void set_root(const CdxForm& form, std::uint32_t offset);
    // Frees a page that nothing refers to any more. The object is destroyed.
    void free(CdxPage& page);
    // Reserves two adjacent pages for a tag header; fill_header() supplies its bytes.
    std::uint32_t reserve_header();
    void fill_header(std::uint32_t offset, std::vector<Byte> bytes);
    void write_new_pages();
    void publish();
    // True when a page was written after the lock was lost: it may have overwritten data of others.
    bool doubtful() const { return doubtful_; }
    // For a caller that rebuilds every tree: abandons the free list, and sets the counter to a
    // value that nobody can have seen.
    void start_afresh();
    // For building a tree past the cache, from pages at the end of the file. Nothing refers to them
    // before publish().
    std::uint32_t reserve_page();
    void write_reserved(std::uint64_t offset, Bytes pages);
    // Replaces the page at `offset`.
    void replace(const CdxForm& form, std::uint32_t offset, Bytes raw, int level);

  private:
    static constexpr std::size_t kHeaderBytes = 16;
    using PageList = std::vector<CdxPage*>;

    std::size_t fetch(std::uint64_t offset, MutableBytes into) const;
    void prepare_to_load();
    bool header_matches() const;
    void read_header();
    void write_header();
    void begin_epoch() noexcept;
    void drop() noexcept;
    void limit_cache();
    CdxPage& load(const CdxForm& form, std::uint32_t offset, CdxPage* known);
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

    // The leading bytes, as read; no page is known to be valid while `known_` is false.
    bool known_ = false;
    std::array<Byte, kHeaderBytes> header_{};
    std::vector<Byte> beginning_;  // first bytes of the file, during opening
    std::uint32_t free_head_ = 0;
    std::uint64_t file_size_ = 0;  // may have grown since; a file in shared use does not shrink
    PageCache pages_;
    std::size_t cache_bytes_ = kDefaultCacheBytes;
    std::unordered_map<std::uint32_t, std::uint32_t> roots_;  // by offset of the tag header
    std::uint64_t epoch_ = 1;
    std::uint64_t generation_ = 1;
    bool end_known_ = false;  // file_size_ is exact while the leading bytes are unchanged

    // The change in progress.
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
