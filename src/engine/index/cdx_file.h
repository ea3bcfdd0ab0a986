// A compound index file: its tags, pages, lock and update counter.
//
// The file consists of 512-byte pages that form several B+-trees. Tree 0 lists the tags; each tag
// is a tree of (key, record number) entries in ascending byte order (page_format.h has the page
// formats). Every program that changes a page holds the index lock and increments the update
// counter in the header, so a reader that finds the counter unchanged may use every page that it
// has cached.
//
// Reading: a walk over cached pages with an unchanged counter takes no lock. To read a page, the
// walk first takes a shared index lock. If the counter has changed by then, the walk restarts from
// the root under that lock, so it never follows a half-written change.
//
// Writing uses Change: it acquires the index lock, refreshes the cache, collects the changed pages
// in memory and writes them in an order in which a killed process leaves a readable tree
// (cdx_pages.h). The next change repairs what such a process left unfinished (cdx_tree.h).

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/index/cdx_tree.h"
#include "engine/locks/open_file.h"
#include "engine/table.h"
#include "platform/file.h"
#include "util/bytes.h"

namespace brenik::index {

class CdxFile {
  public:
    // The state of an index when open() returns. kLocked: locked for reading until end_opening(),
    // so that the first pages of its tags can be read without further calls. Opening a table uses
    // this, and waits for a locked index no longer than a second, because its caller retries.
    enum class Opened { kUnlocked, kLocked };
    // Opens an existing index. Refused if the file is missing, not permitted, held exclusively by
    // others, or stays locked. A damaged file is EngineFault kDamagedFile, which names file and
    // offset.
    static std::unique_ptr<CdxFile> open(const std::string& path, const locks::FileUse& use,
                                         Opened opened = Opened::kUnlocked);
    void end_opening() noexcept;
    // Creates an empty index file (directory only) and replaces any file of that name.
    static std::unique_ptr<CdxFile> create(const std::string& path);
    ~CdxFile();

    const std::string& path() const;
    const platform::File& file() const;
    // Limits the memory for cached pages; kDefaultCacheBytes unless set.
    void set_cache_bytes(std::size_t bytes);
    // Closes the file, which releases every lock on it. Nothing may be read or changed afterwards.
    void close() noexcept;
    // In creation order.
    const std::vector<std::unique_ptr<CdxTree>>& tags() const;

    // Adds a tag and builds it bottom-up. Needs exclusive use, otherwise EngineFault kNotLocked:
    // other processes with the file open would not maintain the new tag. A unique tag takes the
    // first entry of each key.
    CdxTree& add_tag(const TagDescription& description, const SortedEntries& entries);

    // EngineFault kLimit when the file is so large that the keys of a new record might not fit.
    void require_room() const;

    // Flushes the file to the disk.
    void sync();
    // True when data of other writers may have been overwritten, because the lock was lost with the
    // session of a share.
    bool doubtful() const;

    // A set of changes to the file's trees under the index lock.
    class Change {
      public:
        // Acquires the lock. With `attempt`, makes one try, whose result is begun(). Without it,
        // waits a bounded time, then throws EngineFault kBusy. A durable change flushes each step
        // before the next.
        explicit Change(CdxFile& file, std::optional<LockTry> attempt = {}, bool durable = false);
        bool begun() const { return begun_; }
        // Releases the lock. Changes that were not published are dropped.
        ~Change();
        Change(const Change&) = delete;
        Change& operator=(const Change&) = delete;

        // True when the tag holds an entry with exactly this key.
        bool contains(CdxTree& tag, Bytes key);
        // Adds an entry. False, with nothing changed, if it exists already.
        bool insert(CdxTree& tag, Bytes key, RecordNumber record);
        // Removes an entry. False if it does not exist.
        bool remove(CdxTree& tag, Bytes key, RecordNumber record);

        // Rebuilds every tag; the function supplies the entries of the tag with this number.
        void rebuild(const std::function<SortedEntries(std::size_t number)>& entries_of);

        // Writes the new pages of the change, which nothing refers to yet. A lack of space shows
        // here, before the caller writes the record.
        void write_new_pages();
        // Writes everything else and the update counter. More changes may follow and be published.
        void publish();

      private:
        CdxFile& file_;
        bool begun_;
    };

  private:
    CdxFile(platform::File file, bool exclusive, locks::LockMode mode);
    void read_directory();

    std::unique_ptr<CdxPages> pages_;
    std::unique_ptr<CdxTree> directory_;
    std::vector<std::unique_ptr<CdxTree>> tags_;
};

}  // namespace brenik::index
