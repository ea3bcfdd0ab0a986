// Finds, appends and changes entries of the change journal.

#include "RSData/journal.h"

#include "RSData/stamps.h"
#include "RSData/system_record.h"
#include "c_source/Misc.h"
#include "c_source/MiscFW.h"
#include "c_source/retries.h"
#include "fwp/fault_file.h"
#include "fwp/trace_log.h"
#include "practice/journal_entry.h"
#include "util/runtime.h"

#include <algorithm>

namespace brenik {

namespace {

constexpr double kEntryLockPause_s = 0.1;

struct EntryKey {
    std::string table_code;
    std::string identifier;
    std::string kind;
};

int journal_area(const Session& session) {
    const int area = session.areas.area_of(practice::kJournal.alias);
    if (area != 0) return area;
    throw EngineFault(FaultCode::kEmptyWorkArea, "TRANS", "the change journal is not open");
}

Table& journal(Session& session) { return session.areas.table(journal_area(session), "TRANS"); }

// Other workstations change the settings of the system table at any time. While this session holds
// the record, its settings are current, and reading it again would drop changes of this session.
void reread_settings(Session& session) {
    const SystemRecord settings(session);
    Table& system = session.areas.table(kSystemArea, "ADSREFRESHRECORD");
    if (!system.owns(system.record_number())) system.refresh_record();
}

bool tracking(Session& session) {
    const SystemRecord settings(session);
    return session.areas.field(kSystemArea, practice::kTracksField).logical();
}

// A record without an identifier field has an empty identifier, so it cannot be tracked.
std::string current_identifier(Session& session) {
    WorkAreas& areas = session.areas;
    if (areas.field_position(practice::kIdentifierField) == 0) return {};
    return areas.field(areas.current(), practice::kIdentifierField).text();
}

std::string current_workstation(Session& session) {
    const SystemRecord settings(session);
    return session.areas.field(kSystemArea, practice::kPrefixField).text();
}

bool is_entry(WorkAreas& areas, int area, const EntryKey& key) {
    return areas.field(area, practice::kTableCodeField).text() == key.table_code &&
           areas.field(area, practice::kIdentifierField).text() == key.identifier &&
           areas.field(area, practice::kKindField).text() == key.kind;
}

// Makes the entry the journal's current record; the phantom record if there is none. Pads the
// identifier to the journal's own width, as in the index.
bool find_entry(Session& session, EntryKey key) {
    const int area = journal_area(session);
    Table& trans = session.areas.table(area, "TRANS");
    const std::size_t position = session.areas.field_position(area, practice::kIdentifierField);
    if (position != 0) {
        const int width = trans.fields()[position - 1].width;
        key.identifier = pad_right(key.identifier, static_cast<std::size_t>(width));
    }
    const std::string text = key.table_code + key.identifier + key.kind;
    if (!trans.seek(text, SeekMode::kHard, SeekEnd::kFirst)) return false;
    while (!trans.end_of_file() && is_entry(session.areas, area, key)) {
        if (!trans.deleted()) return true;
        trans.skip(1);
    }
    trans.go_to(0);
    return false;
}

// An addition has no data.
void put_entry(Session& session, const EntryKey& key, const std::string& stamp,
               const std::optional<std::string>& data = {}) {
    const int area = journal_area(session);
    const auto put = [&](std::string_view field, const std::string& text) {
        session.areas.set_field(area, field, text);
    };
    put(practice::kKindField, key.kind);
    put(practice::kTableCodeField, key.table_code);
    put(practice::kStampField, stamp);
    put(practice::kIdentifierField, key.identifier);
    if (data) put(practice::kDataField, *data);
}

// Begins a new entry; put_entry() fills it.
void begin_entry(Session& session) { journal(session).begin_record(); }

// Pauses are short, because a busy journal may be free for moments only.
bool add_entry(Session& session, std::string_view routine, Patience patience) {
    constexpr int kPause_ms = 100;
    Table& trans = journal(session);
    const auto added = [&](LockTry attempt) {
        return trans.add_record(attempt, 0, Table::Leave::kUnlocked) == Table::Added::kDone;
    };
    if (added(LockTry::kAtOnce)) return true;
    const double start = session.clock.seconds();
    const auto waited = [&] { return session.clock.seconds() - start; };  // negative after midnight
    while (patience == Patience::kFull) {
        if (added(LockTry::kInTurn)) return true;
        if (const double now = waited(); now < 0 || now >= kDefaultRetrySeconds) break;
        session.clock.pause(kPause_ms);
    }
    trans.go_to(0);
    if (patience == Patience::kFull) {
        note_fault(session, routine,
                   "TRANS: another program keeps the journal locked; the change was not noted");
    }
    return false;
}

// Runs a step on the journal and returns its result; false if a lock that the step needs timed out.
template <class Step>
bool unless_locked(Session& session, std::string_view routine, Step step) {
    try {
        return step();
    } catch (const EngineFault& fault) {
        if (fault.code() != FaultCode::kBusy) throw;
        journal(session).abandon_changes();
        if (!session.module.journal_locked) journal(session).unlock_all();
        note_fault(session, routine, fault.what());
        return false;
    }
}

void commit_and_release(Session& session) {
    Table& trans = journal(session);
    trans.commit();
    trans.unlock_all();
}

void finish_entry(Session& session) {
    if (!session.module.journal_locked) commit_and_release(session);
}

bool remove_entry(Session& session, bool quiet) {
    Table& trans = journal(session);
    if (trans.lock_record(trans.record_number())) {
        trans.mark_deleted();
        if (!session.module.journal_locked) trans.unlock_all();
        return true;
    }
    if (quiet) return false;
    return ERRBEEP(session.ui, "Can't lock transaction database. Please try again.");
}

// At most five tries: one, then twice a short pause and two more.
bool lock_entry(Session& session) {
    Table& trans = journal(session);
    const RecordNumber entry = trans.record_number();
    if (trans.lock_record(entry)) return true;
    for (int round = 0; round < 2; ++round) {
        SLEEP(session.clock, kEntryLockPause_s);
        if (trans.lock_record(entry) || trans.lock_record(entry)) return true;
    }
    return false;
}

bool report_locked_entry(Session& session, int code_area) {
    return ERRBEEP(session.ui,
                   "Cannot lock transaction file! Synchronization is invalid! \r\n"
                   "Check all workstations. Make sure no one is frozen, then make these changes "
                   "again.\r\nArea: " +
                       session.areas.alias(code_area),
                   "Data Tracking Error");
}

void report_empty_identifier(Session& session, int area, int code_area) {
    const RecordNumber record = session.areas.table(area, "RSSET").record_number();
    ERRBEEP(session.ui, "Error: Unique ID is empty for area " + std::to_string(code_area) +
                            " record " + std::to_string(record));
}

// Calls `write` with each field position and its new value.
template <class Write>
void for_each_change(const FieldChanges& changes, const Table& table, Write write) {
    if (changes.field_number) {
        write(*changes.field_number, changes.value);
        return;
    }
    if (!changes.values) return;
    const std::size_t count = std::min(changes.values->size(), table.fields().size());
    for (std::size_t i = 1; i <= count; ++i) write(i, (*changes.values)[i - 1]);
}

// The entry's slots, one per field. Data from before the table gained fields are shorter; blank
// data belong to an entry that does not exist yet.
std::string entry_slots(Session& session, std::size_t field_count) {
    const Value data = session.areas.field(journal_area(session), practice::kDataField);
    std::string slots = data.empty() ? std::string() : data.text();
    slots.resize(std::max(slots.size(), field_count * practice::kSlotSize), '\0');
    return slots;
}

// Writes the values that differ and puts `mark` into their slots; false if none differ.
bool write_and_mark(Table& table, const FieldChanges& changes, const std::string& mark,
                    std::string& slots) {
    const bool forced = changes.field_number && changes.force;
    bool changed = false;
    for_each_change(changes, table, [&](std::size_t field, const Value& value) {
        if (!forced && table.field_equals(field, value)) return;
        slots = MYSTUFF(slots, practice::slot_position(field), practice::kSlotSize, mark);
        table.field_put(field, value);
        changed = true;
    });
    return changed;
}

}  // namespace

bool RSADD(Session& session, const Addition& addition, Patience patience) {
    reread_settings(session);
    const int area = addition.area.value_or(session.areas.current());
    const std::string stamp = addition.stamp ? *addition.stamp : RSNOW(session);
    const std::string identifier =
        addition.identifier ? *addition.identifier : current_identifier(session);
    if (Value(identifier).empty()) return false;
    if (!tracking(session)) return true;
    begin_entry(session);
    const std::string code = addition.table_code.value_or(practice::table_code_of(area));
    put_entry(session, {code, identifier, practice::kAddition}, stamp);
    if (!add_entry(session, "RSADD", patience)) return false;
    if (addition.commit) finish_entry(session);
    return true;
}

void require_journal(Session& session) {
    session.areas.require_field(kSystemArea, practice::kLastStampField);
    if (!tracking(session)) return;
    const int area = journal_area(session);
    for (const char* field : {practice::kKindField, practice::kTableCodeField,
                              practice::kStampField, practice::kIdentifierField}) {
        session.areas.require_field(area, field);
    }
    begin_entry(session);
    journal(session).require_place();
}

std::optional<std::string> last_journalled(Session& session, const std::string& table_code,
                                           const std::string& limit) {
    if (session.areas.area_of(practice::kJournal.alias) == 0) return {};
    Table& trans = journal(session);
    const std::size_t order = trans.order_number();
    if (order == 0) return {};
    std::string expression = trans.order_description(order).key;
    std::erase(expression, ' ');
    if (!equal_ignoring_case(expression, practice::kEntryKey)) return {};
    try {
        const auto key = trans.last_key(order, table_code + limit, Table::Wait::kShort);
        if (!key || !begins_with(*key, table_code)) return {};
        return key->substr(table_code.size(), limit.size());
    } catch (const EngineFault& fault) {
        if (fault.code() != FaultCode::kBusy) throw;
        trace(session, "NEXTUID", fault.what());
        return {};
    }
}

bool RSDEL(Session& session, const Deletion& deletion) {
    reread_settings(session);
    const int area = deletion.area.value_or(session.areas.current());
    const std::string stamp = deletion.stamp ? *deletion.stamp : RSNOW(session);
    const std::string identifier =
        deletion.identifier ? *deletion.identifier : current_identifier(session);
    const std::string workstation =
        deletion.workstation ? *deletion.workstation : current_workstation(session);
    const EntryKey key{
        deletion.table_code.value_or(practice::table_code_of(deletion.code_area.value_or(area))),
        identifier, practice::kDeletion};
    if (Value(identifier).empty()) return false;
    if (!tracking(session)) return true;
    return unless_locked(session, "RSDEL", [&] {
        if (find_entry(session, key)) {
            return deletion.remove ? remove_entry(session, deletion.quiet) : true;
        }
        begin_entry(session);
        put_entry(session, key, stamp, workstation);
        if (!add_entry(session, "RSDEL", Patience::kFull)) return false;
        finish_entry(session);
        return true;
    });
}

bool RSSET(Session& session, const FieldChanges& changes) {
    reread_settings(session);
    const int area = changes.area.value_or(session.areas.current());
    const std::string stamp = changes.stamp ? *changes.stamp : RSNOW(session);
    const std::string identifier =
        changes.identifier ? *changes.identifier : current_identifier(session);
    const std::string workstation =
        changes.workstation ? *changes.workstation : current_workstation(session);
    const int code_area = changes.code_area.value_or(area);
    const EntryKey key{practice::table_code_of(code_area), identifier, practice::kEdit};
    Table& table = session.areas.table(area, "RSSET");

    const bool anonymous = Value(identifier).empty();
    if (anonymous || !tracking(session)) {
        if (anonymous) report_empty_identifier(session, area, code_area);
        for_each_change(changes, table, [&](std::size_t field, const Value& value) {
            table.field_put(field, value);
        });
        return !anonymous;
    }

    bool exists = false;
    const bool readable = unless_locked(session, "RSSET", [&] {
        exists = find_entry(session, key);
        return true;
    });
    if (exists && !session.module.journal_locked) {
        if (!lock_entry(session)) return report_locked_entry(session, code_area);
        // Another workstation may have written the entry between the look-up and the lock.
        journal(session).refresh_record();
    }
    std::string slots = entry_slots(session, table.fields().size());
    const std::string mark = practice::make_slot(stamp, workstation);
    const bool changed = write_and_mark(table, changes, mark, slots);
    if (changed && readable) {
        if (!exists) begin_entry(session);
        put_entry(session, key, stamp, slots);
        journal(session).require_place();
    }
    // After require_place(), because the edit must not be written if the journal takes no entry.
    // Before the entry, because the journal may only name changes that are in the file.
    table.commit();
    if (!readable) return true;
    // An entry that cannot be written does not undo the edit.
    static_cast<void>(unless_locked(session, "RSSET", [&] {
        if (changed && !exists && !add_entry(session, "RSSET", Patience::kFull)) return false;
        finish_entry(session);
        return true;
    }));
    return true;
}

bool RSLOCK(Session& session) {
    session.module.journal_locked = journal(session).lock_table();
    return session.module.journal_locked;
}

bool RSUNLOCK(Session& session) {
    commit_and_release(session);
    session.module.journal_locked = false;
    return false;
}

std::string RSDTOF(Session& session, const std::string& table_code, const std::string& identifier,
                   std::size_t field_number, std::string* changer) {
    const bool found = find_entry(session, {table_code, identifier, practice::kEdit});
    if (!found || field_number == 0) return std::string(practice::kStampSize, '\0');
    const std::string data =
        session.areas.field(journal_area(session), practice::kDataField).text();
    const std::string_view slot = practice::slot_of(data, field_number);
    if (changer) *changer = substring(slot, practice::kStampSize + 1);
    std::string stamp(substring(slot, 1, practice::kStampSize));
    stamp.resize(practice::kStampSize, '\0');  // the data are older than the field
    return stamp;
}

}  // namespace brenik
