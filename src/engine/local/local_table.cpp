// The record buffer, navigation and locks of an open table.

#include "engine/local/local_table.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "engine/record/field_codec.h"
#include "engine/record/memo_format.h"
#include "engine/record/record_scan.h"
#include "util/runtime.h"

namespace brenik::local {
namespace {

// From this distance on, finding the position by number costs less than stepping.
constexpr std::int64_t kFarSkip = 64;
constexpr std::chrono::milliseconds kIndexTrusted{5};
// Longer memo texts are read again rather than cached.
constexpr std::size_t kLongestKnown = 1 << 16;

FieldDescription describe(const record::Field& field) {
    return {field.name, field.type, static_cast<int>(field.width), static_cast<int>(field.decimals),
            field.kind->value};
}

}  // namespace

std::unique_ptr<LocalTable> LocalTable::open(LocalEngine& engine, const std::string& path,
                                             platform::Sharing sharing, int controlling) {
    const locks::FileUse use{
        sharing,
        engine.proprietary_locking_ ? locks::LockMode::kProprietary : locks::LockMode::kCompatible,
        engine.read_only_ ? platform::OpenMode::kReadOnly : platform::OpenMode::kReadWrite};
    auto table = std::unique_ptr<LocalTable>(new LocalTable(engine, TableFile::open(path, use)));
    const record::TableLayout& layout = table->layout();
    if (layout.has_memos()) {
        engine.open_part([&] {
            table->memo_ = MemoFile::open(table->file_->path(), layout.version, use.covered());
        });
    }
    table->orders_ =
        std::make_unique<TableOrders>(layout, table->file_->path(), use, engine.index_cache_);
    if (layout.has_structural_index()) {
        engine.open_part([&] { table->orders_->open_structural(); });
    }
    table->orders_attached(0, controlling);
    // With hidden records, the top may be far away; the index must not stay locked until it is
    // found.
    if (table->hides_records()) table->orders_->end_opening();
    table->go_top();
    table->orders_->end_opening();
    return table;
}

LocalTable::LocalTable(LocalEngine& engine, std::unique_ptr<TableFile> file)
    : engine_(engine),
      file_(std::move(file)),
      path_(file_->path()),
      unsettled_(engine.unsettled_[path_]),
      layout_(file_->layout()) {
    for (const record::Field& field : layout_.fields) {
        descriptions_.push_back(describe(field));
    }
    bytes_.resize(layout_.record_length);
    engine_.tables_.insert(this);
}

LocalTable::~LocalTable() {
    try {
        shut();
    } catch (const std::exception&) {
        // A caller that needs to know of a failed last write commits before closing.
    }
    engine_.tables_.erase(this);
}

void LocalTable::shut() {
    if (!file_) return;
    struct Close {
        LocalTable& table;
        ~Close() {
            if (table.orders_ && table.orders_->doubtful()) table.unsettled_.index = true;
            table.place(0);
            table.filter_ = {};
            table.follower_ = {};
            table.controlling_ = 0;
            table.scopes_.clear();
            table.orders_.reset();
            table.memo_.reset();
            table.file_.reset();
        }
    };
    const Close close{*this};
    flush();
}

// -- The share's session.

bool LocalTable::lost_on_share() const {
    bool lost = unsettled_.any() || orders_->doubtful() || file_->file().lost() ||
                (memo_ && memo_->file().lost());
    orders_->for_each_file(
        [&](const index::CdxFile& index) { lost = lost || index.file().lost(); });
    return lost;
}

// A file that cannot be reopened is not a conflict that a retry solves: the operation in progress
// is lost with it, so this is a fault.
void LocalTable::reopen_files() {
    if (orders_->doubtful()) unsettled_.index = true;
    try {
        file_->reopen();
        if (memo_) memo_->reopen();
        orders_->reopen();
    } catch (const locks::Refused& refusal) {
        throw EngineFault(FaultCode::kInputOutput, "open again", refusal.what());
    }
}

// A locked current record without pending changes is locked again, and stays locked only if it is
// still as it was read under the lost lock. Pending changes stay in the buffer until they are
// written.
void LocalTable::reopen() {
    const bool held = record_ != 0 && file_->locks().owns(record_);
    forget_moment();
    reopen_files();
    if (unsettled_.index) rebuild_index();
    settle_edits();
    interrupted_ = changed_ || keys_pending_;
    known_memos_.clear();
    if (begun_ || interrupted_) return;
    if (held && file_->locks().lock(record_, LockTry::kInTurn) && loaded_) {
        std::vector<Byte> there(layout().record_length);
        file_->read(record_, there);
        if (there != original_) file_->locks().unlock(record_);
    }
    forget_reading();
}

void LocalTable::rebuild_index() {
    orders_->rebuild([this](const TableOrders::RecordUse& use) {
        const auto read = [this](RecordNumber first, MutableBytes into) {
            return file_->read_many(first, into);
        };
        if (record::scan_records(layout(), file_->count(), read, use)) return;
        throw EngineFault(FaultCode::kInputOutput, "read",
                          file_->path() + ": records are missing while the index is rebuilt");
    });
    unsettled_ = {};
}

// What cannot be settled later either is given up, so that the table stays usable.
void LocalTable::settle_edits() {
    while (!unsettled_.edits.empty()) {
        const Unsettled::Edit edit = unsettled_.edits.back();
        unsettled_.edits.pop_back();
        try {
            if (file_->holds(edit.record)) settle(edit);
        } catch (const EngineFault& fault) {
            const bool passes = fault.code() == FaultCode::kBusy ||
                                dynamic_cast<const platform::ConnectionLost*>(&fault) != nullptr;
            if (passes) unsettled_.edits.push_back(edit);
            throw;
        }
    }
}

// Gives a record the keys of what it holds now. Others who have changed it meanwhile have removed
// the keys of what they found there, but no others.
void LocalTable::settle(const Unsettled::Edit& edit) {
    std::vector<Byte> there(layout().record_length), again(there);
    for (const std::vector<Byte>& version : {edit.before, edit.after}) {
        for (bool settled = false; !settled;) {
            file_->read(edit.record, there);
            KeyUpdate keys(*orders_, record::RecordView{version, edit.record},
                           record::RecordView{there, edit.record}, KeysBefore::kSome);
            // Whoever changes keys changes the record under this lock.
            keys.lock(durable());
            file_->read(edit.record, again);
            settled = again == there;
            if (!settled) continue;
            keys.insert(record_has());
            keys.publish();
            keys.remove();
            keys.publish();
        }
    }
}

// -- The record buffer.

RecordNumber LocalTable::record_count() {
    return file_ ? reaching([this] { return file_->count(); }) : 0;
}

record::RecordView LocalTable::view() {
    if (!loaded_) {
        if (record_ == 0) {
            record::make_blank_record(bytes_, layout());
        } else {
            reaching([this] { read_current(); });
        }
        original_ = bytes_;
        loaded_ = read_before_ = true;
        if (memo_) loaded_at_ = MemoFile::Clock::now();
    }
    return {bytes_, record_};
}

// Only a scan in physical order may see records as they were some milliseconds ago: the entries of
// an order can be newer, and a record read again must be.
void LocalTable::read_current() {
    if (read_before_) return file_->read(record_, bytes_, original_);
    if (controlling_ != 0) return file_->read(record_, bytes_);
    enter_moment();
    file_->read_in_scan(record_, bytes_);
}

// The next readings are fresh ones.
void LocalTable::forget_moment() {
    trusted_until_ = {};
    if (file_) file_->end_scan();
}

void LocalTable::enter_moment() {
    if (moment_ == engine_.moment_) return;
    moment_ = engine_.moment_;
    forget_moment();
}

void LocalTable::forget_record() {
    loaded_ = read_before_ = interrupted_ = false;
    changed_ = false;
    keys_pending_ = false;
    begun_ = false;
    pending_memos_.clear();
    known_memos_.clear();
}

void LocalTable::place(RecordNumber record) {
    forget_record();
    record_ = record;
    entry_known_ = false;
    at_beginning_ = false;
}

void LocalTable::require_open(const char* operation) const {
    if (!file_) throw EngineFault(FaultCode::kEmptyWorkArea, operation, "the table is closed");
}

void LocalTable::require_writable(const char* operation) {
    require_open(operation);
    if (!begun_ && (record_ == 0 || !file_->locks().owns(record_))) {
        throw EngineFault(FaultCode::kNotLocked, operation,
                          file_->path() + ": record " + std::to_string(record_number()) +
                              " is not locked by this session");
    }
    view();
}

const record::Field& LocalTable::field_at(std::size_t position, const char* operation) const {
    require_open(operation);
    if (position == 0 || position > layout().fields.size()) {
        throw EngineFault(FaultCode::kUnknownName, operation,
                          file_->path() + ": no field at position " + std::to_string(position));
    }
    return layout().fields[position - 1];
}

// A replaced text stays readable for a while, so a record that was just read can be followed to its
// texts.
std::string LocalTable::memo_text(const record::Field& field) {
    const auto pending = pending_memos_.find(&field);
    if (pending != pending_memos_.end()) return pending->second;
    if (loaded_ && record_ != 0 && !changed_ && !file_->locks().owns(record_) &&
        MemoFile::Clock::now() - loaded_at_ > MemoFile::kTextStays / 2) {
        forget_reading();
    }
    if (!memo_) return text_without_file(field);
    const auto known = known_memos_.find(&field);
    if (known != known_memos_.end() && file_->locks().owns(record_)) return known->second;
    std::string text =
        reaching([&] { return memo_->read(record::read_memo_pointer(view(), field).block); });
    // While the record is locked, nobody else changes the text, and field_put() compares it with
    // the new one.
    if (file_->locks().owns(record_) && text.size() <= kLongestKnown) known_memos_[&field] = text;
    return text;
}

// Only a lenient engine opens a table without its memo file.
std::string LocalTable::text_without_file(const record::Field& field) {
    const record::MemoPointer pointer = record::read_memo_pointer(view(), field);
    if (pointer.is_number && pointer.block == 0) return {};
    throw EngineFault(FaultCode::kDamagedFile, "field get",
                      path() + ": field " + field.name + ": its memo file cannot be opened");
}

Value LocalTable::field_get(std::size_t position) {
    const record::Field& field = field_at(position, "field get");
    if (!field.is_memo()) return record::read_field(view(), layout(), field);
    if (record::is_null(view(), layout(), field)) return {};
    return Memo{memo_text(field)};
}

bool LocalTable::field_equals(std::size_t position, const Value& value) {
    const record::Field& field = field_at(position, "field get");
    if (field.is_memo()) return field_get(position).exactly_equals(value);
    return record::holds_value(view(), layout(), field, value);
}

void LocalTable::field_put(std::size_t position, const Value& value) {
    const record::Field& field = field_at(position, "field put");
    require_writable("field put");
    if (field.is_autoincrement()) return;  // the engine's own column
    if (!field.is_memo()) {
        if (record::says_already(view(), layout(), field, value)) return;
        next_ = bytes_;  // a refused value leaves the record as it was
        record::write_field(next_, layout(), field, value);
        changed_ = changed_ || next_ != bytes_;
        bytes_.swap(next_);
        return;
    }
    if (!value.is_nil() && !value.is_text()) {
        throw EngineFault(FaultCode::kUnsuitableValue, "field put",
                          "field " + field.name + ": a memo takes text");
    }
    if (field.null_bit && record::is_null(view(), layout(), field) != value.is_nil()) {
        record::set_null(bytes_, layout(), field, value.is_nil());
        changed_ = true;
    }
    if (value.text() == memo_text(field)) return;
    pending_memos_[&field] = value.text();
    changed_ = true;
}

void LocalTable::set_deletion_mark(char mark) {
    require_writable(mark == '*' ? "delete" : "recall");
    if (bytes_[0] == static_cast<Byte>(mark)) return;
    bytes_[0] = static_cast<Byte>(mark);
    changed_ = true;
}

// Drops the buffered record; the next access reads it again.
void LocalTable::forget_reading() {
    forget_moment();
    if (keys_pending_ || begun_) return;  // nobody else can have changed it
    const bool read_before = read_before_ && !changed_;
    forget_record();
    read_before_ = read_before;
}

int LocalTable::refresh_record() {
    forget_reading();
    try {
        if (file_) view();
        return 0;
    } catch (const std::exception& fault) {
        return engine_.note(fault);
    }
}

// The record refers to its old texts until it is written itself. Only then are their blocks, which
// this returns, free for others.
std::vector<std::uint32_t> LocalTable::write_memos() {
    std::vector<std::uint32_t> replaced;
    known_memos_.clear();
    for (const auto& [field, text] : pending_memos_) {
        replaced.push_back(record::read_memo_pointer({bytes_, record_}, *field).block);
        record::set_memo_block(bytes_, *field, memo_->write(text, field->type != 'M', durable()));
    }
    return replaced;
}

// The pending texts must fit at the end of the memo file, even if they reuse other blocks.
void LocalTable::require_room_for_memos() const {
    std::uint64_t bytes = 0;
    for (const auto& [field, text] : pending_memos_) bytes += text.size();
    if (!pending_memos_.empty()) memo_->require_room(pending_memos_.size(), bytes);
}

void LocalTable::flush() {
    if (begun_ || (!changed_ && !keys_pending_)) return;
    reaching([this] {
        if (interrupted_ || !file_->locks().owns(record_)) prepare_to_write_again();
        write_changes();
    });
}

// After the session was lost: locks the record again, and requires that it holds what was read from
// it or what was written to it.
void LocalTable::prepare_to_write_again() {
    if (!file_->locks().lock(record_, LockTry::kInTurn))
        refuse_after_loss("is locked by another user now");
    std::vector<Byte> there(layout().record_length);
    file_->read(record_, there);
    if (there != bytes_ && there != original_) {
        file_->locks().unlock(record_);
        refuse_after_loss("was changed by another user meanwhile");
    }
    if (there == bytes_ && there != original_) pending_memos_.clear();
    interrupted_ = false;
}

void LocalTable::refuse_after_loss(const char* what) const {
    throw EngineFault(FaultCode::kNotLocked, "write",
                      file_->path() + ": record " + std::to_string(record_) +
                          ": the connection was lost while it was locked, and it " + what);
}

void LocalTable::write_changes() {
    engine_.end_moment();
    // On a share, the index may have been rebuilt since the record was appended blank.
    const bool without_keys = keys_pending_ && !file_->file().remote();
    const std::optional<record::RecordView> before =
        without_keys ? std::nullopt : std::optional(record::RecordView{original_, record_});
    require_in_place();
    require_room_for_memos();
    KeyUpdate keys(*orders_, before, record::RecordView{bytes_, record_},
                   keys_pending_ ? KeysBefore::kSome : KeysBefore::kAll);
    keys.lock(durable());
    // Memos are written after everything that can refuse the change, and before the record refers
    // to them.
    try {
        durable() ? write_record_durably(keys) : write_record(keys);
    } catch (const platform::ConnectionLost&) {
        unsettled_.edits.push_back({record_, original_, bytes_});
        throw;
    }
    original_ = bytes_;
    changed_ = false;
    keys_pending_ = false;
    entry_known_ = false;
}

KeyUpdate::RecordHas LocalTable::record_has() {
    return [this](const index::Order& order, const index::IndexEntry& entry) {
        if (!file_->holds(entry.record)) return false;
        std::vector<Byte> bytes(layout().record_length);
        file_->read(entry.record, bytes);
        return order.agrees_with(entry, {bytes, entry.record});
    };
}

void LocalTable::write_record(KeyUpdate& keys) {
    keys.remove();
    keys.insert(record_has());
    keys.write_new_pages();
    const std::vector<std::uint32_t> replaced = write_memos();
    if (bytes_ != original_) file_->write(record_, bytes_, original_);
    for (const std::uint32_t block : replaced) memo_->release(block);
    pending_memos_.clear();
    keys.publish();
}

// At every moment the disk has all keys of the record there. Searches pass over any others.
void LocalTable::write_record_durably(KeyUpdate& keys) {
    keys.insert(record_has());
    keys.write_new_pages();
    const std::vector<std::uint32_t> replaced = write_memos();
    try {
        if (!keys_pending_) keys.publish();
        if (bytes_ != original_) file_->write(record_, bytes_, original_);
        file_->sync();
    } catch (const EngineFault&) {
        keys.take_back();
        throw;
    }
    for (const std::uint32_t block : replaced) memo_->release(block);
    pending_memos_.clear();
    keys.remove();
    keys.publish();
}

// Nothing is written to a file that was removed or replaced since it was opened. The names are
// checked only every few seconds, because each check is a system call.
void LocalTable::require_in_place() {
    constexpr std::chrono::seconds kLookedAtEvery{5};
    const auto now = MemoFile::Clock::now();
    if (now - place_checked_ < kLookedAtEvery) return;
    const auto require = [](const platform::File& file) {
        if (file.in_place()) return;
        throw EngineFault(FaultCode::kInputOutput, "write",
                          file.path() + ": was removed or replaced while it is open here");
    };
    require(file_->file());
    if (memo_) require(memo_->file());
    orders_->for_each_file([&](const index::CdxFile& index) { require(index.file()); });
    place_checked_ = now;
}

// An interrupted addition may have left an uncounted record, and keys of it. The keys are removed
// while that record still tells what they are; otherwise they would become keys of the record that
// takes its place. An end mark may have overwritten its deletion mark, so the keys for both marks
// are removed.
bool LocalTable::take_out_left_over(const TableFile::Addition& addition, LockTry attempt) {
    std::optional<std::vector<Byte>> record = addition.left_over();
    if (!record) return true;
    for (const char mark : {' ', '*'}) {
        record->front() = static_cast<Byte>(mark);
        KeyUpdate keys(*orders_, record::RecordView{*record, addition.record()}, std::nullopt);
        if (!keys.lock(attempt, durable())) return false;
        keys.remove();
        keys.publish();
    }
    return true;
}

bool LocalTable::append_blank(bool release_other_locks, LockTry attempt) {
    RecordNumber place = 0;
    return reaching([&] {
        if (place != 0) record::make_blank_record(bytes_, layout());
        if (place == 0 || !is_added(place) || !file_->locks().lock_new(place)) {
            return append_blank_once(release_other_locks, attempt, place);
        }
        placed_at_added(place);
        keys_pending_ = true;
        return true;
    });
}

bool LocalTable::append_blank_once(bool release_other_locks, LockTry attempt, RecordNumber& place) {
    require_open("append");
    engine_.end_moment();
    flush();
    require_room_beside_records();
    if (release_other_locks) file_->locks().unlock_all();
    std::vector<Byte> blank(layout().record_length);
    record::make_blank_record(blank, layout());
    TableFile::Addition addition(*file_, attempt);
    if (!addition.begun() || !take_out_left_over(addition, attempt)) return false;
    addition.fill_in(blank);
    place = addition.record();
    addition.write(blank);
    if (durable()) file_->sync();
    addition.count();
    if (durable()) file_->sync();
    bytes_ = std::move(blank);
    placed_at_added(place);
    keys_pending_ = true;
    return true;
}

// True when the record to be added is in the file and counted.
bool LocalTable::is_added(RecordNumber record) {
    if (!file_->holds(record)) return false;
    std::vector<Byte> there(layout().record_length);
    file_->read(record, there);
    return there == bytes_;
}

// Makes the added record current; the buffer holds it.
void LocalTable::placed_at_added(RecordNumber record) {
    std::vector<Byte> added = std::move(bytes_);
    place(record);
    original_ = bytes_ = std::move(added);
    loaded_ = true;
    if (memo_) loaded_at_ = MemoFile::Clock::now();
    moved();
}

void LocalTable::require_room_beside_records() {
    require_in_place();
    orders_->require_room();
    if (memo_) memo_->require_room_for_record();
}

void LocalTable::begin_record() {
    move_to(0);
    require_open("append");
    reaching([this] { require_room_beside_records(); });
    view();
    begun_ = true;
    moved();
}

void LocalTable::require_place() {
    require_open("write");
    reaching([this] {
        require_in_place();
        require_room_for_memos();
        begun_ ? file_->require_room() : file_->require_named();
    });
}

// All locks are acquired, and everything that can refuse the record is checked, before anything is
// written. The header counts the record last.
Table::Added LocalTable::add_record(LockTry attempt, std::size_t distinct, Leave leave) {
    require_open("append");
    if (!begun_) {
        throw EngineFault(FaultCode::kNotLocked, "append", file_->path() + ": no record was begun");
    }
    // If the record is not counted, the next addition removes what was written of it.
    RecordNumber place = 0;
    return reaching([&] {
        if (place == 0 || !is_added(place)) {
            return add_once(attempt, distinct, leave, place);
        }
        KeyUpdate keys(*orders_, std::nullopt, record::RecordView{bytes_, place});
        keys.lock(durable());
        keys.insert(record_has());
        keys.publish();
        if (leave == Leave::kLocked) static_cast<void>(file_->locks().lock_new(place));
        if (durable()) file_->sync();
        placed_at_added(place);
        return Added::kDone;
    });
}

Table::Added LocalTable::add_once(LockTry attempt, std::size_t distinct, Leave leave,
                                  RecordNumber& place) {
    engine_.end_moment();
    require_room_for_memos();
    TableFile::Addition addition(*file_, attempt, leave);
    if (!addition.begun() || !take_out_left_over(addition, attempt)) return Added::kRefused;
    addition.fill_in(bytes_);
    KeyUpdate keys(*orders_, std::nullopt, record::RecordView{bytes_, addition.record()});
    if (!keys.lock(attempt, durable())) return Added::kRefused;
    if (distinct != 0 && keys.is_taken(orders_->attached(distinct))) return Added::kTaken;
    keys.insert(record_has());
    std::optional<MemoFile::Allocation> memos;
    if (!pending_memos_.empty() && !memos.emplace(*memo_, attempt).begun()) return Added::kRefused;
    place = addition.record();
    keys.write_new_pages();
    write_memos();
    addition.write(bytes_);
    if (durable()) file_->sync();
    try {
        keys.publish();
        addition.count();
        if (durable()) file_->sync();
    } catch (const EngineFault&) {
        // Keys without a record are harmless; a record without keys is not.
        addition.uncount();
        keys.take_back();
        throw;
    }
    placed_at_added(place);
    return Added::kDone;
}

void LocalTable::abandon_changes() noexcept {
    if (!file_) return;
    if (!keys_pending_) return forget_record();
    try {
        // Blank, not half filled in: its identifier may yet be given to another record.
        pending_memos_.clear();
        bytes_ = original_;
        bytes_[0] = '*';
        changed_ = true;
        flush();
    } catch (const std::exception&) {
        abandon_without_keys();
    }
}

// For an appended record whose keys an order refuses, or whose index cannot be written: a deleted
// record without keys is better than a live one.
void LocalTable::abandon_without_keys() noexcept {
    if (interrupted_ || !file_->locks().owns(record_)) return forget_record();
    engine_.end_moment();
    try {
        const std::vector<Byte> before = original_;
        original_[0] = '*';
        file_->write(record_, original_, before);
    } catch (const std::exception&) {
        // The record stays in the file as it was appended: blank.
    }
    forget_record();
}

void LocalTable::commit() {
    if (!file_) return;
    flush();
    if (!durable()) return;
    reaching([this] {
        if (memo_) memo_->sync();
        file_->sync();
        orders_->sync();
    });
}

// -- Locks.

bool LocalTable::lock_record(RecordNumber record, LockTry attempt) {
    require_open("lock record");
    engine_.end_moment();
    const bool owned = !lost() && file_->locks().owns(record);
    // The lock byte of a record that does not exist yet belongs to the append.
    const bool locked =
        reaching([&] { return file_->holds(record) && file_->locks().lock(record, attempt); });
    if (!locked) return false;
    // What was read before the lock may be out of date.
    if (owned || record != record_) return true;
    interrupted_ ? prepare_to_write_again() : forget_reading();
    return true;
}

bool LocalTable::lock_table(LockTry attempt) {
    require_open("lock file");
    engine_.end_moment();
    flush();
    const bool locked = reaching([&] { return file_->locks().lock_table(attempt); });
    forget_record();  // even if refused: the try released the record's lock for a moment
    return locked;
}

void LocalTable::unlock_record(RecordNumber record) {
    if (!file_) return;
    if (record == record_) flush();
    file_->locks().unlock(record);
}

void LocalTable::unlock_all() {
    if (!file_) return;
    flush();
    file_->locks().unlock_all();
}

// -- Navigation.

bool LocalTable::shows(const record::RecordView& record) const {
    if (engine_.deleted_hidden() && record.deleted()) return false;
    return !filter_ || filter_(record);
}

void LocalTable::move_to(RecordNumber record) {
    flush();
    forget_moment();
    place(file_ && reaching([&] { return file_->holds(record); }) ? record : 0);
}

void LocalTable::go_to(RecordNumber record) {
    move_to(record);
    moved();
}

// The entry of the current record; computed from its fields if the order did not lead to it.
const index::IndexEntry& LocalTable::current_entry() {
    if (!entry_known_) entry_ = {orders_->attached(controlling_).key_of(view()), record_};
    entry_known_ = true;
    return entry_;
}

// An entry beyond the count belongs to a record that does not exist (yet).
bool LocalTable::place_at(const index::IndexEntry& entry) {
    if (!file_->holds(entry.record)) return false;
    place(entry.record);
    entry_ = entry;
    entry_known_ = true;
    return visible();
}

// Moves from an entry, itself included, to the first visible one.
bool LocalTable::place_near(bool any, index::IndexEntry& entry, bool forward) {
    while (any && !place_at(entry)) {
        std::swap(from_, entry);
        any = neighbour(from_, entry, forward);
    }
    return any;
}

bool LocalTable::neighbour(const index::IndexEntry& entry, index::IndexEntry& found, bool forward) {
    const index::Trust now = trust();
    return forward ? walk().next(entry, found, now) : walk().previous(entry, found, now);
}

// A walk asks for the index's counter every few milliseconds, and at the end of each leaf.
index::Trust LocalTable::trust() {
    enter_moment();
    const auto now = std::chrono::steady_clock::now();
    if (now < trusted_until_) return index::Trust::kMoment;
    trusted_until_ = now + kIndexTrusted;
    return index::Trust::kNothing;
}

bool LocalTable::step_in_order(bool forward) {
    const bool any = neighbour(current_entry(), found_, forward);
    return place_near(any, found_, forward);
}

// The count is asked once per call, and not for a record that was read with others.
bool LocalTable::step_by_number(bool forward) {
    enter_moment();
    for (RecordNumber count = 0, record = record_; forward || record > 1;) {
        record = forward ? record + 1 : record - 1;
        if (forward && record > count && !file_->scanned(record)) {
            if (count == 0) count = file_->count();
            if (record > count) return false;
        }
        place(record);
        if (!hides_records() || visible()) return true;
    }
    return false;
}

bool LocalTable::step(bool forward) {
    return controlling_ != 0 ? step_in_order(forward) : step_by_number(forward);
}

void LocalTable::go_end(bool top) {
    flush();
    forget_moment();
    reaching([&] { go_end_once(top); });
}

void LocalTable::go_end_once(bool top) {
    if (controlling_ == 0) {
        const RecordNumber count = record_count();
        place(top ? std::min<RecordNumber>(1, count) : count);
        if (record_ != 0 && hides_records() && !visible() && !step(top)) place(0);
    } else {
        const bool any = top ? walk().first(found_) : walk().last(found_);
        if (!place_near(any, found_, top)) place(0);
    }
    at_beginning_ = record_ == 0;
}

void LocalTable::go_top() {
    go_end(true);
    moved();
}

void LocalTable::go_bottom() {
    go_end(false);
    moved();
}

void LocalTable::skip(std::int64_t count) {
    if (count == 0) {
        flush();
        return forget_reading();
    }
    move_by(count);
    moved();
}

void LocalTable::move_by(std::int64_t count) {
    flush();
    at_beginning_ = false;
    if (count < 0 && record_ == 0) {
        go_end(false);
        ++count;
    }
    if (record_ == 0 || count == 0) return;
    const bool forward = count > 0;
    bool any = true;
    if (!hides_records() && (count > kFarSkip || count < -kFarSkip)) {
        any = reaching([&] { return leap(count); });
    } else {
        for (; any && count != 0; count += forward ? -1 : 1) {
            any = reaching([&] { return step(forward); });
        }
    }
    if (any) return;
    if (forward) return place(0);
    go_end(true);
    at_beginning_ = true;
}

// -- Orders and scopes.

void LocalTable::use_order(std::size_t number) {
    forget_moment();
    controlling_ = number;
    entry_known_ = false;
}

// Makes one of the orders controlling that were attached after the first `before` ones.
void LocalTable::orders_attached(std::size_t before, int controlling) {
    scopes_.resize(orders_->attached_count());
    if (controlling <= 0) return;
    const std::size_t number = before + static_cast<std::size_t>(controlling);
    if (number <= orders_->attached_count()) use_order(number);
}

void LocalTable::clear_orders() {
    require_open("clear orders");
    flush();
    use_order(0);
    scopes_.clear();
    orders_->detach_all();
}

std::optional<Refusal> LocalTable::add_orders(const std::string& file, int controlling) {
    require_open("add orders");
    flush();
    const std::size_t attached = orders_->attached_count();
    try {
        orders_->attach(file);
    } catch (const locks::Refused& refusal) {
        return refusal.refusal();
    } catch (const EngineFault& fault) {
        if (!is_damage(fault)) throw;
        return damaged(fault);
    }
    orders_->end_opening();
    if (orders_->attached_count() > attached) orders_attached(attached, controlling);
    return std::nullopt;
}

std::string_view LocalTable::order_name(std::size_t number) const {
    if (number == 0 || number > order_count()) return {};
    return orders_->attached(number).description().name;
}

std::vector<std::size_t> LocalTable::orders_of(const std::string& index_file) const {
    return orders_ ? orders_->numbers_of(index_file) : std::vector<std::size_t>();
}

OrderDescription LocalTable::order_description(std::size_t number) const {
    if (order_name(number).empty()) refuse_order(number, "order");
    const index::TagDescription& tag = orders_->attached(number).description();
    return {tag.name,   tag.key,       tag.condition,  tag.key_length,
            tag.unique, tag.candidate, tag.descending, tag.custom};
}

bool LocalTable::set_order(std::size_t number) {
    if (number > order_count()) return false;
    if (number != controlling_) use_order(number);
    return true;
}

bool LocalTable::seek(const Value& key, SeekMode mode, SeekEnd end) {
    const bool found = find(key, mode, end);
    moved();
    return found;
}

bool LocalTable::find(const Value& key, SeekMode mode, SeekEnd end) {
    require_open("seek");
    flush();
    forget_moment();
    if (controlling_ == 0) {
        throw EngineFault(FaultCode::kUnknownName, "seek",
                          file_->path() + ": no controlling order");
    }
    return reaching([&] { return find_from_root(key, mode, end); });
}

bool LocalTable::find_from_root(const Value& key, SeekMode mode, SeekEnd end) {
    const index::Order& order = orders_->attached(controlling_);
    const std::string wanted = index::seek_key(order.format, key);
    const bool too_long = order.format.form == index::KeyForm::kText &&
                          trim_right(key.text()).size() > order.format.text_length();
    index::IndexEntry& entry = found_;
    // Moves on to a visible entry that is not a left-over; without `any_key`, only to one with the
    // key.
    const auto settle = [&](bool any, bool forward, bool any_key) {
        while (any && (any_key || entry.key.compare(0, wanted.size(), wanted) == 0)) {
            if (place_at(entry) && order.agrees_with(entry, view())) return true;
            std::swap(from_, entry);
            any = neighbour(from_, entry, forward);
        }
        return false;
    };
    index::OrderWalk::Match match = walk().seek(wanted, end, entry);
    const bool has_key = match == index::OrderWalk::Match::kFound;
    if (has_key && !too_long && settle(true, end == SeekEnd::kFirst, false)) return true;
    if (mode == SeekMode::kSoft) {
        if (has_key) match = walk().seek(wanted, SeekEnd::kFirst, entry);
        if (settle(match != index::OrderWalk::Match::kNone, true, true)) return false;
    }
    place(0);
    return false;
}

std::optional<std::string> LocalTable::last_key(std::size_t order, const std::string& limit,
                                                Wait wait) {
    if (order == 0 || order > order_count()) refuse_order(order, "last key");
    constexpr RecordNumber kPastEveryRecord = std::numeric_limits<RecordNumber>::max();
    index::IndexEntry found;
    const int timeout_ms = wait == Wait::kShort ? locks::kTurn_ms : platform::kShortLockTimeout_ms;
    const bool any = reaching([&] {
        index::CdxTree& tag = *orders_->attached(order).tag;
        return tag.at_or_before(as_bytes(limit), kPastEveryRecord, found, timeout_ms);
    });
    return any ? std::optional(found.key) : std::nullopt;
}

Value LocalTable::scope(ScopeEnd end) const {
    if (controlling_ == 0) return {};
    const OrderScopes& scopes = scopes_[controlling_ - 1];
    return end == ScopeEnd::kTop ? scopes.top : scopes.bottom;
}

void LocalTable::set_scope(ScopeEnd end, const Value& value) {
    if (controlling_ == 0) return;
    std::optional<std::string> limit;
    if (!value.is_nil()) limit = index::seek_key(orders_->attached(controlling_).format, value);
    OrderScopes& scopes = scopes_[controlling_ - 1];
    const bool top = end == ScopeEnd::kTop;
    (top ? scopes.limits.top : scopes.limits.bottom) = std::move(limit);
    (top ? scopes.top : scopes.bottom) = value;
}

}  // namespace brenik::local
