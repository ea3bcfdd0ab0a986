// Record input and output, appends and locks.

#include "engine/local/table_file.h"

#include <algorithm>
#include <array>

#include "engine/record/dbf_file.h"
#include "platform/clock.h"
#include "util/runtime.h"

namespace brenik::local {
namespace {

// The size of the system's pages, or a divisor of it.
constexpr std::uint64_t kPageSize = 4096;
// Longer than any system is known to cache a share's answers.
constexpr std::chrono::seconds kOldAnswersLast{15};
// A record is copied in microseconds. Does not wait for a process suspended mid-copy.
constexpr int kWholeTimeout_ms = 50;
// Longer than the system usually stops a process that is not suspended.
constexpr int kWriterTimeout_ms = 20;
constexpr std::chrono::seconds kKeptLockedFor{1};
// Give up after this many differing reads: no real workload rewrites a record this fast.
constexpr int kMostReadings = 100;
// Others hold the bytes that separate the modes exclusively only while they open the table.
constexpr int kModeTimeout_ms = 50;

}  // namespace

std::unique_ptr<TableFile> TableFile::open(const std::string& path, const locks::FileUse& use) {
    auto table = std::unique_ptr<TableFile>(
        new TableFile(locks::open_file(path, use), use.exclusive(), use.mode));
    table->keep_other_mode_out();
    return table;
}

// While the other mode's byte is locked exclusively, no user in that mode exists or can open the
// table. Our own byte is locked during that time and stays locked until the file is closed.
void TableFile::keep_other_mode_out() {
    if (exclusive_ || !file_.writable()) return;
    const bool proprietary = mode_ == locks::LockMode::kProprietary;
    const locks::LockRange ours = locks::LockScheme::use(mode_);
    const locks::LockRange theirs = locks::LockScheme::use(
        proprietary ? locks::LockMode::kCompatible : locks::LockMode::kProprietary);
    const auto refuse = [&](locks::LockRange range, platform::LockKind wanted) {
        return locks::Refused(path(), "in use with locks of the other kind (LockType)",
                              {range, wanted}, RefusalReason::kOtherLockMode);
    };
    if (!file_.lock_within(theirs, platform::LockKind::kExclusive, kModeTimeout_ms)) {
        throw refuse(theirs, platform::LockKind::kExclusive);
    }
    const bool kept =
        file_.try_lock(ours, platform::LockKind::kShared) && (!proprietary || keep_strangers_out());
    file_.unlock(theirs);
    file_.keep_locks();
    if (!kept) throw refuse(proprietary ? scheme_.marker() : ours, platform::LockKind::kShared);
}

void TableFile::reopen() {
    held_.forget();
    marked_ = false;
    file_.reopen();
    try {
        require_same_layout();
        keep_other_mode_out();
        raise_count();
    } catch (...) {
        file_.close();
        throw;
    }
}

// Records that others have added meanwhile exist, whatever the header counts.
void TableFile::raise_count() {
    if (!count_doubtful_ || exclusive_) return;
    const locks::LockRange range = scheme_.append();
    if (!append_queue_.lock(range, locks::LockScheme::queue(), platform::LockKind::kExclusive,
                            platform::kShortLockTimeout_ms)) {
        locks::refuse_busy("append", path(), "the table is locked",
                           {range, platform::LockKind::kExclusive});
    }
    const locks::HeldLock held(file_, range);
    const RecordNumber counted = counted_in_header();
    const RecordNumber there = record::records_in(layout_, file_.size());
    if (there > counted) set_count(counted, there);
    count_doubtful_ = false;
}

void TableFile::require_same_layout() {
    const record::TableLayout now = read_layout();
    const auto same = [](const record::Field& was, const record::Field& is) {
        return was.name == is.name && was.type == is.type && was.offset == is.offset &&
               was.width == is.width;
    };
    if (now.version == layout_.version && now.flags == layout_.flags &&
        now.header_length == layout_.header_length && now.record_length == layout_.record_length &&
        std::ranges::equal(layout_.fields, now.fields, same)) {
        return;
    }
    throw EngineFault(FaultCode::kInputOutput, "open again", path() + ": is now another table");
}

// Compatible programs cannot lock or maintain a table that has outgrown the marker, in exclusive
// use, anyway.
bool TableFile::keep_strangers_out() {
    const locks::LockRange marker = scheme_.marker();
    if (file_.size() > marker.offset) return true;
    marked_ = file_.lock_within(marker, platform::LockKind::kShared, kModeTimeout_ms);
    return marked_;
}

// The header's count, limited by the file's size, is a first estimate of the record count.
record::TableLayout TableFile::read_layout() {
    const std::vector<Byte> header = record::read_header(file_, file_.size_at_open());
    record::TableLayout layout = record::parse_layout(header, file_.path());
    known_count_ = seen_count_ =
        std::min(record::counted_in(header), record::records_in(layout, file_.size_at_open()));
    return layout;
}

RecordNumber TableFile::counted_in_header() const {
    if (const auto counted = record::read_record_count(file_)) return *counted;
    throw EngineFault(FaultCode::kDamagedFile, "record count", path() + ": the header is gone");
}

RecordNumber TableFile::count() {
    const RecordNumber counted = counted_in_header();
    known_count_ = counted <= known_count_
                       ? counted
                       : std::min(counted, record::records_in(layout_, file_.size()));
    seen_count_ = std::max(seen_count_, known_count_);
    return known_count_;
}

// The system may return a record that is being written part old and part new. Without a lock, only
// two equal readings prove it whole; an earlier reading may be the first. If the record crosses a
// page of the system, whose pages are copied one after the other, even both may see the same half,
// unless no write went on between them. Where the system does not prove that, keep_whole() keeps
// our own writers out.
void TableFile::read(RecordNumber record, MutableBytes into, Bytes earlier) {
    if (held_.owns(record)) return read_once(record, into);
    std::optional<locks::HeldLock> whole;
    if (crosses_page(record)) {
        if (read_between_writes(record, into, earlier)) return;
        keep_whole(record, platform::LockKind::kShared, whole);
        earlier = {};
    }
    read_once(record, into);
    if (std::ranges::equal(into, earlier)) return;
    again_.resize(into.size());
    for (int reading = 1; reading < kMostReadings; ++reading) {
        read_once(record, again_);
        if (std::equal(again_.begin(), again_.end(), into.begin())) return;
        std::copy(again_.begin(), again_.end(), into.begin());
    }
}

// Every writer, of whatever program, holds the record's lock. If nobody does at some moment between
// two equal readings, none of them met a write. False if the system cannot tell, and if somebody
// keeps the record locked.
bool TableFile::read_between_writes(RecordNumber record, MutableBytes into, Bytes earlier) {
    again_.resize(into.size());
    if (earlier.empty()) {
        read_once(record, again_);
        earlier = again_;
    }
    for (int reading = 1; reading < kMostReadings; ++reading) {
        const std::optional<bool> locked = is_locked(record, record);
        if (!locked || (*locked && stays_locked(record))) return false;
        read_once(record, into);
        if (std::ranges::equal(into, earlier)) return true;
        std::ranges::copy(into, again_.begin());
        earlier = again_;
    }
    return false;
}

// False once nobody holds the record's lock. Waits for a writer to finish, even one that the system
// has stopped on the way. A person may keep a record locked for hours, so a record that stays
// locked is not waited for again for a while. Neither is any other record once so many have stayed
// locked, as in a table that is locked as a whole: those are only asked about a few times in a row.
bool TableFile::stays_locked(RecordNumber record) {
    const auto now = std::chrono::steady_clock::now();
    for (const KeptLocked& one : kept_locked_) {
        if (one.record == record && now < one.until) return true;
    }
    KeptLocked& oldest = kept_locked_[next_kept_locked_ % kept_locked_.size()];
    const bool many = now < oldest.until;
    const std::optional<bool> locked =
        file_.stays_locked(scheme_.records(record, record), many ? 0 : kWriterTimeout_ms);
    if (!locked.value_or(true)) return false;
    if (!many) {
        oldest = {record, now + kKeptLockedFor};
        ++next_kept_locked_;
    }
    return true;
}

// Whether other users hold the lock of one of these records; nothing if the system does not know. A
// table that is open for reading only may be written with locks of the other mode.
std::optional<bool> TableFile::is_locked(RecordNumber first, RecordNumber last) const {
    return file_.writable() ? file_.is_locked(scheme_.records(first, last)) : std::nullopt;
}

void TableFile::read_in_scan(RecordNumber record, MutableBytes into) {
    if (block_.copy(record, into)) return;
    if (const auto range = block_.wanted(record, known_count_)) {
        const MutableBytes bytes = block_.begin(*range);
        if (read_whole(*range, bytes)) {
            block_.keep();
            const std::size_t place = (record - range->first) * into.size();
            std::ranges::copy(bytes.subspan(place, into.size()), into.begin());
            return;
        }
    }
    read(record, into);
}

// Like read(), but gives up if any of the records may be in the course of being written.
bool TableFile::read_whole(RecordBlock::Range range, MutableBytes into) {
    if (!read_many(range.first, into)) return false;
    if (held_.owns_all()) return true;
    const std::optional<bool> locked = is_locked(range.first, range.last);
    if (locked.value_or(false)) return false;
    std::optional<locks::HeldLock> whole;
    if (!locked) {
        const locks::LockRange bytes = locks::LockScheme::whole(range.first, range.last);
        if (!file_.try_lock(bytes, platform::LockKind::kShared)) return false;
        whole.emplace(file_, bytes);
    }
    again_.resize(into.size());
    return read_many(range.first, again_) && std::ranges::equal(again_, into);
}

bool TableFile::crosses_page(RecordNumber record) const {
    const std::uint64_t begin = record::record_offset(layout_, record);
    return begin / kPageSize != (begin + layout_.record_length - 1) / kPageSize;
}

void TableFile::read_once(RecordNumber record, MutableBytes into) const {
    if (file_.read_at(record::record_offset(layout_, record), into) != into.size()) {
        throw EngineFault(FaultCode::kDamagedFile, "read",
                          path() + ": record " + std::to_string(record) + " is cut short");
    }
}

void TableFile::write(RecordNumber record, Bytes bytes, Bytes before) {
    require_named();
    ask_server();
    std::optional<locks::HeldLock> whole;
    if (!exclusive_ && crosses_page(record)) {
        keep_whole(record, platform::LockKind::kExclusive, whole);
    }
    replace(record::record_offset(layout_, record), bytes, before);
    file_.require_same_session();
}

// If the lock was lost, another user may have written this record, and nothing could restore what
// we overwrite. So the server of a share is asked just before the write.
void TableFile::ask_server() const {
    if (!file_.remote()) return;
    static_cast<void>(file_.size());
    file_.require_same_session();
}

void TableFile::keep_whole(RecordNumber record, platform::LockKind kind,
                           std::optional<locks::HeldLock>& held) {
    const locks::LockRange range = locks::LockScheme::whole(record, record);
    if (file_.lock_within(range, kind, kWholeTimeout_ms)) held.emplace(file_, range);
}

// Overwrites what others read. A write that fails half-way is undone: a record or a count that is
// part old and part new is worse than either.
void TableFile::replace(std::uint64_t offset, Bytes bytes, Bytes before) {
    try {
        file_.write_at(offset, bytes);
    } catch (const platform::FileError&) {
        try {
            file_.write_at(offset, before);
        } catch (const platform::FileError&) {
            // The first failure is the one to report.
        }
        throw;
    }
}

TableFile::Addition::Addition(TableFile& file, LockTry attempt, Table::Leave leave) : file_(file) {
    if (!file.held_.owns_all()) {
        const locks::LockRange range = file.scheme_.append();
        if (!file.append_queue_.attempt(range, locks::LockScheme::queue(), attempt)) return;
        append_lock_.emplace(file.file_, range);
    }
    const Place next = file.next_place();
    left_over_ = next.left_over;
    if (leave == Table::Leave::kUnlocked || file.held_.lock_new(next.record)) record_ = next.record;
}

TableFile::Addition::~Addition() {
    if (record_ != 0 && !counted_) file_.held_.unlock(record_);
}

std::optional<std::vector<Byte>> TableFile::Addition::left_over() const {
    if (!left_over_) return {};
    std::vector<Byte> bytes(file_.layout_.record_length);
    file_.read_once(record_, bytes);
    return bytes;
}

void TableFile::Addition::write(Bytes bytes) {
    std::vector<Byte> record_and_end(bytes.begin(), bytes.end());
    record_and_end.push_back(record::kEndMark);
    file_.ask_server();
    file_.file_.write_at(record::record_offset(file_.layout_, record_), record_and_end);
    file_.step_autoincrement();
}

// On a share, the append lock may have been lost with the session, and others may have added
// records.
void TableFile::Addition::count() {
    file_.file_.require_same_session();
    file_.count_doubtful_ = true;
    file_.set_count(record_ - 1, record_);
    counted_ = true;
    file_.file_.require_kept(record::kCountOffset, record::count_bytes(file_.known_count_));
    file_.count_doubtful_ = false;
}

void TableFile::Addition::uncount() {
    if (!counted_) return;
    file_.set_count(record_, record_ - 1);
    counted_ = false;
}

void TableFile::set_count(RecordNumber from, RecordNumber to) {
    const platform::LocalDay today = platform::system_clock().today();
    replace(record::kDateOffset, record::date_and_count(today, to),
            record::date_and_count(today, from));
    known_count_ = seen_count_ = to;
}

// If a share shows an older count, an addition would overwrite counted records. After a while the
// lower count is accepted: the server may have lost the others, or a workstation may have taken
// them back.
void TableFile::require_newest(RecordNumber counted) {
    if (!file_.remote()) return;
    if (counted >= seen_count_) return older_since_.reset();
    const auto now = std::chrono::steady_clock::now();
    if (!older_since_) older_since_ = now;
    if (now - *older_since_ <= kOldAnswersLast) {
        throw EngineFault(FaultCode::kInputOutput, "append",
                          path() + ": the share shows " + brenik::counted(counted, "record") +
                              ", and has shown " + std::to_string(seen_count_) + " before");
    }
    seen_count_ = counted;
    older_since_.reset();
}

// Under the append lock the header's count is exact. The file is checked too, each time: it may
// have been cut short, or have lost its name, since it was opened.
TableFile::Place TableFile::next_place() {
    const RecordNumber counted = counted_in_header();
    require_newest(counted);
    const platform::File::Standing standing = file_.standing();
    require_named(standing.named);
    const RecordNumber held = record::records_in(layout_, standing.size);
    if (held < counted) {
        throw EngineFault(FaultCode::kDamagedFile, "append",
                          path() + ": cut short: the header counts " +
                              brenik::counted(counted, "record") + ", the file holds " +
                              std::to_string(held) + "; repair the table before adding to it");
    }
    if (counted >= scheme_.max_records(marked_)) {
        throw EngineFault(FaultCode::kLimit, "append",
                          path() + ": full: " + std::to_string(counted) +
                              " records reach as far as locks allow, offset " +
                              std::to_string(scheme_.data_limit(marked_)));
    }
    return {counted + 1, held > counted};
}

// What looks wrong without the lock may be another user's addition in progress. So an Addition,
// which ends at once, checks it again under the lock.
void TableFile::require_room() {
    try {
        static_cast<void>(next_place());
    } catch (const EngineFault&) {
        const Addition again(*this, LockTry::kInTurn);
    }
}

void TableFile::require_named(bool named) const {
    if (named) return;
    throw EngineFault(FaultCode::kInputOutput, "write",
                      path() + ": was removed or replaced while it is open here");
}

void TableFile::Addition::fill_in(MutableBytes bytes) {
    for (const auto& column : record::read_autoincrements(file_.file_, file_.layout_)) {
        store_le32(bytes.data() + column.field->offset, column.next);
    }
}

void TableFile::step_autoincrement() {
    for (const auto& column : record::read_autoincrements(file_, layout_)) {
        std::array<Byte, 4> before{}, after{};
        store_le32(before.data(), column.next);
        store_le32(after.data(), column.next + column.step);
        replace(column.offset, after, before);
    }
}

}  // namespace brenik::local
