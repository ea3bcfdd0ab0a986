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
#include <unordered_set>
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
// Filter options.
enum : U16 { kRespectFilters = 1, kIgnoreFilters = 2, kRespectScopes = 3, kRefreshCount = 4 };
// Kinds of keys.
enum : U16 { kRawKey = 1, kStringKey = 2, kDoubleKey = 4 };

class ClientTable;

struct Connection {
    Handle handle = 0;
    U16 type = kLocalServer;
    bool lost = false;
    std::unique_ptr<local::LocalEngine> engine = std::make_unique<local::LocalEngine>();
    std::map<Handle, std::unique_ptr<ClientTable>> tables;

    bool is_remote() const { return type != kLocalServer; }
};

struct Order {
    Handle handle = 0;
    ClientTable* table = nullptr;
    std::size_t number = 0;  // of the table's orders, from 1
    std::string file;
    OrderDescription description;
    std::optional<expression::Expression> key;
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
    ~ClientTable();

    Connection& connection() const { return connection_; }
    Handle handle() const { return handle_; }
    Table& server() { return *table_; }
    const record::TableLayout& layout() const { return table_->layout(); }
    const std::vector<FieldDescription>& fields() const { return table_->fields(); }
    const std::string& alias() const { return options_.alias; }
    bool is_oem() const { return options_.characters == kOem; }
    void require_writable() const;

    // -- Position (movement.cpp). `order` is 0 for the order of record numbers.
    void go_top(std::size_t order);
    void go_bottom(std::size_t order);
    void go_to(U32 record);
    void skip(const Order* order, I32 count);
    void seek(const Order& order, const Value& key, bool soft, bool last, U16& found);
    bool at_end() const { return at_end_; }
    bool at_beginning() const { return at_beginning_; }
    U32 record_number() const { return record_; }
    U32 record_count(bool refresh);
    bool has_record() const { return record_ != 0 && !at_end_; }
    void require_record() const;
    // Makes the server stand on the current record, in this order.
    void stand_on_record(std::size_t order);
    void set_read_ahead(U16 records);

    // -- The current record (records.cpp).
    void flush();
    void write();
    void append();
    void cancel();
    void refresh();
    void mark(char mark);
    const std::vector<Byte>& image() const { return image_; }
    // The image to be changed, after an implicit lock if it is needed.
    std::vector<Byte>& changing();
    void set_image(std::string_view bytes);
    void flush_buffers();
    // Memos: unsent text, or that of the file.
    std::string memo(std::size_t field);
    void set_memo(std::size_t field, std::string text);
    void write_memo_now(std::size_t field, const std::string& text);

    // -- Locks (records.cpp).
    void lock_record(U32 record);
    void unlock_record(U32 record);
    void lock_table();
    void unlock_table();
    bool is_locked(U32 record) const;
    unsigned lock_count() const;

    // -- Orders and filters (orders.cpp).
    std::vector<std::unique_ptr<Order>>& orders() { return orders_; }
    void list_orders(const std::string& file);
    std::vector<Order*> orders_of(const std::string& file);
    void close_index_files(const std::optional<std::string>& file);
    struct RecordFilter {
        expression::Expression expression;
        std::optional<std::set<U32>> records;  // found once; without, each record is looked at
    };
    void set_filter(std::optional<RecordFilter> ClientTable::*filter, const std::string& text,
                    bool fixed);
    void refresh_filter(std::optional<RecordFilter> ClientTable::*filter);
    void clear_filter(std::optional<RecordFilter> ClientTable::*filter);
    std::optional<RecordFilter> filter;
    std::optional<RecordFilter> optimised_filter;

  private:
    struct Ahead {
        U32 record;
        std::vector<Byte> bytes;
    };
    bool take_ahead(Handle object, I32 count);
    void read_ahead(Handle object, bool forward);
    void drop_ahead() { ahead_.clear(); }
    void arrive();
    void fetch();
    void show_image(U32 record, std::vector<Byte> bytes);
    void lock_implicitly();
    void release_implicit_lock();
    void unlock_all();
    void put_changes();
    std::set<U32> matching_records(const expression::Expression& condition);
    void apply_filters();

    Connection& connection_;
    const Handle handle_;
    std::unique_ptr<Table> table_;
    const Options options_;
    std::vector<std::unique_ptr<Order>> orders_;

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
    Handle ahead_of_ = 0;  // the table or order that was skipped in
    bool ahead_forward_ = true;

    std::set<U32> locked_;
    U32 implicitly_locked_ = 0;
    bool lock_goes_ = false;  // the appended record's, once it is written
    bool table_locked_ = false;
};

// Everything of the process: its settings and all open objects.
class Process {
  public:
    Connection& connection(Handle handle);
    ClientTable& table(Handle handle);
    Order& order(Handle handle);
    // A table's handle, or that of one of its orders.
    struct Object {
        ClientTable* table;
        const Order* order;  // null: the table's handle
        std::size_t number() const { return order == nullptr ? 0 : order->number; }
    };
    Object object(Handle handle);

    Connection& connect(U16 types);
    void disconnect(Connection& connection);
    ClientTable& add_table(Connection& connection, std::unique_ptr<Table> table,
                           ClientTable::Options options);
    void close_table(ClientTable& table);
    void add_order(Order& order);
    void forget(Handle handle, const char* what);
    void lose_server();
    void show_deleted(bool show);

    U16 servers = kLocalServer;  // those that answer
    bool server_is_lost = false;
    std::optional<U16> server_types;  // as set by the program
    bool shows_deleted = true;
    bool exact = false;
    std::string date_format = "MM/DD/YY";
    int epoch = 1900;
    std::map<Handle, std::unique_ptr<Connection>> connections;
    std::set<std::string> aliases;

  private:
    struct Entry {
        Connection* connection = nullptr;
        ClientTable* table = nullptr;
        Order* order = nullptr;
    };
    Handle new_handle(const Entry& entry);
    const Entry& entry(Handle handle, Status status, const char* wanted);
    void forget_table(ClientTable& table, const char* how);

    std::unordered_map<Handle, Entry> objects_;
    std::unordered_map<Handle, const char*> dead_;
    U32 last_handle_ = 0;
};
Process& process();

// The position of the field that a name or a position means, from 1.
std::size_t field_argument(const ClientTable& table, const char* field);
std::string to_ansi(std::string_view oem);
std::string to_oem(std::string_view ansi);
// Dates in the format of the process.
std::string date_text(Date date);
Date parse_date(std::string_view text);
// A date-time of "YYYYMMDDhhmmssttt" from a day number with a fraction.
Value date_time_at(double day);
Status status_of(const Refusal& refusal);

}  // namespace brenik::stand_in
