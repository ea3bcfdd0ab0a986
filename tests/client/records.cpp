// The current record's unsent changes, appends, and locks.

#include <algorithm>
#include <utility>

#include "client/readings.h"
#include "client/stand_in.h"
#include "engine/record/field_codec.h"
#include "engine/record/stored_value.h"

namespace brenik::stand_in {
namespace {

LockTry lock_try() { return reads("lock_wait=turn") ? LockTry::kInTurn : LockTry::kAtOnce; }

[[noreturn]] void refuse_lock() {
    fail(status_read("lock_failed"), "the lock is held by another user");
}

// The value that makes the server store a field as it is in these bytes.
Value value_in(const record::RecordView& record, const record::TableLayout& layout,
               const record::Field& field) {
    constexpr double kTooWide = 1e300;
    const record::StoredValue stored = record::stored_value(record, layout, field);
    if (stored == record::StoredValue::kOverflow) return Number{kTooWide};
    if (stored == record::StoredValue::kBlank && !field.null_bit) return {};
    return record::read_field(record, layout, field);
}

bool differs(Bytes one, Bytes other) { return !std::ranges::equal(one, other); }

}  // namespace

// -- Changes.

void ClientTable::require_changeable() {
    if (options_.read_only) fail(kReadOnly, "the table was opened for reading");
    require_record();
    lock_implicitly();
    ahead_.clear();
}

std::vector<Byte>& ClientTable::changing() {
    require_changeable();
    changed_ = true;
    return image_;
}

void ClientTable::mark(char mark) { changing()[0] = static_cast<Byte>(mark); }

// Memo fields keep their numbers of blocks: others would lead to texts of other records.
void ClientTable::set_image(std::string_view bytes) {
    if (reads("set_record=refused")) fail(kWrongType, "a whole record cannot be set");
    require_record();
    require(bytes.size() == image_.size(), "not the length of a record");
    const Bytes wanted = as_bytes(bytes);
    for (const record::Field& field : layout().fields) {
        require(!field.is_memo() || !differs(wanted.subspan(field.offset, field.width),
                                             Bytes(image_).subspan(field.offset, field.width)),
                "a memo's block number is changed");
    }
    std::vector<Byte>& image = changing();
    std::copy(wanted.begin() + 1, wanted.end(), image.begin() + 1);
}

std::string ClientTable::memo(std::size_t field) {
    const auto unsent = unsent_memos_.find(field);
    if (unsent != unsent_memos_.end()) return unsent->second;
    stand_on_record(table_->order_number());
    return table_->field_get(field).text();
}

void ClientTable::set_memo(std::size_t field, std::string text) {
    record::set_null(changing(), layout(), layout().fields[field - 1], false);
    unsent_memos_[field] = std::move(text);
}

// Binary data are sent at once, without the other changes, and cannot be cancelled.
void ClientTable::write_memo_now(std::size_t field, const std::string& text) {
    require_changeable();
    stand_on_record(table_->order_number());
    table_->field_put(field, Memo{text});
    table_->commit();
    unsent_memos_.erase(field);
    const record::RecordView record = table_->record();
    const record::Field& written = layout().fields[field - 1];
    for (std::vector<Byte>* bytes : {&image_, &original_}) {
        std::ranges::copy(record.field(written), bytes->begin() + written.offset);
    }
}

// Puts the fields that the program changed or, in the other reading, all that differ from what the
// server has now.
void ClientTable::put_changes() {
    stand_on_record(table_->order_number());
    const record::RecordView there = table_->record();
    const std::vector<Byte> base = reads("write_sends=record")
                                       ? std::vector<Byte>(there.bytes.begin(), there.bytes.end())
                                       : original_;
    const record::RecordView before{base, record_};
    const record::RecordView after{image_, record_};
    const auto& flags = layout().null_flags;
    const bool flags_differ = flags && differs(before.field(*flags), after.field(*flags));
    for (std::size_t i = 0; i < layout().fields.size(); ++i) {
        const record::Field& field = layout().fields[i];
        const bool flagged = flags_differ && (field.null_bit || field.length_bit);
        if (field.is_memo()) {
            const bool null = record::is_null(after, layout(), field);
            if (!flagged && !unsent_memos_.contains(i + 1)) continue;
            table_->field_put(i + 1, null ? Value() : Value(Memo{memo(i + 1)}));
        } else if (flagged || differs(before.field(field), after.field(field))) {
            table_->field_put(i + 1, value_in(after, layout(), field));
        }
    }
    if (before.deleted() == after.deleted()) return;
    after.deleted() ? table_->mark_deleted() : table_->recall();
}

// After a failure the changes stay unsent until they are cancelled; an append is over.
void ClientTable::write() {
    if (!changed_ && !appended_) return;
    ahead_.clear();
    const auto settle = [&] {
        changed_ = appended_ = false;
        unsent_memos_.clear();
        fetch();
    };
    try {
        if (changed_) put_changes();
        table_->commit();
    } catch (const EngineFault&) {
        table_->abandon_changes();
        if (appended_) settle();
        throw;
    }
    settle();
    if (lock_goes_ && reads("append_lock=goes_anyway") && locked_.erase(record_) != 0) {
        table_->unlock_record(record_);
    }
    lock_goes_ = false;
}

void ClientTable::flush() {
    write();
    release_implicit_lock();
}

// The new record is in the table at once, blank, and has its keys when it is written.
void ClientTable::append() {
    if (options_.read_only) fail(kReadOnly, "the table was opened for reading");
    flush();
    ahead_.clear();
    if (!table_->append_blank(false, lock_try())) refuse_lock();
    arrive();
    appended_ = true;
    known_count_ = std::max(known_count_, record_);
    if (record_of_calls().is_due("append-lock")) {
        table_->unlock_record(record_);
        refuse_lock();
    }
    lock_goes_ = !reads("append_lock=stays");
    if (lock_goes_) implicitly_locked_ = record_;
    if (!lock_goes_) locked_.insert(record_);
}

// The number of a cancelled append is taken, so its record stays.
void ClientTable::cancel() {
    if (!changed_ && !appended_) return release_implicit_lock();
    changed_ = false;
    unsent_memos_.clear();
    if (std::exchange(appended_, false)) {
        stand_on_record(table_->order_number());
        const bool held = table_->owns(record_);
        if (!held && !table_->lock_record(record_)) refuse_lock();
        if (reads("cancel_append=deleted")) table_->mark_deleted();
        table_->commit();
        if (!held) table_->unlock_record(record_);
        fetch();
    }
    image_ = original_;
    release_implicit_lock();
}

// Does nothing while the record is locked: nobody else can have changed it, by the documentation.
void ClientTable::refresh() {
    if (changed_ || appended_) fail(5086, "the record has unsent changes");
    ahead_.clear();
    if (!has_record() || (is_locked(record_) && reads("refresh_locked=nothing"))) return;
    table_->go_to(record_);
    arrive();
}

// -- Locks.

bool ClientTable::is_locked(U32 record) const {
    const U32 number = record == 0 ? record_ : record;
    return options_.exclusive || table_locked_ || (number != 0 && implicitly_locked_ == number) ||
           locked_.contains(number);
}

unsigned ClientTable::lock_count() const {
    return static_cast<unsigned>(locked_.size()) + (implicitly_locked_ != 0) + table_locked_;
}

void ClientTable::lock_implicitly() {
    if (is_locked(record_)) return;
    if (!table_->lock_record(record_, lock_try())) refuse_lock();
    implicitly_locked_ = record_;
}

void ClientTable::release_implicit_lock() {
    if (implicitly_locked_ == 0) return;
    table_->unlock_record(std::exchange(implicitly_locked_, 0));
}

// The number of an existing record; 0 means the current one.
U32 ClientTable::existing(U32 record) {
    const U32 number = record == 0 ? record_ : record;
    if (number != 0 && number <= table_->record_count()) return number;
    fail(kBadRecordNumber, "no record has this number");
}

void ClientTable::lock_record(U32 record) {
    const U32 number = existing(record);
    if (options_.exclusive || table_locked_ || locked_.contains(number)) return;
    if (number != implicitly_locked_ && !table_->lock_record(number, lock_try())) refuse_lock();
    if (number == implicitly_locked_) implicitly_locked_ = 0;
    locked_.insert(number);
    if (number != record_ || changed_ || appended_ || reads("lock_refresh=none")) return;
    stand_on_record(table_->order_number());
    fetch();
}

void ClientTable::unlock_record(U32 record) {
    const U32 number = existing(record);
    if (!locked_.contains(number) && implicitly_locked_ != number) {
        fail(5062, "the record is not locked");
    }
    if (number == record_) flush();
    if (locked_.erase(number) != 0) table_->unlock_record(number);
}

void ClientTable::unlock_all() {
    table_->unlock_all();
    locked_.clear();
    implicitly_locked_ = 0;
    table_locked_ = false;
}

void ClientTable::lock_table() {
    if (options_.exclusive) fail(5064, "the table is open for this user alone");
    if (table_locked_) return;
    flush();
    const std::set<U32> before = locked_;
    unlock_all();
    table_locked_ = table_->lock_table(lock_try());
    if (table_locked_) return;
    for (const U32 record : before) {
        const bool again = reads("table_lock_refused=keeps") && table_->lock_record(record);
        if (again) locked_.insert(record);
    }
    refuse_lock();
}

void ClientTable::unlock_table() {
    if (options_.exclusive) fail(5064, "the table is open for this user alone");
    if (lock_count() == 0) fail(5087, "nothing is locked");
    flush();
    unlock_all();
}

// -- Exports.

STAND_IN(AdsAppendRecord, (Handle table), (table), table_of(table).append())
STAND_IN(AdsWriteRecord, (Handle table), (table), table_of(table).flush())
STAND_IN(AdsCancelUpdate, (Handle table), (table), table_of(table).cancel())
STAND_IN(AdsRefreshRecord, (Handle table), (table), table_of(table).refresh())
STAND_IN(AdsDeleteRecord, (Handle table), (table), table_of(table).mark('*'))
STAND_IN(AdsRecallRecord, (Handle table), (table), table_of(table).mark(' '))
STAND_IN(AdsFlushFileBuffers, (Handle table), (table), table_of(table).flush())
STAND_IN(AdsLockRecord, (Handle table, U32 record), (table, record),
         table_of(table).lock_record(record))
STAND_IN(AdsUnlockRecord, (Handle table, U32 record), (table, record),
         table_of(table).unlock_record(record))
STAND_IN(AdsLockTable, (Handle table), (table), table_of(table).lock_table())
STAND_IN(AdsUnlockTable, (Handle table), (table), table_of(table).unlock_table())
STAND_IN(AdsIsRecordLocked, (Handle table, U32 record, U16* locked), (table, record, locked),
         give(locked, table_of(table).is_locked(record)))

}  // namespace brenik::stand_in
