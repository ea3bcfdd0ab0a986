// A compound index file: its tags, its pages, its lock and its update counter.
//
// A file of 512-byte pages that holds several B+-trees: tree 0 names the tags, each tag is a tree
// of (key, record number) entries in ascending byte order (cdx_page.h has the page formats). Every
// program that changes a page holds the index lock and adds one to the update counter in the
// header, so a reader that finds the counter as it remembers it may use every page it has cached.
//
// Reading: a walk whose pages are all cached and whose counter still matches touches no lock. When
// the counter differs, or a page must be read, the walk is repeated from the root under a shared
// index lock, so that no half-written change is ever followed.
//
// Writing goes through Change: it takes the index lock, brings the cache up to date, collects the
// changed pages in memory and writes them in an order in which a killed process leaves a readable
// tree (cdx_pages.h); what such a process left undone the next change mends (cdx_tree.h).

#pragma once

#include <cstdint>
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
    // What an index is like when open() has answered: kLocked for reading until end_opening(), so
    // that what its tags begin with can be read without further calls. That is for those who open a
    // table, and wait no longer than a second for a locked index because they try again.
    enum class Opened { kUnlocked, kLocked };
    // Opens an existing index. Refused when it cannot be had (missing, somebody's exclusive use, or
    // locked all the time); a damaged file is EngineFault kDamagedFile naming the file and the
    // offset.
    static std::unique_ptr<CdxFile> open(const std::string& path, const locks::FileUse& use,
                                         Opened opened = Opened::kUnlocked);
    void end_opening() noexcept;
    // Makes an empty index file (directory only), replacing any file of that name.
    static std::unique_ptr<CdxFile> create(const std::string& path);
    ~CdxFile();

    const std::string& path() const;
    const platform::File& file() const;
    // Gives the file up, and every lock on it; nothing may be read or changed any more.
    void close() noexcept;
    // In creation order.
    const std::vector<std::unique_ptr<CdxTag>>& tags() const;

    // Adds a tag and fills it from entries sorted by (key, record), bottom up. The file must be in
    // exclusive use, else EngineFault kNotLocked: whoever else has it open would not keep the new
    // tag up to date. Unique tags take the first entry of each key.
    CdxTag& add_tag(const TagDescription& description, const std::vector<IndexEntry>& entries);

    // EngineFault kLimit when the file is so large that the keys of a new record might not fit.
    void require_room() const;

    // Waits for the disk.
    void sync();
    // True when what others have written may have been written over: under a lock that was lost
    // with the session of a share.
    bool doubtful() const;

    // A set of changes to the file's trees under the index lock.
    class Change {
      public:
        // Takes the lock: by one try, after which begun() tells; or waiting a bounded time, else
        // EngineFault kBusy. What a durable change writes is on the disk when it goes on.
        explicit Change(CdxFile& file, std::optional<LockTry> attempt = {}, bool durable = false);
        bool begun() const { return begun_; }
        // Without a publish() nothing of the change is left in the trees; releases the lock.
        ~Change();
        Change(const Change&) = delete;
        Change& operator=(const Change&) = delete;

        // True when the tag holds an entry with exactly this key.
        bool contains(CdxTag& tag, Bytes key);
        // Adds an entry; one that is already there is left alone and answers false.
        bool insert(CdxTag& tag, Bytes key, RecordNumber record);
        // Removes an entry; answers false when there is none.
        bool remove(CdxTag& tag, Bytes key, RecordNumber record);

        // Makes every tag anew, in their order, from entries sorted by (key, record).
        void rebuild(const std::vector<std::vector<IndexEntry>>& entries);

        // Writes the pages that the change adds to the file; nothing names them yet. What can fail
        // for want of space fails here, before the caller writes the record.
        void write_new_pages();
        // Writes everything else and the update counter. Further changes may follow, and be
        // published again.
        void publish();

      private:
        CdxFile& file_;
        bool begun_;
    };

  private:
    CdxFile(platform::File file, bool exclusive, locks::LockMode mode);
    void read_directory();

    std::unique_ptr<CdxPages> pages_;
    std::unique_ptr<CdxTag> directory_;
    std::vector<std::unique_ptr<CdxTag>> tags_;
};

}  // namespace brenik::index
