// Recycles a deleted record, or appends a new one.

#include "data/append_blank.h"

#include "RSData/journal.h"
#include "c_source/retries.h"
#include "data/add_rec.h"
#include "data/identifiers.h"
#include "data/scatgat.h"
#include "engine/orders.h"
#include "util/runtime.h"

namespace brenik {

namespace {

constexpr std::string_view kRecycledOrder = "DELETED";

// The destructor hides deleted records and restores the table's order, also if a fault ends the
// scope: other searches of the session must not find deleted records.
class RestoredOrder {
  public:
    RestoredOrder(Session& session, Table& table)
        : engine_(session.areas.engine()), table_(table), order_(table.order_number()) {}
    ~RestoredOrder() {
        engine_.set_deleted_hidden(true);
        try {
            table_.set_order(order_);
        } catch (const EngineFault&) {
            // The fault that ended the scope, or a similar one, already propagates to the caller.
        }
    }
    RestoredOrder(const RestoredOrder&) = delete;
    RestoredOrder& operator=(const RestoredOrder&) = delete;

  private:
    Engine& engine_;
    Table& table_;
    std::size_t order_;
};

// Another workstation may have recalled the record before it was locked.
bool lock_deleted_record(Session& session, Table& table) {
    if (table.end_of_file() || !table.deleted() || !REC_LOCK(session)) return false;
    if (table.deleted()) return true;
    REC_UNLOCK(session);
    return false;
}

bool recycle_top_record(Session& session, Table& table) {
    session.areas.engine().set_deleted_hidden(false);
    table.go_to(0);
    const ArrayReference blank = SCATGAT(session);
    table.go_top();
    if (!lock_deleted_record(session, table)) return false;
    table.recall();
    SCATGAT(session, blank);
    if (session.areas.field_position(practice::kIdentifierField) == 0) return true;
    // The record can be filled even if a locked counter leaves it without an identifier, or the
    // journal refuses its entry.
    std::string identifier;
    static_cast<void>(NEXTUID(session, identifier, {.record_locked = true}));
    table.commit();
    static_cast<void>(RSADD(session));
    return true;
}

}  // namespace

bool APPENDBLANK(Session& session) {
    Table& table = session.areas.table("APPENDBLANK");
    const RestoredOrder restored(session, table);
    set_order(table, kRecycledOrder);
    const bool recycled = begins_with(session.areas.order_name(), kRecycledOrder) &&
                          recycle_top_record(session, table);
    return recycled || ADD_REC(session);
}

}  // namespace brenik
