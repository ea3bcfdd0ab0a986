// One table over the client library: record buffer, locks and position.
//
// The table keeps the current record's bytes itself. Fields, expressions and filters work on them
// as in the embedded engine, and changes stay there until the record is flushed. Scopes, filters
// and hidden deleted records are judged here, too: the client only walks, seeks and stores. Its
// position is disturbed by most of its functions; ClientCursor keeps account of it.
//
// The client would acquire locks by itself, and drops some when a table lock is refused. So the
// table keeps its own list of locks, and writes nothing without one of them.

#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "engine/advantage/advantage_engine.h"
#include "engine/advantage/client_cursor.h"
#include "engine/advantage/client_fields.h"
#include "engine/advantage/client_orders.h"
#include "engine/table.h"

namespace brenik::advantage {

class AdvantageTable : public Table, public ClientTable {
  public:
    // Throws EngineFault for damage, too.
    static OpenAnswer open(AdvantageEngine& engine, const std::string& path, TableSharing sharing,
                           int controlling);
    ~AdvantageTable() override;

    // -- As its engine sees it.
    Handle handle() const override { return handle_; }
    Status flush_status() override;
    Status shut() override;
    void lose() noexcept override;

    const std::vector<FieldDescription>& fields() const override { return descriptions_; }
    const std::string& path() const override { return path_; }
    const record::TableLayout& layout() const override { return layout_; }
    record::RecordView record() override { return view(); }

    void go_to(RecordNumber record) override;
    void go_top() override;
    void go_bottom() override;
    void skip(std::int64_t count) override;
    bool end_of_file() override { return record_ == 0; }
    bool beginning_of_file() override { return at_beginning_; }
    RecordNumber record_number() override { return record_ == 0 ? record_count() + 1 : record_; }
    RecordNumber record_count() override;
    bool deleted() override { return record_ != 0 && view().deleted(); }
    void set_follower(std::function<void()> follower) override { follower_ = std::move(follower); }

    Value field_get(std::size_t position) override;
    bool field_equals(std::size_t position, const Value& value) override;
    void field_put(std::size_t position, const Value& value) override;
    void mark_deleted() override { set_deletion_mark('*'); }
    void recall() override { set_deletion_mark(' '); }
    int refresh_record() override;

    [[nodiscard]] bool lock_record(RecordNumber record, LockTry attempt) override;
    [[nodiscard]] bool lock_table(LockTry attempt) override;
    void unlock_record(RecordNumber record) override;
    void unlock_all() override;
    bool owns(RecordNumber record) const override { return owns_all() || locks_.contains(record); }
    [[nodiscard]] bool append_blank(bool release_other_locks, LockTry attempt) override;
    void begin_record() override;
    void require_place() override;
    [[nodiscard]] Added add_record(LockTry attempt, std::size_t distinct, Leave leave) override;
    void abandon_changes() noexcept override;
    void commit() override { flush(); }

    bool opened_orders_automatically() const override {
        return orders_ && orders_->has_structural();
    }
    void clear_orders() override;
    [[nodiscard]] std::optional<Refusal> add_orders(const std::string& file,
                                                    int controlling) override;
    std::size_t order_count() const override { return orders_ ? orders_->attached_count() : 0; }
    std::string_view order_name(std::size_t number) const override;
    std::vector<std::size_t> orders_of(const std::string& index_file) const override;
    std::size_t order_number() const override { return controlling_; }
    OrderDescription order_description(std::size_t number) const override;
    bool set_order(std::size_t number) override;
    bool seek(const Value& key, SeekMode mode, SeekEnd end) override;
    Value scope(ScopeEnd end) const override;
    void set_scope(ScopeEnd end, const Value& value) override;
    std::size_t key_count(std::size_t order, KeySet keys) override;
    std::size_t key_number(std::size_t order, KeySet keys) override;
    std::optional<std::string> last_key(std::size_t order, const std::string& limit,
                                        Wait wait) override;
    void set_filter(Filter filter, const std::string& text) override;
    FilterOptimisation filter_optimisation() const override;

  private:
    AdvantageTable(AdvantageEngine& engine, std::string path, TableSharing sharing)
        : engine_(engine),
          path_(std::move(path)),
          exclusive_(sharing == TableSharing::kExclusive) {}
    static std::optional<record::TableLayout> layout_in_header(const std::string& path);
    record::TableLayout layout_of_client();
    std::optional<std::string> contradiction();
    void prepare(Handle handle, std::optional<record::TableLayout> layout, bool oem,
                 int controlling);

    // -- The record buffer.
    const ClientLibrary& client() { return engine_.client(); }
    // True when the client has the table open, false after shut(). Throws after a loss.
    bool is_open() const;
    void require_open(const char* operation) const;
    void require(Status status, const char* operation) { cursor_->require(status, operation); }
    record::RecordView view();
    void require_at(RecordNumber record, const char* operation);
    void place(RecordNumber record);
    void place_by_number(RecordNumber record);
    void forget_record();
    void forget_reading();
    void flush();
    void write_changes();
    bool holds_written() noexcept;
    void cancel() noexcept;
    void tell_duplicate(const EngineFault& fault, RecordNumber record);
    bool has_duplicate_key(RecordNumber record);
    void require_writable(const char* operation);
    void set_deletion_mark(char mark);
    const record::Field& field_at(std::size_t position, const char* operation) const;
    std::string memo_text(const record::Field& field);

    // -- Locks.
    bool owns_all() const { return exclusive_ || table_locked_; }
    bool lock_at_client(RecordNumber record);
    bool was_refused(Status status, const char* operation);
    bool is_locked_at_client(RecordNumber record);
    bool keep_lock(RecordNumber record);
    void unlock_at_client(RecordNumber record);
    void give_up() noexcept;
    void release_locks();

    // -- Appends.
    bool append_was_refused(Status status);
    RecordNumber new_record();
    std::optional<RecordNumber> left_over_record();
    RecordNumber appended_since(RecordNumber before);
    void cancel_append(RecordNumber before, RecordNumber record) noexcept;
    void empty_out(RecordNumber record);
    bool is_blank(Bytes bytes) const;
    bool is_taken(std::size_t order);
    void placed_at_added(RecordNumber record, bool loaded);

    // -- Navigation (advantage_table_moves.cpp).
    void move_to(RecordNumber record);
    void move_by(std::int64_t count);
    bool find(const Value& key, SeekMode mode, SeekEnd end);
    void moved() {
        if (follower_) follower_();
    }
    // While it lives, the client walks through records that the filter leaves out, too.
    class Unfiltered {
      public:
        explicit Unfiltered(AdvantageTable& table) : table_(table), filter_(table.servers_filter_) {
            table_.filter_at_server({});
        }
        ~Unfiltered();
        Unfiltered(const Unfiltered&) = delete;
        Unfiltered& operator=(const Unfiltered&) = delete;

      private:
        AdvantageTable& table_;
        const std::string filter_;
    };
    void filter_at_server(const std::string& text);
    bool shows(const record::RecordView& record) const;
    bool hides_records() const { return engine_.deleted_hidden() || filter_; }
    ClientWalk walk(const ClientOrder& order) { return {*cursor_, order}; }
    ClientOrder& controlling() { return orders_->attached(controlling_); }
    bool is_in(const ClientOrder& order);
    bool place_near(bool any, bool forward);
    bool place_with_key(bool any, bool forward, const KeyValue& wanted);
    bool first_in(const ClientOrder& order, const KeyValue* wanted = nullptr);
    bool last_in(const ClientOrder& order);
    bool to_neighbour(bool forward);
    bool step(bool forward);
    bool step_by_number(bool forward);
    bool leap(std::int64_t count);
    bool end_by_number(bool top);
    void go_end(bool top);
    void orders_attached(std::size_t before, int controlling);
    [[noreturn]] void refuse_order(std::size_t order, const char* operation) const;
    std::size_t count_visible(std::size_t order, RecordNumber last);

    AdvantageEngine& engine_;
    const std::string path_;
    const bool exclusive_;
    Handle handle_ = 0;  // 0 after shut() and lose()
    bool lost_ = false;
    record::TableLayout layout_;
    std::vector<FieldDescription> descriptions_;
    std::optional<ClientCursor> cursor_;
    std::optional<ClientFields> fields_;
    std::optional<ClientOrders> orders_;

    RecordNumber record_ = 0;  // 0: the phantom record
    bool at_beginning_ = false;
    std::vector<Byte> bytes_;  // the record, with changes that are not written yet
    std::vector<Byte> next_;   // field_put() makes the changed record here
    bool loaded_ = false;
    bool changed_ = false;
    bool begun_ = false;      // not in the file yet
    bool appended_ = false;   // just appended, and still blank in the file
    bool unwritten_ = false;  // appended, but the client could not write it blank
    PendingMemos pending_memos_;
    PendingMemos known_memos_;  // of a record that this session owns

    bool table_locked_ = false;
    std::set<RecordNumber> locks_;
    RecordNumber left_over_ = 0;  // blank, from an append that was refused

    std::size_t controlling_ = 0;
    Filter filter_;
    std::string servers_filter_;  // its text while the server evaluates it too, otherwise empty
    std::function<void()> follower_;
};

}  // namespace brenik::advantage
