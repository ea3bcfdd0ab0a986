// The steps of an append, in the order that keeps identifiers unique: lock the counter, read it
// again, raise it, add the record, write the journal, release. A blank record is appended before
// the counter is raised.

#include "data/add_rec.h"

#include "RSData/journal.h"
#include "RSData/system_record.h"
#include "c_source/retries.h"
#include "data/identifiers.h"
#include "practice/journal_entry.h"

namespace brenik {

namespace {

constexpr std::int64_t kLastRecordNumber = 99999999;

// The running number of events in the counter record, which wraps to 0; other tables have none.
class RecordNumbers {
  public:
    RecordNumbers(Session& session, int table) : areas_(session.areas) {
        if (table == kEventsArea) last_ = areas_.field(kSystemArea, "RECORDNO").whole();
    }
    std::optional<std::int64_t> next() const {
        if (!last_) return {};
        return *last_ >= kLastRecordNumber ? 0 : *last_ + 1;
    }
    void store() { write(next()); }
    void take_back() { write(last_); }

  private:
    void write(const std::optional<std::int64_t>& number) {
        if (number) areas_.set_field(kSystemArea, "RECORDNO", *number);
    }

    WorkAreas& areas_;
    std::optional<std::int64_t> last_;
};

// Sets the identifier last, so that it overrides the one in the values.
void fill_in(Session& session, const NewRecord& options, const std::string& identifier) {
    options.fill();
    WorkAreas& areas = session.areas;
    if (areas.field_position(practice::kIdentifierField) != 0)
        areas.set_field(areas.current(), practice::kIdentifierField, identifier);
}

// One append under the counter's lock. The record in work area `area` receives the identifier;
// usually that is the area that is appended to.
class IdentifiedAppend {
  public:
    // `begun` becomes true before the first write that another try would repeat.
    IdentifiedAppend(Session& session, int table, int area, const NewRecord& options, bool& begun)
        : session_(session),
          area_(area),
          options_(options),
          begun_(begun),
          identifier_(session, table, area),
          numbers_(session, table) {}

    bool run() { return options_.fill ? add_filled() : append_blank(); }

  private:
    // Fills the record, then raises the counter, then adds the record: errors in the values show
    // before anything is written, and no number is issued twice.
    bool add_filled() {
        own() ? identifier_.pass_over_journalled() : identifier_.pass_over_known();
        for (auto added = Table::Added::kTaken; added != Table::Added::kDone;) {
            session_.areas.table("APPEND").begin_record();
            if (own()) assign();
            fill_in(session_, options_, own() ? identifier_.text() : std::string());
            added = add_counted();
            if (added == Table::Added::kRefused) return false;
            if (added == Table::Added::kTaken) identifier_.pass_over();
        }
        if (own()) return true;
        assign();
        session_.areas.table(area_, practice::kIdentifierField).commit();
        return true;
    }

    Table::Added add_counted() {
        store();
        begun_ = true;
        try {
            const auto added =
                add_with_retries(session_, options_.seconds, own() ? identifier_.order() : 0);
            if (added != Table::Added::kDone) take_back();
            return added;
        } catch (const EngineFault&) {
            take_back();
            throw;
        }
    }

    bool append_blank() {
        identifier_.pass_over_known();
        begun_ = true;
        if (!append_with_retries(session_, options_.seconds, false)) return false;
        assign();
        store();
        return true;
    }

    bool own() const { return area_ == session_.areas.current(); }

    void store() {
        numbers_.store();
        identifier_.store();
    }
    void take_back() {
        numbers_.take_back();
        identifier_.take_back();
    }

    void assign() {
        if (const auto number = numbers_.next()) {
            set("ENTRY", session_.variables.TODAY);
            set("RNO", *number);
        }
        if (identifier_.issued()) set(practice::kIdentifierField, identifier_.text());
    }

    void set(std::string_view field, const Value& value) {
        session_.areas.set_field(area_, field, value);
        if (options_.object) options_.object->assign(field, value);
    }

    Session& session_;
    int area_;
    const NewRecord& options_;
    bool& begun_;
    NextIdentifier identifier_;
    RecordNumbers numbers_;
};

// Records the operator in the record object, except for notes.
void mark_object(const Session& session, int area, RecordObject* object) {
    const bool marked = object && object->FIELDPOS("ENTRY") != 0 &&
                        object->FIELDPOS("OPERATOR") != 0 && area != kNotesArea;
    if (!marked) return;
    object->assign("OPERATOR", session.variables.MOPERATOR);
    object->assign("ENTRY", session.variables.TODAY);
}

// Appends without an identifier.
bool append(Session& session, const NewRecord& options) {
    if (!options.fill) return append_with_retries(session, options.seconds, false);
    session.areas.table("APPEND").begin_record();
    fill_in(session, options, {});
    return add_with_retries(session, options.seconds, 0) == Table::Added::kDone;
}

// If the journal refuses the entry, the record stays. If the journal is damaged, the record is
// marked deleted where possible.
bool journal(Session& session, const NewRecord& options, const Addition& addition,
             Patience patience) {
    try {
        return RSADD(session, addition, patience);
    } catch (const EngineFault&) {
        if (options.fill) {
            session.areas.table("RSADD").mark_deleted();
            session.areas.table("RSADD").commit();
        }
        throw;
    }
}

bool append_under_counter(Session& session, int table, int area, const NewRecord& options,
                          bool& begun) {
    const SystemRecord counters(session);
    if (!lock_record_of(session, kSystemArea)) return false;
    Addition addition{
        .area = area, .commit = options.commit, .table_code = practice::table_code_of(table)};
    bool appended = false, journalled = false;
    const auto append_and_note = [&] {
        reread_counter(session);
        require_journal(session);
        appended = IdentifiedAppend(session, table, area, options, begun).run();
        if (!appended) return;
        addition.identifier = session.areas.field(area, practice::kIdentifierField).text();
        journalled = journal(session, options, addition, Patience::kNone);
    };
    const bool writable = releasing_counter(session, [&] {
        if (area != session.areas.current()) {
            return with_writable_record(session, area, append_and_note);
        }
        append_and_note();
        return true;
    });
    // Retries the journal without the counter's lock, because others wait for the counter.
    if (appended && !journalled) journal(session, options, addition, Patience::kFull);
    return writable && appended;
}

// The record in work area `area` receives an identifier from the counter of table number `table`.
// Starts again if a lost connection released the counter's lock before anything was written.
bool append_identified(Session& session, int table, int area, const NewRecord& options) {
    constexpr int kMostTries = 4;
    for (int tries = 1;; ++tries) {
        bool begun = false;
        try {
            return append_under_counter(session, table, area, options, begun);
        } catch (const EngineFault& fault) {
            if (begun || fault.code() != FaultCode::kNotLocked || tries == kMostTries) throw;
        }
    }
}

}  // namespace

bool ADD_REC(Session& session, const NewRecord& options) {
    WorkAreas& areas = session.areas;
    areas.table("ADD_REC");
    const bool notes = areas.current() == kSecondNotesArea;
    const int area = notes ? kNotesArea : areas.current();
    const int table = options.object && !notes ? options.object->NDB() : area;
    const bool identified = options.assign_identifier.value_or(
        areas.field_position(area, practice::kIdentifierField) != 0 && areas.used(kSystemArea));
    const bool appended =
        identified ? append_identified(session, table, area, options) : append(session, options);
    if (appended) mark_object(session, area, options.object);
    return appended;
}

}  // namespace brenik
