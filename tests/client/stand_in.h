// The objects of the stand-in client library: its settings, connections, tables and orders.
//
// A table is kept by the embedded engine, one engine per connection, which plays the server. What
// the client keeps between two calls is in ClientTable: the image of the current record, records
// read ahead, unsent changes and locks.

#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/calls.h"
#include "engine/expression/expression.h"
#include "engine/index/index_key.h"
#include "engine/local/local_engine.h"

namespace brenik::stand_in {

// Server types; a mask of them selects among several.
enum : U16 { kLocalServer = 1, kRemoteServer = 2, kInternetServer = 4 };
// Character types.
enum : U16 { kAnsi = 1, kOem = 2 };

class ClientTable;

struct Connection {
    Handle handle{};
    U16 type = kLocalServer;
    bool lost = false;
    std::unique_ptr<local::LocalEngine> engine = std::make_unique<local::LocalEngine>();
    std::map<Handle, std::unique_ptr<ClientTable>> tables;

    bool is_remote() const { return type != kLocalServer; }
};

struct Order {
    Handle handle{};
    ClientTable* table = nullptr;
    std::size_t number = 0;  // of the table's orders, from 1
    std::string file;
    OrderDescription description;
    std::optional<expression::Expression> key;
    std::optional<expression::Expression> condition;
    index::KeyFormat format;
};

// One open table.
class ClientTable {
  public:
    struct Options {
        std::string alias;
        U16 characters = kAnsi;
        bool exclusive = false;
        bool read_only = false;
    };
    ClientTable(Connection& connection, Handle handle, std::unique_ptr<Table> table,
                Options options);

    Connection& connection() const { return connection_; }
    Handle handle() const { return handle_; }
    Table& server() { return *table_; }
    const record::TableLayout& layout() const { return table_->layout(); }
    const std::string& alias() const { return options_.alias; }
    bool is_oem() const { return options_.characters == kOem; }

    // -- Position (movement.cpp). An order with the number 0 is that of the record numbers.
    void go_top(std::size_t order);
    void go_bottom(std::size_t order);
    void go_to(U32 record);
    void skip(const Order* order, I32 count);
    bool seek(const Order& order, const Value& key, bool soft, bool last);
    bool at_end() const { return at_end_; }
    bool at_beginning() const { return at_beginning_; }
    U32 record_number() const { return record_; }
    U32 record_count(bool refresh);
    std::size_t key_number(std::size_t order, KeySet keys);
    bool has_record() const { return record_ != 0 && !at_end_; }
    void require_record() const;
    void set_read_ahead(U16 records);

    // -- The current record (records.cpp).
    void flush();
    void append();
    void cancel();
    void refresh();
    void mark(char mark);
    const std::vector<Byte>& image() const { return image_; }
    // The image to be changed, after an implicit lock if one is needed.
    std::vector<Byte>& changing();
    void set_image(std::string_view bytes);
    // Memos: the unsent text, or that of the file.
    std::string memo(std::size_t field);
    void set_memo(std::size_t field, std::string text);
    void write_memo_now(std::size_t field, const std::string& text);

    // -- Locks (records.cpp). Record 0 is the current one.
    void lock_record(U32 record);
    void unlock_record(U32 record);
    void lock_table();
    void unlock_table();
    bool is_locked(U32 record) const;
    unsigned lock_count() const;

    // -- Orders and the filter (orders.cpp).
    const std::vector<std::unique_ptr<Order>>& orders() const { return orders_; }
    void attach(const std::string& file);
    // Makes the orders known that the server has attached from an index file.
    void list_orders(const std::string& file);
    std::vector<const Order*> orders_of(const std::string& file) const;
    // Closes all but the structural one.
    void close_index_files();
    // A fixed filter keeps the records that it finds at once.
    void set_filter(const std::string& text, bool fixed);
    void clear_filter();
    bool has_filter() const { return filter_.has_value(); }

  private:
    struct Ahead {
        U32 record;
        std::vector<Byte> bytes;
    };
    void stand_on_record(std::size_t order);
    bool take_ahead(Handle object, I32 count);
    void read_ahead(Handle object, bool forward);
    void arrive();
    void fetch();
    void show(Ahead record);
    void write();
    void put_changes();
    void require_changeable();
    void lock_implicitly();
    void release_implicit_lock();
    U32 existing(U32 record);
    void unlock_all();
    std::set<U32> matching_records();

    Connection& connection_;
    const Handle handle_;
    std::unique_ptr<Table> table_;
    const Options options_;
    std::vector<std::unique_ptr<Order>> orders_;
    std::optional<expression::Expression> filter_;
    std::set<U32> filtered_;  // the records of a fixed filter

    U32 record_ = 0;
    bool at_end_ = false;
    bool at_beginning_ = false;
    bool server_elsewhere_ = true;  // its record is not the current one
    U32 known_count_ = 0;
    std::vector<Byte> image_;
    std::vector<Byte> original_;  // as the server gave it
    bool changed_ = false;
    bool appended_ = false;  // and not written yet
    std::map<std::size_t, std::string> unsent_memos_;

    U16 read_ahead_ = 10;
    std::deque<Ahead> ahead_;
    Handle ahead_of_{};  // the table or order that was skipped in
    bool ahead_forward_ = true;

    std::set<U32> locked_;
    U32 implicitly_locked_ = 0;
    bool lock_goes_ = false;  // that of the appended record, once it is written
    bool table_locked_ = false;
};

// What a handle stands for.
struct Object {
    Connection* connection;
    ClientTable* table = nullptr;  // null: the connection
    Order* order = nullptr;        // null: the connection or the table
    std::size_t number() const { return order == nullptr ? 0 : order->number; }
};

// Everything of the process: its settings and all open objects.
class Process {
  public:
    // The object with this handle. All others are violations.
    enum class Lost { kRefused, kAllowed };
    Object object(Handle handle, Lost lost = Lost::kRefused);
    Connection& connection(Handle handle, Lost lost = Lost::kRefused);
    ClientTable& table(Handle handle, Lost lost = Lost::kRefused);
    Order& order(Handle handle);

    Connection& connect(U16 types);
    void disconnect(Connection& connection);
    ClientTable& add_table(Connection& connection, std::unique_ptr<Table> table,
                           ClientTable::Options options);
    void close_table(ClientTable& table);
    void add_order(Order& order) {
        order.handle = add({&order.table->connection(), order.table, &order});
    }
    void forget(Handle handle) { objects_.erase(handle); }
    void lose_server();

    U16 servers = kLocalServer;  // those that answer
    bool server_is_lost = false;
    std::optional<U16> server_types;  // as set by the program
    bool shows_deleted = true;
    bool exact = false;
    std::string date_format = "MM/DD/YY";
    std::map<Handle, std::unique_ptr<Connection>> connections;
    std::set<std::string> aliases;

  private:
    Handle add(const Object& object);

    std::unordered_map<Handle, Object> objects_;
    U32 last_handle_ = 0;
};
Process& process();
inline ClientTable& table_of(Handle handle) { return process().table(handle); }
inline Order& order_of(Handle handle) { return process().order(handle); }

// The position of the field that a name or a position means, from 1.
std::size_t field_argument(const ClientTable& table, const char* field);
Status status_of(const Refusal& refusal);
std::string to_oem(std::string_view ansi);

}  // namespace brenik::stand_in
