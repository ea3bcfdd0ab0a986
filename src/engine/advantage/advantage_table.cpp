// Opening, the record buffer, locks and appends.

#include "engine/advantage/advantage_table.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "engine/advantage/assumptions.h"
#include "engine/record/code_page.h"
#include "engine/record/dbf_file.h"
#include "engine/record/field_codec.h"
#include "engine/record/memo_format.h"
#include "engine/record/table_path.h"
#include "platform/file.h"
#include "util/runtime.h"

namespace brenik::advantage {
namespace {

// Longer memo texts are read again rather than cached.
constexpr std::size_t kLongestKnown = 1 << 16;
constexpr int kUnlockTries = 2;

// The letters of a table's header for the client's field types.
constexpr std::pair<U16, char> kLetters[] = {
    {kLogicalField, 'L'}, {kNumericField, 'N'},   {kDateField, 'D'},    {kStringField, 'C'},
    {kMemoField, 'M'},    {kDoubleField, 'B'},    {kIntegerField, 'I'}, {kAutoincrementField, 'I'},
    {kMoneyField, 'Y'},   {kTimestampField, 'T'}, {kCurrencyField, 'Y'}};

FieldDescription describe(const record::Field& field) {
    return {field.name, field.type, static_cast<int>(field.width), static_cast<int>(field.decimals),
            field.kind->value};
}

bool is_oem(const record::TableLayout& layout) {
    const auto page = record::code_page_of_mark(layout.code_page);
    return page && record::is_dos_code_page(*page);
}

}  // namespace

// -- Opening.

// Empty if the server keeps others from reading the file. Reading it excludes nobody: whether the
// table can be opened is for the client to say.
std::optional<record::TableLayout> AdvantageTable::layout_in_header(const std::string& path) {
    const platform::File file = platform::File::open(path, platform::OpenMode::kSettings);
    if (!file.is_open()) return std::nullopt;
    return record::parse_layout(record::read_header(file), path);
}

OpenAnswer AdvantageTable::open(AdvantageEngine& engine, const std::string& path,
                                TableSharing sharing, int controlling) {
    const std::string file = platform::system_path(record::table_path(path));
    std::optional<record::TableLayout> layout = layout_in_header(file);
    const bool oem = layout && is_oem(*layout);
    bool later = layout && layout->is_later_generation();
    const auto open_as = [&] {
        return engine.open_handle(file, sharing, oem ? kOem : kAnsi, later ? kVfpTable : kCdxTable);
    };
    auto answer = open_as();
    if (const auto* refusal = std::get_if<Refusal>(&answer);
        refusal && !layout && refusal->reason == RefusalReason::kDamaged) {
        later = true;  // or so the header would have said
        answer = open_as();
    }
    if (const auto* refusal = std::get_if<Refusal>(&answer)) return *refusal;
    auto table = std::unique_ptr<AdvantageTable>(new AdvantageTable(engine, file, sharing));
    table->layout_.version = later ? record::kLater : record::kPlain;
    table->prepare(std::get<Handle>(answer), std::move(layout), oem, controlling);
    return table;
}

void AdvantageTable::prepare(Handle handle, std::optional<record::TableLayout> layout, bool oem,
                             int controlling) {
    handle_ = handle;
    engine_.enlist(*this);
    layout_ = layout ? std::move(*layout) : layout_of_client();
    for (const record::Field& field : layout_.fields) descriptions_.push_back(describe(field));
    bytes_.resize(layout_.record_length);
    cursor_.emplace(engine_, handle_, path_, layout_.record_length);
    fields_.emplace(*cursor_, handle_, path_, layout_, oem);
    orders_.emplace(engine_, handle_, path_, layout_, oem);
    if (const auto reason = contradiction()) {
        throw EngineFault(FaultCode::kDamagedFile, "open", path_ + ": " + *reason);
    }
    orders_->attach_structural();
    orders_attached(0, controlling);
    go_top();
}

// What the header would say, as far as the client knows it.
record::TableLayout AdvantageTable::layout_of_client() {
    record::TableLayout layout;
    layout.version = layout_.version;
    U16 count = 0;
    const auto need = [&](Status status) { engine_.require(status, "open", path_, handle_); };
    need(client().AdsGetNumFields(handle_, &count));
    for (U16 number = 1; number <= count; ++number) {
        record::Field& field = layout.fields.emplace_back();
        char name[128] = {};
        U16 size = sizeof name;
        need(client().AdsGetFieldName(handle_, number, name, &size));
        field.name = upper(name);
        U16 type = 0, decimals = 0;
        U32 width = 0;
        need(client().AdsGetFieldType(handle_, name, &type));
        need(client().AdsGetFieldLength(handle_, name, &width));
        need(client().AdsGetFieldDecimals(handle_, name, &decimals));
        const auto* letter = std::ranges::find(kLetters, type, &std::pair<U16, char>::first);
        if (letter == std::end(kLetters)) {
            throw EngineFault(FaultCode::kUnsupported, "open",
                              path_ + ": field " + field.name + " has type " +
                                  std::to_string(type) + " in the server's library");
        }
        field.type = letter->second;
        field.width = width;
        field.decimals = decimals;
    }
    for (record::Field& field : layout.fields) {
        if (field.type == 'M') field.width = layout.is_later_generation() ? 4 : 10;
    }
    record::make_header(layout, {1980, 1, 1});
    return layout;
}

// How the client's view of the fields contradicts the header, if it does.
std::optional<std::string> AdvantageTable::contradiction() {
    U16 count = 0;
    require(client().AdsGetNumFields(handle_, &count), "open");
    if (count < layout_.fields.size()) {
        return "the server's library knows " + counted(count, "field") + " of " +
               std::to_string(layout_.fields.size());
    }
    for (std::size_t i = 0; i < layout_.fields.size(); ++i) {
        const record::Field& field = layout_.fields[i];
        char name[128] = {};
        U16 size = sizeof name;
        require(client().AdsGetFieldName(handle_, static_cast<U16>(i + 1), name, &size), "open");
        if (!equal_ignoring_case(name, field.name)) {
            return "field " + std::to_string(i + 1) + " is " + field.name + " in the header, but " +
                   name + " in the server's library";
        }
        if (field.kind->form != record::FieldForm::kText) continue;
        U32 width = 0;
        require(client().AdsGetFieldLength(handle_, name, &width), "open");
        if (width != field.width) {
            return "field " + field.name + " is " + std::to_string(field.width) +
                   " wide in the header, but " + std::to_string(width) + " in the server's library";
        }
    }
    return std::nullopt;
}

AdvantageTable::~AdvantageTable() {
    try {
        shut();
    } catch (const std::exception&) {
        // A caller that needs to know of a failed last write commits before closing.
    }
}

Status AdvantageTable::flush_status() {
    try {
        flush();
        return 0;
    } catch (const EngineFault& fault) {
        if (fault.status() == 0) throw;
        return static_cast<Status>(fault.status());
    }
}

Status AdvantageTable::shut() {
    if (handle_ == 0) return 0;
    Status status = 0;
    std::exception_ptr fault;
    try {
        status = flush_status();
    } catch (const std::exception&) {
        fault = std::current_exception();
    }
    if (handle_ != 0) {
        engine_.dismiss(*this);
        const Status closed = engine_.close_handle(std::exchange(handle_, Handle{0}));
        if (status == 0) status = closed;
    }
    place(0);
    filter_ = {};
    servers_filter_.clear();
    follower_ = {};
    controlling_ = 0;
    table_locked_ = false;
    locks_.clear();
    orders_.reset();
    if (fault) std::rethrow_exception(fault);
    return status;
}

void AdvantageTable::lose() noexcept {
    handle_ = 0;
    if (cursor_) cursor_->forget_table();
    lost_ = true;
    table_locked_ = false;
    locks_.clear();
}

bool AdvantageTable::is_open() const {
    if (!lost_) return handle_ != 0;
    throw EngineFault(FaultCode::kInputOutput, "use",
                      path_ + ": the connection to the database is lost: start the session again");
}

void AdvantageTable::require_open(const char* operation) const {
    if (!is_open()) throw EngineFault(FaultCode::kEmptyWorkArea, operation, "the table is closed");
}

// -- The record buffer.

RecordNumber AdvantageTable::record_count() {
    if (!is_open()) return 0;
    U32 count = 0;
    require(client().AdsGetRecordCount(handle_, kIgnoreFilters | kRefreshCount, &count), "count");
    // The client may not count a record yet that it has not written.
    return appended_ ? std::max(count, record_) : count;
}

void AdvantageTable::require_at(RecordNumber record, const char* operation) {
    if (cursor_->go_to(record)) return;
    if (!servers_filter_.empty()) {
        filter_at_server({});  // it may keep the client from the record
        if (cursor_->go_to(record)) return;
    }
    throw EngineFault(FaultCode::kInputOutput, operation,
                      path_ + ": record " + std::to_string(record) + " is gone");
}

record::RecordView AdvantageTable::view() {
    if (!loaded_) {
        if (record_ == 0) {
            bytes_.resize(layout_.record_length);
            record::make_blank_record(bytes_, layout_);
        } else if (is_open()) {
            require_at(record_, "read");
            const Bytes there = cursor_->record().bytes;
            bytes_.assign(there.begin(), there.end());
        }
        loaded_ = true;
    }
    return {bytes_, record_};
}

void AdvantageTable::forget_record() {
    loaded_ = changed_ = begun_ = appended_ = unwritten_ = false;
    pending_memos_.clear();
    known_memos_.clear();
}

void AdvantageTable::place(RecordNumber record) {
    forget_record();
    record_ = record;
    at_beginning_ = false;
}

// Drops the buffered record; the next access has the client read it again.
void AdvantageTable::forget_reading() {
    if (appended_ || begun_) return;  // nobody else can have changed it
    forget_record();
    if (cursor_) cursor_->doubt_record(owns(record_));
}

int AdvantageTable::refresh_record() {
    forget_reading();
    try {
        if (handle_ != 0 || lost_) view();
        return 0;
    } catch (const EngineFault& fault) {
        loaded_ = false;
        return fault.status() != 0 ? fault.status() : static_cast<int>(fault.code());
    }
}

const record::Field& AdvantageTable::field_at(std::size_t position, const char* operation) const {
    require_open(operation);
    if (position == 0 || position > layout_.fields.size()) {
        throw EngineFault(FaultCode::kUnknownName, operation,
                          path_ + ": no field at position " + std::to_string(position));
    }
    return layout_.fields[position - 1];
}

std::string AdvantageTable::memo_text(const record::Field& field) {
    if (const auto pending = pending_memos_.find(&field); pending != pending_memos_.end()) {
        return pending->second;
    }
    const record::MemoPointer pointer = record::read_memo_pointer(view(), field);
    if (record_ == 0 || (pointer.is_number && pointer.block == 0)) return {};
    const bool owned = owns(record_);
    if (const auto known = known_memos_.find(&field); owned && known != known_memos_.end()) {
        return known->second;
    }
    require_at(record_, "field get");
    std::string text = fields_->memo(field);
    // While the record is locked, nobody else changes the text, and field_put() compares it with
    // the new one.
    if (owned && text.size() <= kLongestKnown) known_memos_[&field] = text;
    return text;
}

Value AdvantageTable::field_get(std::size_t position) {
    const record::Field& field = field_at(position, "field get");
    if (!field.is_memo()) return record::read_field(view(), layout_, field);
    if (record::is_null(view(), layout_, field)) return {};
    return Memo{memo_text(field)};
}

bool AdvantageTable::field_equals(std::size_t position, const Value& value) {
    const record::Field& field = field_at(position, "field get");
    if (field.is_memo()) return field_get(position).exactly_equals(value);
    return record::holds_value(view(), layout_, field, value);
}

void AdvantageTable::require_writable(const char* operation) {
    require_open(operation);
    if (!begun_ && (record_ == 0 || !owns(record_))) {
        throw EngineFault(FaultCode::kNotLocked, operation,
                          path_ + ": record " + std::to_string(record_number()) +
                              " is not locked by this session");
    }
    view();
}

void AdvantageTable::field_put(std::size_t position, const Value& value) {
    const record::Field& field = field_at(position, "field put");
    require_writable("field put");
    if (field.is_autoincrement()) return;  // the engine's own column
    if (!field.is_memo()) {
        if (record::says_already(view(), layout_, field, value)) return;
        next_ = bytes_;  // a refused value leaves the record as it was
        record::write_field(next_, layout_, field, value);
        changed_ = changed_ || next_ != bytes_;
        bytes_.swap(next_);
        return;
    }
    if (!value.is_nil() && !value.is_text()) {
        throw EngineFault(FaultCode::kUnsuitableValue, "field put",
                          "field " + field.name + ": a memo takes text");
    }
    if (field.null_bit && record::is_null(view(), layout_, field) != value.is_nil()) {
        record::set_null(bytes_, layout_, field, value.is_nil());
        changed_ = true;
    }
    if (value.text() == memo_text(field)) return;
    pending_memos_[&field] = value.text();
    changed_ = true;
}

void AdvantageTable::set_deletion_mark(char mark) {
    require_writable(mark == '*' ? "delete" : "recall");
    if (bytes_[0] == static_cast<Byte>(mark)) return;
    bytes_[0] = static_cast<Byte>(mark);
    changed_ = true;
}

void AdvantageTable::flush() {
    if (begun_) return;
    if (changed_ || unwritten_) {
        require_open("write");
        write_changes();
    }
    appended_ = false;
}

void AdvantageTable::write_changes() {
    require_at(record_, "write");
    try {
        if (changed_) fields_->send(bytes_, pending_memos_);
        require(client().AdsWriteRecord(handle_), "write");
    } catch (const EngineFault& fault) {
        cancel();
        tell_duplicate(fault, record_);
        throw;
    }
    loaded_ = holds_written();
    pending_memos_.clear();
    known_memos_.clear();
    const bool was_appended = std::exchange(appended_, false);
    changed_ = unwritten_ = false;
    cursor_->doubt_place();
    engine_.keep_durable(handle_, path_);
    if (was_appended) static_cast<void>(keep_lock(record_));
}

// After a write: true if the buffer is the record, with its new pointers to memos and the numbers
// that the client counts up. If they cannot be read now, the write is done all the same.
bool AdvantageTable::holds_written() noexcept {
    const auto is_counted_up = [](const record::Field& field) { return field.is_autoincrement(); };
    if (pending_memos_.empty() && std::ranges::none_of(layout_.fields, is_counted_up)) return true;
    try {
        const Bytes there = cursor_->image();
        bytes_.assign(there.begin(), there.end());
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

void AdvantageTable::cancel() noexcept {
    try {
        if (handle_ == 0) return;
        cursor_->lose_place();
        static_cast<void>(client().AdsCancelUpdate(handle_));
    } catch (const std::exception&) {
        // The fault that led here is the one that counts.
    }
}

// Throws kDuplicateKey instead if the write of the buffer to `record` was refused for that.
void AdvantageTable::tell_duplicate(const EngineFault& fault, RecordNumber record) {
    const bool by_client = handle_ != 0 && fault.code() == FaultCode::kInputOutput;
    if (!by_client || fault.status() == 0 || !has_duplicate_key(record)) return;
    throw EngineFault(FaultCode::kDuplicateKey, "write",
                      std::string(fault.what()) + "; another record has its key", fault.status());
}

// The client does not say which order refuses a second record of a key. So a refused change counts
// as such a record if it gives the record a new key in some order that exactly one other record
// has.
bool AdvantageTable::has_duplicate_key(RecordNumber record) {
    const record::RecordView refused{bytes_, record};
    try {
        const Unfiltered all_records(*this);
        std::vector<Byte> before;
        if (cursor_->go_to(record)) {
            const Bytes stored = cursor_->record().bytes;
            before.assign(stored.begin(), stored.end());
        }
        for (const auto& order : orders_->all()) {
            if (!order->key.takes(refused)) continue;
            const KeyValue key = order->key.of(refused);
            const bool is_new = before.empty() || !order->key.takes({before, record}) ||
                                OrderKey::compare(order->key.of({before, record}), key) != 0;
            if (!is_new) continue;
            ClientWalk others = walk(*order);
            int count = 0;
            for (bool any = others.at_or_after(key); any && count < 2 && others.place(key) == 0;
                 any = others.step(true)) {
                count += cursor_->at() != record;
            }
            if (count == 1) return true;
        }
    } catch (const EngineFault&) {
        // The refusal itself is told.
    }
    return false;
}

// A record that was just appended is in the file already, blank.
void AdvantageTable::abandon_changes() noexcept {
    if (!appended_ || handle_ == 0) return forget_record();
    const RecordNumber record = record_;
    cancel();
    try {
        empty_out(record);
    } catch (const std::exception&) {
        // It stays in the file as it was appended: blank.
    }
    forget_record();
}

// -- Locks.

// A refusal is the client's status for it, or any other with which the table still answers, unless
// it tells of damage.
bool AdvantageTable::was_refused(Status status, const char* operation) {
    if (status == 0) return false;
    if (tells_damage(status)) require(status, operation);
    if (status != kLockFailed && !engine_.answers(handle_)) require(status, operation);
    return true;
}

// A status that is not known as a refusal may hide a lock that was acquired all the same.
bool AdvantageTable::lock_at_client(RecordNumber record) {
    const Status status = client().AdsLockRecord(handle_, record);
    const bool refused = was_refused(status, "lock");
    if (refused && (status == kLockFailed || !is_locked_at_client(record))) return false;
    locks_.insert(record);
    return true;
}

bool AdvantageTable::is_locked_at_client(RecordNumber record) {
    U16 locked = 0;
    return client().AdsIsRecordLocked(handle_, record, &locked) == 0 && locked != 0;
}

// After something that may have cost the lock of a record: acquires it again.
bool AdvantageTable::keep_lock(RecordNumber record) {
    if (owns_all() || is_locked_at_client(record)) return true;
    if (!lock_at_client(record)) {
        locks_.erase(record);
        return false;
    }
    if (record == record_) forget_reading();  // others may have changed it meanwhile
    return true;
}

bool AdvantageTable::lock_record(RecordNumber record, LockTry) {
    require_open("lock record");
    const bool is_known = record == record_ || locks_.contains(record);
    if (record == 0 || (!is_known && record > record_count())) return false;
    if (owns(record)) return true;
    if (!lock_at_client(record)) return false;
    // What was read before the lock may be out of date.
    if (cursor_->at() == record) cursor_->doubt_record(true);
    if (record == record_) forget_reading();
    return true;
}

// The client gives up the record locks for the try, and does not acquire them again.
bool AdvantageTable::lock_table(LockTry) {
    require_open("lock file");
    flush();
    if (owns_all()) return true;
    const Status status = client().AdsLockTable(handle_);
    table_locked_ = !was_refused(status, "lock file");
    // A status that is not known as a refusal may hide a lock that was acquired all the same.
    if (!table_locked_ && status != kLockFailed) {
        static_cast<void>(client().AdsUnlockTable(handle_));
    }
    const std::set<RecordNumber> held = std::exchange(locks_, {});
    for (const RecordNumber record : held) {
        if (!table_locked_ && keep_lock(record)) locks_.insert(record);
    }
    forget_record();  // even if refused: the record's lock may have been given up for a moment
    cursor_->doubt_record(true);
    return table_locked_;
}

void AdvantageTable::unlock_record(RecordNumber record) {
    if (handle_ == 0 && !lost_) return;
    if (record == record_) flush();
    if (locks_.erase(record) != 0) unlock_at_client(record);
}

// What fails here is mostly a lock that is gone already, or a connection, and its locks with it. A
// lock that stays would stop the office: then the handle is closed, and its locks go with it.
void AdvantageTable::unlock_at_client(RecordNumber record) {
    for (int tries = 0; tries < kUnlockTries; ++tries) {
        if (client().AdsUnlockRecord(handle_, record) == 0 || !is_locked_at_client(record)) return;
    }
    give_up();
}

void AdvantageTable::give_up() noexcept {
    const Handle handle = handle_;
    engine_.dismiss(*this);
    lose();
    static_cast<void>(engine_.close_handle(handle));
}

void AdvantageTable::unlock_all() {
    if (handle_ == 0 && !lost_) return;
    flush();
    release_locks();
}

void AdvantageTable::release_locks() {
    if (!table_locked_ && locks_.empty()) return;
    const std::set<RecordNumber> held = std::exchange(locks_, {});
    const bool table = std::exchange(table_locked_, false);
    for (int tries = 0; tries < kUnlockTries; ++tries) {
        if (client().AdsUnlockTable(handle_) == 0) return;
    }
    if (table) return give_up();
    for (const RecordNumber record : held) {
        if (handle_ != 0) unlock_at_client(record);
    }
}

// -- Appends.

bool AdvantageTable::is_blank(Bytes bytes) const {
    std::vector<Byte> blank(layout_.record_length);
    record::make_blank_record(blank, layout_);
    for (const record::Field& field : layout_.fields) {
        if (!field.is_autoincrement()) continue;
        std::ranges::copy(bytes.subspan(field.offset, field.width), blank.begin() + field.offset);
    }
    return std::ranges::equal(bytes.subspan(1), Bytes(blank).subspan(1));
}

// Makes a record that must not stay blank and marked deleted, and writes it.
void AdvantageTable::empty_out(RecordNumber record) {
    if (!cursor_->go_to(record)) return;
    const record::RecordView there = cursor_->record();
    if (there.deleted() && is_blank(there.bytes)) return;
    std::vector<Byte> blank(layout_.record_length);
    record::make_blank_record(blank, layout_);
    blank[0] = '*';
    PendingMemos memos;
    for (const record::Field& field : layout_.fields) {
        if (field.is_memo()) memos[&field] = {};
    }
    fields_->send(blank, memos);
    require(client().AdsWriteRecord(handle_), "write");
    cursor_->doubt_place();
}

// A record that a refused append has left, locked for another try. 0: still kept by others, so the
// append would be refused again. Nothing: there is none.
std::optional<RecordNumber> AdvantageTable::left_over_record() {
    const RecordNumber record = std::exchange(left_over_, 0);
    if (record == 0) return std::nullopt;
    const bool held = owns(record);
    const bool locked = held || lock_at_client(record);
    cursor_->lose_place();
    if (cursor_->go_to(record) && is_blank(cursor_->record().bytes)) {
        if (!locked) left_over_ = record;
        return locked ? record : 0;
    }
    if (locked && !held) unlock_record(record);  // somebody uses it
    return std::nullopt;
}

// Under a table lock of another user, every record lock is refused. If a lock is to be had, a
// status that is not known as a refusal is a failure that no other try mends.
bool AdvantageTable::append_was_refused(Status status) {
    if (!was_refused(status, "append")) return false;
    if (status == kLockFailed) return true;
    try {
        require(status, "append");
    } catch (const EngineFault&) {
        const RecordNumber probe = record_count();
        const bool held = probe == 0 || owns(probe);
        if (!held && !lock_at_client(probe)) return true;
        if (!held) unlock_record(probe);
        throw;
    }
    return true;
}

// Appends at the client. Returns the number of the record, which is blank and locked and where the
// client stands; 0 if a lock was refused.
RecordNumber AdvantageTable::new_record() {
    if (const auto record = left_over_record()) return *record;
    const RecordNumber before = record_count();
    cursor_->lose_place();
    RecordNumber record = 0;
    try {
        if (!append_was_refused(client().AdsAppendRecord(handle_))) {
            require(client().AdsGetRecordNum(handle_, kIgnoreFilters, &record), "append");
            if (owns_all() || lock_at_client(record)) {
                cursor_->appended(record);
                return record;
            }
        }
    } catch (const EngineFault&) {
        cancel_append(before, record);
        throw;
    }
    cancel_append(before, record);
    return 0;
}

// The record on which the client stands after an append, if it was not there `before`. At the end
// of the table it stands on none, whatever number it tells.
RecordNumber AdvantageTable::appended_since(RecordNumber before) {
    U16 at_end = 0;
    U32 record = 0;
    const bool told = client().AdsAtEOF(handle_, &at_end) == 0 && at_end == 0 &&
                      client().AdsGetRecordNum(handle_, kIgnoreFilters, &record) == 0;
    return told && record > before ? record : 0;
}

// Leaves no live record of an append that did not succeed: blanks it and marks it deleted, for the
// next append. Others append, too: a record that was not locked here all the time is touched only
// if it is blank. `record` is 0 if the client told no number yet.
void AdvantageTable::cancel_append(RecordNumber before, RecordNumber record) noexcept {
    try {
        if (handle_ == 0) return;
        if (record == 0) record = appended_since(before);
        const bool kept = record != 0 && owns(record);
        cancel();
        if (record == 0 || record > record_count()) return;
        const bool locked = kept || lock_at_client(record);
        if (cursor_->go_to(record) && (kept || is_blank(cursor_->record().bytes))) {
            left_over_ = record;
            if (locked) empty_out(record);
        }
        if (locked) unlock_record(record);
    } catch (const std::exception&) {
        // The next append looks after it.
    }
}

// Makes the added record current; the buffer holds it if `loaded`.
void AdvantageTable::placed_at_added(RecordNumber record, bool loaded) {
    place(record);
    loaded_ = loaded;
}

bool AdvantageTable::append_blank(bool release_other_locks, LockTry) {
    require_open("append");
    flush();
    if (release_other_locks) release_locks();
    const RecordNumber record = new_record();
    if (record == 0) return false;
    std::vector<Byte> blank;
    bool written = false;
    try {
        const record::RecordView there = cursor_->record();
        blank.assign(there.bytes.begin(), there.bytes.end());
        blank[0] = ' ';
        if (there.deleted()) require(client().AdsRecallRecord(handle_), "append");
        // An order that refuses a second blank key does not refuse the record with its values.
        const Status status = client().AdsWriteRecord(handle_);
        written = status == 0;
        if (!written && !engine_.answers(handle_)) require(status, "append");
        if (written) engine_.keep_durable(handle_, path_);
    } catch (const EngineFault&) {
        cancel_append(record - 1, record);
        throw;
    }
    if (written && !keep_lock(record)) {
        cancel_append(record - 1, record);
        return false;
    }
    placed_at_added(record, true);
    bytes_ = std::move(blank);
    appended_ = true;
    unwritten_ = !written;
    moved();
    return true;
}

void AdvantageTable::begin_record() {
    move_to(0);
    require_open("append");
    view();
    begun_ = true;
    moved();
}

// The client tells nothing of a file that is full or gone before it writes.
void AdvantageTable::require_place() {
    require_open("write");
    static_cast<void>(record_count());
}

bool AdvantageTable::is_taken(std::size_t order) {
    if (order > order_count()) refuse_order(order, "append");
    const ClientOrder& distinct = orders_->attached(order);
    const record::RecordView begun{bytes_, 0};
    if (!distinct.key.takes(begun)) return false;
    const KeyValue key = distinct.key.of(begun);
    const Unfiltered all_records(*this);
    ClientWalk others = walk(distinct);
    return others.at_or_after(key) && others.place(key) == 0;
}

Table::Added AdvantageTable::add_record(LockTry, std::size_t distinct, Leave leave) {
    require_open("append");
    if (!begun_) {
        throw EngineFault(FaultCode::kNotLocked, "append", path_ + ": no record was begun");
    }
    if (distinct != 0 && is_taken(distinct)) return Added::kTaken;
    const RecordNumber record = new_record();
    if (record == 0) return Added::kRefused;
    try {
        fields_->send(bytes_, pending_memos_);
        require(client().AdsWriteRecord(handle_), "append");
        engine_.keep_durable(handle_, path_);
    } catch (const EngineFault& fault) {
        cancel_append(record - 1, record);
        tell_duplicate(fault, record);
        throw;
    }
    const bool loaded = holds_written();
    cursor_->doubt_place();
    placed_at_added(record, loaded);
    if (leave == Leave::kUnlocked) {
        unlock_record(record);
    } else {
        static_cast<void>(keep_lock(record));  // without it, the next change is refused
    }
    moved();
    return Added::kDone;
}

// -- Orders.

void AdvantageTable::clear_orders() {
    require_open("clear orders");
    flush();
    controlling_ = 0;
    orders_->detach_all();
}

std::optional<Refusal> AdvantageTable::add_orders(const std::string& file, int controlling) {
    require_open("add orders");
    flush();
    const std::size_t attached = orders_->attached_count();
    if (auto refusal = orders_->attach(file)) return refusal;
    if (orders_->attached_count() > attached) orders_attached(attached, controlling);
    return std::nullopt;
}

// Makes one of the orders controlling that were attached after the first `before` ones.
void AdvantageTable::orders_attached(std::size_t before, int controlling) {
    if (controlling <= 0) return;
    const std::size_t number = before + static_cast<std::size_t>(controlling);
    if (number <= order_count()) controlling_ = number;
}

std::string_view AdvantageTable::order_name(std::size_t number) const {
    if (number == 0 || number > order_count()) return {};
    return orders_->attached(number).description.name;
}

std::vector<std::size_t> AdvantageTable::orders_of(const std::string& index_file) const {
    return orders_ ? orders_->numbers_of(index_file) : std::vector<std::size_t>();
}

void AdvantageTable::refuse_order(std::size_t order, const char* operation) const {
    throw EngineFault(FaultCode::kUnknownName, operation,
                      path_ + ": no order number " + std::to_string(order));
}

OrderDescription AdvantageTable::order_description(std::size_t number) const {
    if (order_name(number).empty()) refuse_order(number, "order");
    return orders_->attached(number).description;
}

bool AdvantageTable::set_order(std::size_t number) {
    if (number > order_count()) return false;
    controlling_ = number;
    return true;
}

Value AdvantageTable::scope(ScopeEnd end) const {
    if (controlling_ == 0) return {};
    const ClientOrder& order = orders_->attached(controlling_);
    return end == ScopeEnd::kTop ? order.top : order.bottom;
}

void AdvantageTable::set_scope(ScopeEnd end, const Value& value) {
    if (controlling_ == 0) return;
    ClientOrder& order = controlling();
    std::optional<KeyValue> limit;
    if (!value.is_nil()) limit = order.key.sought(value);
    const bool top = end == ScopeEnd::kTop;
    (top ? order.top_limit : order.bottom_limit) = std::move(limit);
    (top ? order.top : order.bottom) = value;
}

}  // namespace brenik::advantage
