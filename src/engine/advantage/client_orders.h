// The orders of a table that the client has open, the attached ones among them, and walks through
// one.
//
// The client opens a structural index by itself and cannot close it; its orders stay open when they
// are detached. Handles are asked for one by one, by number.

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/advantage/client_cursor.h"
#include "engine/advantage/key_value.h"
#include "engine/table.h"

namespace brenik::advantage {

struct ClientOrder {
    Handle handle;
    std::string file;  // the index file's path, in the system's form
    OrderDescription description;
    OrderKey key;
    Value top, bottom;  // the scopes
    std::optional<KeyValue> top_limit, bottom_limit;

    // Below 0, 0, above 0: how a key lies to a limit, in walking order.
    int place(const KeyValue& one, const KeyValue& limit) const {
        const int ascending = OrderKey::compare(one, limit);
        return description.descending ? -ascending : ascending;
    }
    bool before_top(const KeyValue& one) const { return top_limit && place(one, *top_limit) < 0; }
    bool behind_bottom(const KeyValue& one) const {
        return bottom_limit && place(one, *bottom_limit) > 0;
    }
    bool has_scope() const { return top_limit || bottom_limit; }
    void clear_scopes();
};

class ClientOrders {
  public:
    // `path` is the table's.
    ClientOrders(AdvantageEngine& engine, Handle table, const std::string& path,
                 const record::TableLayout& layout, bool oem)
        : engine_(engine), table_(table), path_(path), layout_(layout), oem_(oem) {}

    // Attaches the orders of the index that the client opened with the table. EngineFault
    // kUnsupported when a key or condition cannot be evaluated here.
    void attach_structural();
    bool has_structural() const { return structural_ != 0; }
    // Attaches the orders of an index file; opens it if it is not open.
    std::optional<Refusal> attach(const std::string& name);
    void detach_all();

    std::size_t attached_count() const { return attached_.size(); }
    ClientOrder& attached(std::size_t number) { return *attached_[number - 1]; }  // from 1
    const ClientOrder& attached(std::size_t number) const { return *attached_[number - 1]; }
    std::vector<std::size_t> numbers_of(const std::string& index_file) const;
    const std::vector<std::unique_ptr<ClientOrder>>& all() const { return orders_; }

  private:
    std::string full_path(const std::string& name) const;
    U16 count();
    Handle handle_of(U16 number);
    void add(U16 number, const std::string& file);
    std::string text_of(Status(BRENIK_CLIENT_CALL* ask)(Handle, char*, U16*), Handle order);
    bool is(Status(BRENIK_CLIENT_CALL* ask)(Handle, U16*), Handle order);
    bool attach_known(const std::string& file);

    AdvantageEngine& engine_;
    Handle table_;
    const std::string& path_;
    const record::TableLayout& layout_;
    bool oem_;
    std::size_t structural_ = 0;
    std::vector<std::unique_ptr<ClientOrder>> orders_;  // as the client numbers them
    std::vector<ClientOrder*> attached_;
};

// Moves the client through one order. All are false when there is no such entry. Scopes do not
// count here.
class ClientWalk {
  public:
    ClientWalk(ClientCursor& cursor, const ClientOrder& order) : cursor_(cursor), order_(order) {}

    bool first() { return cursor_.top(order_.handle); }
    bool last() { return cursor_.bottom(order_.handle); }
    bool step(bool forward);
    // The first entry that does not lie before `limit`, and the last that does not lie behind it.
    bool at_or_after(const KeyValue& limit);
    bool at_or_before(const KeyValue& limit);
    // To the neighbour of a key that need not be in the order.
    bool beside(const KeyValue& key, RecordNumber record, bool forward);

    // Of the entry that was reached.
    KeyValue key() { return order_.key.of(cursor_.record()); }
    int place(const KeyValue& limit) { return order_.place(key(), limit); }

  private:
    ClientCursor& cursor_;
    const ClientOrder& order_;
};

}  // namespace brenik::advantage
