// One table of the embedded engine: position, record buffer and memos.
//
// The current record is read on the first access, and again after it has been locked. Changes stay
// in the buffer until the record is flushed: by unlocking, committing or moving away. An appended
// blank record is in the file from the start; its keys are written with its values in that one
// flush. A begun record is in the buffer only, until it is added as a whole.
//
// On a share, the session with the server can be lost, and all locks with it. The next call then
// reopens the files. A call interrupted by the loss acquires its locks again, checks what it has
// written, and finishes. It fails if another user has changed the record meanwhile, or if the share
// cannot be reached.

#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/local/local_engine.h"
#include "engine/local/memo_file.h"
#include "engine/local/table_file.h"
#include "engine/local/table_orders.h"
#include "engine/table.h"

namespace brenik::local {

class LocalTable : public Table {
  public:
    // Throws Refused when the table, its memo file or its index is missing, not permitted or held
    // by others.
    static std::unique_ptr<LocalTable> open(LocalEngine& engine, const std::string& path,
                                            platform::Sharing sharing, int controlling);
    ~LocalTable() override;

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
    bool owns(RecordNumber record) const override { return file_ && file_->locks().owns(record); }
    [[nodiscard]] bool append_blank(bool release_other_locks, LockTry attempt) override;
    void begin_record() override;
    void require_place() override;
    [[nodiscard]] Added add_record(LockTry attempt, std::size_t distinct, Leave leave) override;
    void abandon_changes() noexcept override;
    void commit() override;

    bool opened_orders_automatically() const override {
        return orders_ && orders_->has_structural();
    }
    void clear_orders() override;
    [[nodiscard]] std::optional<Refusal> add_orders(const std::string& file,
                                                    int controlling = 1) override;
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

    void set_filter(Filter filter, const std::string& /*text*/) override {
        filter_ = std::move(filter);
    }
    FilterOptimisation filter_optimisation() const override { return FilterOptimisation::kNone; }

    // Flushes and closes the files. Afterwards the table behaves like an empty one.
    void shut();

  private:
    LocalTable(LocalEngine& engine, std::unique_ptr<TableFile> file);

    // -- The record buffer.
    record::RecordView view();  // of the current record; reads it if necessary
    void read_current();
    void forget_record();
    void forget_reading();
    void forget_moment();
    void enter_moment();
    void place(RecordNumber record);
    void flush();
    void write_changes();
    void prepare_to_write_again();
    [[noreturn]] void refuse_after_loss(const char* what) const;
    bool append_blank_once(bool release_other_locks, LockTry attempt, RecordNumber& place);
    Added add_once(LockTry attempt, std::size_t distinct, Leave leave, RecordNumber& place);
    bool is_added(RecordNumber record);
    void placed_at_added(RecordNumber record);
    void require_room_for_memos() const;
    std::vector<std::uint32_t> write_memos();
    KeyUpdate::RecordHas record_has();
    void write_record(KeyUpdate& keys);
    void write_record_durably(KeyUpdate& keys);
    void require_in_place();
    void require_room_beside_records();
    bool take_out_left_over(const TableFile::Addition& addition, LockTry attempt);
    bool durable() const { return engine_.full_durability(); }
    void abandon_without_keys() noexcept;
    void require_writable(const char* operation);
    void set_deletion_mark(char mark);
    const record::Field& field_at(std::size_t position, const char* operation) const;
    std::string memo_text(const record::Field& field);
    std::string text_without_file(const record::Field& field);
    void require_open(const char* operation) const;

    // -- The share's session.
    bool lost() const { return file_ && file_->file().remote() && lost_on_share(); }
    bool lost_on_share() const;
    void reopen();
    void reopen_files();
    void rebuild_index();
    void settle_edits();
    void settle(const Unsettled::Edit& edit);
    // Runs a step that can be repeated. If the session is lost, reopens the files and repeats it, a
    // few times at most.
    template <class Step>
    auto reaching(Step step);

    // -- Navigation.
    // The moves themselves; the public methods also call the follower.
    void move_to(RecordNumber record);
    void move_by(std::int64_t count);
    bool find(const Value& key, SeekMode mode, SeekEnd end);
    bool find_from_root(const Value& key, SeekMode mode, SeekEnd end);
    void moved() {
        if (follower_) follower_();
    }

    bool shows(const record::RecordView& record) const;
    bool visible() { return !hides_records() || shows(view()); }
    bool hides_records() const { return engine_.deleted_hidden() || filter_; }
    index::OrderWalk walk() const { return walk(controlling_); }
    index::OrderWalk walk(std::size_t order) const {
        return {orders_->attached(order), scopes_[order - 1].limits};
    }
    const index::IndexEntry& current_entry();
    bool place_at(const index::IndexEntry& entry);
    bool place_near(bool any, index::IndexEntry& entry, bool forward);
    bool neighbour(const index::IndexEntry& entry, index::IndexEntry& found, bool forward);
    index::Trust trust();
    bool step(bool forward);
    bool step_in_order(bool forward);
    bool step_by_number(bool forward);
    bool leap(std::int64_t count);
    void go_end(bool top);
    void go_end_once(bool top);
    void use_order(std::size_t number);
    void orders_attached(std::size_t before, int controlling);

    // -- Keys by number (local_table_positions.cpp).
    [[noreturn]] void refuse_order(std::size_t order, const char* operation) const;
    bool among(RecordNumber record, MutableBytes buffer);
    std::size_t count_visible(std::size_t order, RecordNumber last);
    std::size_t count_keys(std::size_t order, KeySet keys);
    std::size_t number_of_key(std::size_t order, KeySet keys);

    LocalEngine& engine_;
    std::unique_ptr<TableFile> file_;  // null after shut()
    const std::string path_;
    Unsettled& unsettled_;  // kept by the engine
    const record::TableLayout layout_;
    std::unique_ptr<MemoFile> memo_;
    std::unique_ptr<TableOrders> orders_;
    std::vector<FieldDescription> descriptions_;

    RecordNumber record_ = 0;  // 0: the phantom record
    bool at_beginning_ = false;
    std::vector<Byte> bytes_;     // the record to write
    std::vector<Byte> original_;  // as read: the keys that the index holds for it
    std::vector<Byte> next_;      // field_put() makes the changed record here
    bool loaded_ = false;
    bool read_before_ = false;                 // original_ is an earlier reading of the record
    MemoFile::Clock::time_point loaded_at_{};  // in a table with memos
    bool changed_ = false;
    bool keys_pending_ = false;  // just appended: not in the index yet
    bool begun_ = false;         // not in the file yet
    bool interrupted_ = false;   // changes are pending, and the lock that they rely on was lost
    std::map<const record::Field*, std::string> pending_memos_;
    std::map<const record::Field*, std::string> known_memos_;  // of a record locked by this session

    std::size_t controlling_ = 0;
    index::IndexEntry entry_;  // of the current record in the controlling order, if known
    bool entry_known_ = false;
    // For a step: where it begins and what it finds. They keep their memory for the next one.
    index::IndexEntry from_, found_;
    struct OrderScopes {
        index::Scope limits;
        Value top;
        Value bottom;
    };
    std::vector<OrderScopes> scopes_;  // per attached order
    Filter filter_;
    std::function<void()> follower_;
    MemoFile::Clock::time_point place_checked_ = MemoFile::Clock::now();
    std::uint64_t moment_ = 0;  // of the engine, when something was last remembered of the files
    std::chrono::steady_clock::time_point trusted_until_{};  // the controlling order's index
};

template <class Step>
auto LocalTable::reaching(Step step) {
    constexpr int kMostTries = 4;
    for (int tries = 1;; ++tries) {
        try {
            if (lost()) reopen();
            return step();
        } catch (const platform::ConnectionLost& loss) {
            if (tries == kMostTries || loss.unreachable()) throw;
        }
    }
}

}  // namespace brenik::local
