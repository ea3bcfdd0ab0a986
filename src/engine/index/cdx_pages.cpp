// Validates the page cache, locks the index, and orders the writes.

#include "engine/index/cdx_pages.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "engine/index/cdx_header.h"
#include "engine/index/page_format.h"
#include "engine/locks/open_file.h"

namespace brenik::index {
namespace {

constexpr std::size_t kFreeHeadOffset = 4;
constexpr std::size_t kCounterOffset = 8;
constexpr std::size_t kLeastFileSize = 3 * kCdxPageSize;
// The file ends before the page with the lock byte, which must stay unused; in proprietary mode the
// marker is there.
constexpr std::uint64_t kLargestFile =
    locks::LockScheme::index().offset / kCdxPageSize * kCdxPageSize;
// kReserve is more than the keys of one record, and those that other workstations are about to add,
// can take. At kFarFromFull from the limit, the remembered file size is good enough.
constexpr std::uint64_t kReserve = std::uint64_t{1} << 20;
constexpr std::uint64_t kFarFromFull = std::uint64_t{64} << 20;
constexpr std::uint64_t kReadAtOpening = std::uint64_t{1} << 16;

bool is_end(std::uint32_t free_page) { return free_page == 0 || free_page == kNoPage; }

// A page in the free list begins with the next one's offset. A branch page looks alike: its
// attributes, 0, and its count read as a multiple of 65536. Such a page is left alone if it holds
// anything else. A leaf's attributes never look like an offset.
bool may_be_in_use(const std::array<Byte, kCdxPageSize>& raw) {
    return load_le16(raw.data()) == 0 &&
           std::any_of(raw.begin() + 4, raw.end(), [](Byte b) { return b != 0; });
}

}  // namespace

CdxPages::CdxPages(platform::File file, bool exclusive, locks::LockMode mode)
    : file_(std::move(file)), exclusive_(exclusive), lock_(locks::LockScheme::index(mode)) {}

void CdxPages::damaged(std::uint64_t offset, const std::string& what) const {
    throw EngineFault(FaultCode::kDamagedFile, "read index",
                      path() + ": at " + std::to_string(offset) + ": " + what);
}

bool CdxPages::begin_opening(int timeout_ms) {
    if (!exclusive_) {
        locked_ =
            queue_.lock(lock_, locks::LockScheme::queue(), platform::LockKind::kShared, timeout_ms);
        if (!locked_) return false;
    }
    beginning_.resize(
        static_cast<std::size_t>(std::min<std::uint64_t>(file_.size_at_open(), kReadAtOpening)));
    beginning_.resize(file_.read_at(0, beginning_));
    opening_ = true;
    return true;
}

void CdxPages::end_opening() noexcept {
    if (!std::exchange(opening_, false)) return;
    beginning_ = {};
    end_read();
}

std::size_t CdxPages::fetch(std::uint64_t offset, MutableBytes into) const {
    if (offset + into.size() > beginning_.size()) return file_.read_at(offset, into);
    std::copy_n(beginning_.begin() + static_cast<std::ptrdiff_t>(offset), into.size(),
                into.begin());
    return into.size();
}

std::vector<Byte> CdxPages::tag_header(std::uint64_t offset) {
    std::vector<Byte> header(kTagHeaderSize);
    header.resize(fetch(offset, header));
    return header;
}

void CdxPages::begin_read() {
    if (changing_ || opening_) return;
    limit_cache();
    if (known_ && !exclusive_ && !header_matches()) begin_epoch();
}

void CdxPages::end_read() noexcept {
    if (changing_ || opening_ || !locked_) return;
    file_.unlock(lock_);
    locked_ = false;
}

// After a short timeout the holder is not named: the search would take longer than the wait.
void CdxPages::refuse_busy(const char* operation, platform::LockKind wanted) const {
    if (read_timeout_ms_ == platform::kShortLockTimeout_ms) {
        locks::refuse_busy(operation, path(), "the index is locked", {lock_, wanted});
    }
    throw EngineFault(FaultCode::kBusy, operation,
                      path() + ": another program keeps the index locked");
}

// Called before anything is read from the file.
void CdxPages::prepare_to_load() {
    if (!locked_ && !exclusive_) {
        if (!queue_.lock(lock_, locks::LockScheme::queue(), platform::LockKind::kShared,
                         read_timeout_ms_)) {
            refuse_busy("read index", platform::LockKind::kShared);
        }
        locked_ = true;
        if (known_ && !header_matches()) {
            begin_epoch();
            throw StaleCache{};
        }
    }
    if (!known_) read_header();
}

bool CdxPages::header_matches() const {
    std::array<Byte, kHeaderBytes> now{};
    return file_.read_at(0, now) == now.size() && now == header_;
}

void CdxPages::read_header() {
    if (fetch(0, header_) < header_.size()) damaged(0, "expected an index header");
    free_head_ = load_le32(header_.data() + kFreeHeadOffset);
    if (file_size_ == 0) file_size_ = file_.size_at_open();
    if (file_size_ < kLeastFileSize) measure();
    if (file_size_ < kLeastFileSize) damaged(file_size_, "expected an index of at least 3 pages");
    known_ = true;
}

void CdxPages::begin_epoch() noexcept {
    roots_.clear();
    known_ = end_known_ = false;
    ++epoch_;
    ++generation_;
}

void CdxPages::drop() noexcept {
    pages_.clear();
    touched_.clear();
    begin_epoch();
}

void CdxPages::limit_cache() {
    if (!pages_.full(cache_bytes_)) return;
    pages_.shrink();
    ++generation_;
}

void CdxPages::check_page_offset(std::uint64_t offset, const std::string& what) {
    if (offset + kCdxPageSize > file_size_) measure();
    if (offset % kCdxPageSize != 0 || offset < 2 * kCdxPageSize ||
        offset + kCdxPageSize > file_size_) {
        damaged(offset, "expected " + what + " inside the file of " + std::to_string(file_size_) +
                            " bytes");
    }
}

void CdxPages::measure() {
    file_size_ = file_.size();
    end_known_ = false;
}

std::uint32_t CdxPages::root(const CdxForm& form) {
    const auto known = roots_.find(form.header);
    if (known != roots_.end()) return known->second;
    prepare_to_load();
    std::array<Byte, 4> bytes{};
    if (fetch(form.header, bytes) < bytes.size()) {
        damaged(form.header, "expected a tag header");
    }
    return roots_[form.header] = load_le32(bytes.data());
}

CdxPage& CdxPages::page(const CdxForm& form, std::uint32_t offset) {
    CdxPage* const known = pages_.find(offset);
    CdxPage& page = known != nullptr && known->epoch == epoch_ ? *known : load(form, offset, known);
    if (page.tree() != form.header) damaged(offset, "expected a page of this tag, not of another");
    return page;
}

CdxPage& CdxPages::load(const CdxForm& form, std::uint32_t offset, CdxPage* known) {
    prepare_to_load();
    check_page_offset(offset, "a page");
    std::array<Byte, kCdxPageSize> raw{};
    if (fetch(offset, raw) < raw.size()) damaged(offset, "expected a whole page");
    if (known != nullptr && known->tree() == form.header && std::ranges::equal(known->raw(), raw)) {
        known->epoch = epoch_;
        known->end_is_named = false;
        return *known;
    }
    try {
        CdxPage& page = pages_.put(CdxPage::decode(form, offset, raw));
        page.epoch = epoch_;
        return page;
    } catch (const PageDamage& damage) {
        damaged(offset, damage.what());
    }
}

void CdxPages::read_bytes(std::uint64_t offset, MutableBytes into) {
    prepare_to_load();
    const std::size_t got = file_.read_at(offset, into);
    std::fill(into.begin() + static_cast<std::ptrdiff_t>(got), into.end(), Byte{0});
}

bool CdxPages::begin_change(std::optional<LockTry> attempt, bool durable) {
    if (!lock_changes(attempt)) return false;
    durable_ = durable;
    try {
        file_.require_same_session();
        limit_cache();
        if (known_ && !exclusive_ && !header_matches()) begin_epoch();
        if (!known_) read_header();
        if (file_.remote()) end_known_ = false;  // a share's size is asked for before each write
    } catch (...) {
        end_change();
        throw;
    }
    return true;
}

bool CdxPages::lock_changes(std::optional<LockTry> attempt) {
    if (!exclusive_) {
        locked_ = attempt
                      ? queue_.attempt(lock_, locks::LockScheme::queue(), *attempt)
                      : queue_.lock(lock_, locks::LockScheme::queue(),
                                    platform::LockKind::kExclusive, platform::kShortLockTimeout_ms);
        if (!locked_) return false;
    }
    changing_ = true;
    return true;
}

// Pages are added at the end of the file, so its exact size must be known. Every writer that adds a
// page increases the counter, or was interrupted before anything refers to its pages: those, and
// part of a page, are overwritten.
void CdxPages::find_end() {
    if (end_known_) return;
    file_size_ = (file_.size() + kCdxPageSize - 1) / kCdxPageSize * kCdxPageSize;
    end_known_ = true;
}

void CdxPages::end_change() noexcept {
    const bool unpublished = !touched_.empty() || !new_headers_.empty() || !freed_.empty() ||
                             free_pages_taken_ || added_pages_written_ || publishing_;
    if (unpublished) drop();
    if (added_pages_written_ && !publishing_) cut_off_part_of_page();
    touched_.clear();
    new_headers_.clear();
    freed_.clear();
    added_pages_written_ = publishing_ = free_pages_taken_ = changing_ = false;
    end_read();
}

// Whole pages that were added stay as unused space: on a share, others would not see that the file
// has become shorter.
void CdxPages::cut_off_part_of_page() noexcept {
    if (file_.remote()) return;
    try {
        const std::uint64_t size = file_.size();
        if (size % kCdxPageSize != 0) file_.resize(size / kCdxPageSize * kCdxPageSize);
    } catch (const EngineFault&) {
        // The next change starts after the partial page.
    }
}

CdxPage& CdxPages::add(const CdxForm& form, bool leaf) {
    CdxPage& page = pages_.put(CdxPage(form, allocate(), leaf));
    page.epoch = epoch_;
    page.unwritten = true;
    touch_entries(page);
    return page;
}

std::uint32_t CdxPages::allocate() {
    find_end();
    const std::uint32_t reused = take_free_page();
    return reused != 0 ? reused : extend(kCdxPageSize);
}

std::uint32_t CdxPages::extend(std::uint64_t bytes) {
    if (file_size_ + bytes > kLargestFile) full();
    const auto offset = static_cast<std::uint32_t>(file_size_);
    file_size_ += bytes;
    return offset;
}

void CdxPages::full() const {
    throw EngineFault(
        FaultCode::kLimit, "change index",
        path() + ": the index cannot grow past " + std::to_string(kLargestFile) + " bytes");
}

void CdxPages::require_room() const {
    if (file_size_ != 0 && file_size_ + kFarFromFull < kLargestFile) return;
    if (file_.size() + kReserve > kLargestFile) full();
}

// An implausible free list is abandoned: its pages become unused space.
std::uint32_t CdxPages::take_free_page() {
    const std::uint32_t taken = free_head_;
    if (is_end(taken)) return 0;
    free_pages_taken_ = true;
    free_head_ = 0;
    const auto in_use = [&](std::uint32_t offset) {
        const CdxPage* page = pages_.find(offset);
        return page != nullptr && page->epoch == epoch_;
    };
    const auto sound = [&](std::uint32_t offset) {
        return offset % kCdxPageSize == 0 && offset >= 2 * kCdxPageSize &&
               std::uint64_t{offset} + kCdxPageSize <= file_size_ && !in_use(offset);
    };
    std::array<Byte, kCdxPageSize> raw{};
    if (!sound(taken) || file_.read_at(taken, raw) < raw.size()) return 0;
    const std::uint32_t next = load_le32(raw.data());
    if (is_end(next)) return taken;
    if (!sound(next) || next == taken || may_be_in_use(raw)) return 0;
    free_head_ = next;
    return taken;
}

void CdxPages::touch_entries(CdxPage& page) {
    page.content_changed = true;
    touch_pointers(page);
}

void CdxPages::touch_pointers(CdxPage& page) {
    if (!page.listed) touched_.push_back(&page);
    page.listed = true;
    ++generation_;
}

void CdxPages::set_root(const CdxForm& form, std::uint32_t offset) { roots_[form.header] = offset; }

void CdxPages::free(CdxPage& page) {
    std::erase(touched_, &page);
    freed_.push_back(page.offset());
    ++generation_;
    pages_.remove(page.offset());
}

std::uint32_t CdxPages::reserve_header() {
    find_end();
    return extend(kTagHeaderSize);
}

void CdxPages::fill_header(std::uint32_t offset, std::vector<Byte> bytes) {
    new_headers_[offset] = std::move(bytes);
}

// The system may have reconnected to a share in order to write, and the index was unlocked
// meanwhile. In that case at most this write has overwritten data of others.
void CdxPages::put(std::uint64_t offset, Bytes bytes) {
    file_.write_at(offset, bytes);
    try {
        file_.require_same_session();
    } catch (const platform::ConnectionLost&) {
        doubtful_ = true;
        throw;
    }
}

// Two workstations that lost their sessions at the same moment may both rebuild from the same
// counter. The clock and the address make it unlikely that they end with the same one.
void CdxPages::start_afresh() {
    constexpr std::uint32_t kFarAhead = 1 << 20;
    const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
    const auto varying =
        static_cast<std::uint32_t>(now) ^
        static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(this) / alignof(CdxPages));
    free_head_ = 0;
    store_be32(header_.data() + kCounterOffset,
               load_be32(header_.data() + kCounterOffset) + kFarAhead + varying % (64 * kFarAhead));
}

std::uint32_t CdxPages::reserve_page() {
    find_end();
    return extend(kCdxPageSize);
}

void CdxPages::write_reserved(std::uint64_t offset, Bytes pages) {
    added_pages_written_ = true;
    put(offset, pages);
}

void CdxPages::replace(const CdxForm& form, std::uint32_t offset, Bytes raw, int level) {
    CdxPage& page = pages_.put(CdxPage::decode(form, offset, raw));
    page.level = level;
    page.epoch = epoch_;
    touch_entries(page);
    set_root(form, offset);
}

// A page whose right pointer skips a removed page keeps the old pointer until write_pointers().
void CdxPages::write(CdxPage& page) {
    try {
        put(page.offset(), page.encode());
    } catch (const PageDamage& damage) {
        damaged(page.offset(), damage.what());
    }
    page.unwritten = page.content_changed = false;
    page.listed = page.right_changed;
}

// Directory root, free list and counter are adjacent and written together.
void CdxPages::write_header() {
    store_le32(header_.data() + kFreeHeadOffset, free_head_);
    store_be32(header_.data() + kCounterOffset, load_be32(header_.data() + kCounterOffset) + 1);
    put(0, Bytes(header_).first(kCounterOffset + 4));
}

void CdxPages::write_new_pages() {
    if (free_pages_taken_) {
        write_header();
        wait_for_disk();
    }
    free_pages_taken_ = false;
    const auto added = std::partition(touched_.begin(), touched_.end(),
                                      [](const CdxPage* page) { return !page->unwritten; });
    // In the order of their offsets, so that the file grows without holes.
    std::sort(added, touched_.end(),
              [](const CdxPage* a, const CdxPage* b) { return a->offset() < b->offset(); });
    added_pages_written_ = added_pages_written_ || added != touched_.end() || !new_headers_.empty();
    for (const auto& [offset, bytes] : new_headers_) put(offset, bytes);
    new_headers_.clear();
    write_all(added, touched_.end());
    if (added_pages_written_) wait_for_disk();
}

void CdxPages::publish() {
    write_new_pages();
    publishing_ = true;
    if (!touched_.empty() || !freed_.empty()) {
        try {
            write_published();
        } catch (const platform::ConnectionLost&) {
            throw;  // without the lock, a second try would overwrite data of others
        } catch (const platform::FileError&) {
            // A partly written page is worse than an unwritten one. Every step can be repeated, and
            // the cause of the failure has often passed by then.
            write_published();
        }
        file_.require_kept(0, header_);
    }
    publishing_ = added_pages_written_ = false;
    wait_for_disk();
}

void CdxPages::write_published() {
    write_header();
    write_changed_pages();
    write_pointers();
    if (freed_.empty()) return;
    write_freed_pages();
    write_header();
}

// Where a durable change alters the shape of the tree, each level is on the disk before the next
// higher one is written. Entries that change in place are harmless in any mixture of old and new
// pages.
void CdxPages::write_changed_pages() {
    for (;;) {
        const auto links_only =
            std::partition(touched_.begin(), touched_.end(),
                           [](const CdxPage* page) { return page->content_changed; });
        if (links_only == touched_.begin()) return;
        const bool in_steps = durable_ && (added_pages_written_ || !freed_.empty());
        std::sort(touched_.begin(), links_only,
                  [](const CdxPage* a, const CdxPage* b) { return a->level < b->level; });
        const int lowest = touched_.front()->level;
        const auto end =
            in_steps ? std::find_if(touched_.begin(), links_only,
                                    [&](const CdxPage* page) { return page->level != lowest; })
                     : links_only;
        write_all(touched_.begin(), end);
        if (in_steps) wait_for_disk();
    }
}

void CdxPages::write_all(PageList::iterator first, PageList::iterator last) {
    std::for_each(first, last, [this](CdxPage* page) { write(*page); });
    touched_.erase(std::remove_if(first, last, [](const CdxPage* page) { return !page->listed; }),
                   last);
}

// Writes right pointers from the root's level down, so that a page that is still reachable on its
// own level refers only to children that are still reachable on theirs.
void CdxPages::write_pointers() {
    std::sort(touched_.begin(), touched_.end(), [](const CdxPage* a, const CdxPage* b) {
        return std::pair(a->right_changed, b->level) < std::pair(b->right_changed, a->level);
    });
    for (CdxPage* page : touched_) {
        put(page->offset() + kLeftPointer, page->encode_pointers());
        page->right_changed = page->listed = false;
    }
    touched_.clear();
}

// Nothing refers to these pages when they are written, and the free list refers to them only after
// they are on the disk.
void CdxPages::write_freed_pages() {
    wait_for_disk();
    std::uint32_t head = free_head_;
    for (const std::uint32_t page : freed_) {
        std::array<Byte, kCdxPageSize> raw{};
        store_le32(raw.data(), head);
        put(page, raw);
        head = page;
    }
    wait_for_disk();
    free_head_ = head;
    freed_.clear();
}

// Unlike a write, a failed flush is not repeated: the system may have dropped the unwritten data,
// and the next flush would succeed without it.
void CdxPages::wait_for_disk() {
    if (!durable_) return;
    try {
        file_.sync();
    } catch (const platform::ConnectionLost&) {
        throw;
    } catch (const platform::FileError& failure) {
        throw EngineFault(failure);
    }
}

}  // namespace brenik::index
