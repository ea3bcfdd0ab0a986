// Stand-ins for everything below the operations: tables of one record in memory that refuse locks,
// opens and appends as often as a test wants, a clock that advances with every reading, and a user
// interface that records what it shows.

#pragma once

#include <functional>
#include <map>
#include <tuple>

#include "engine/local/local_engine.h"
#include "platform/clock.h"
#include "platform/ui.h"

namespace brenik::fake {

// The rows of a test that runs once per row.
template <class... Cells>
using Rows = std::vector<std::tuple<Cells...>>;

// Each reading advances the time of day by one step, and past midnight begins again near 0.
class Clock : public platform::Clock {
  public:
    platform::LocalDay today() override {
        const CivilDay day = today_.civil();
        return {day.year, day.month, day.day};
    }
    double seconds() override { return now_ += now_ + step_ < 86400 ? step_ : step_ - 86400; }
    void pause(int milliseconds) override { now_ += milliseconds / 1000.0; }

    Date today_ = Date::from_civil(1998, 1, 1);
    double now_ = 1000;
    double step_ = 0.05;
};

class UserInterface : public platform::UserInterface {
  public:
    void message_box(const std::string& text, const std::string& title, platform::Icon) override {
        boxes.push_back(title + ": " + text);
    }
    void notice(const std::string& text, const std::string& title, int duration_ms) override {
        notices.push_back(title + ": " + text);
        waited_ms += duration_ms;
    }
    void beep() override { ++beeps; }
    void set_cursor(platform::Cursor cursor) override {
        waits += cursor == platform::Cursor::kWait;
    }

    std::vector<std::string> boxes;
    std::vector<std::string> notices;
    int waited_ms = 0;
    int waits = 0;
    int beeps = 0;
};

// How a table behaves, and what was done to it. Shared with the test, which outlives the table.
struct Script {
    std::string path = "FAKE.DBF";
    record::TableLayout layout = {};
    std::vector<FieldDescription> fields = {};
    Array record = {};  // one value for each field
    int refusals = 0;   // locks and appends to refuse; negative: all of them
    int attempts = 0;
    bool automatic_orders = false;
    std::vector<std::string> orders_added = {};
    bool put_fails = false;
    bool abandoned = false;
    bool locked = false;
    std::function<bool()> attach = [] { return true; };
};

inline const Refusal kRefusal{RefusalReason::kHeld, FaultCode::kBusy, "refused"};

class Table : public brenik::Table {
  public:
    explicit Table(Script& script) : script_(script) {}

    const std::vector<FieldDescription>& fields() const override { return script_.fields; }
    const std::string& path() const override { return script_.path; }
    const record::TableLayout& layout() const override { return script_.layout; }
    record::RecordView record() override { return {}; }
    void go_to(RecordNumber) override {}
    void go_top() override {}
    void go_bottom() override {}
    void skip(std::int64_t) override {}
    bool end_of_file() override { return false; }
    bool beginning_of_file() override { return false; }
    RecordNumber record_number() override { return 7; }
    RecordNumber record_count() override { return 12; }
    bool deleted() override { return false; }
    void set_follower(std::function<void()>) override {}
    Value field_get(std::size_t position) override { return script_.record.at(position - 1); }
    void field_put(std::size_t position, const Value& value) override {
        if (script_.put_fails)
            throw EngineFault(FaultCode::kInputOutput, "put", "the disk is full");
        script_.record.at(position - 1) = value;
    }
    void mark_deleted() override {}
    void recall() override {}
    int refresh_record() override { return 0; }
    bool lock_record(RecordNumber, LockTry) override { return script_.locked = !refuse(); }
    bool lock_table(LockTry) override { return script_.locked = !refuse(); }
    void unlock_record(RecordNumber) override { script_.locked = false; }
    void unlock_all() override { script_.locked = false; }
    bool owns(RecordNumber) const override { return script_.locked; }
    bool append_blank(bool, LockTry) override { return !refuse(); }
    void begin_record() override {}
    void require_place() override {}
    Added add_record(LockTry, std::size_t, Leave) override {
        return refuse() ? Added::kRefused : Added::kDone;
    }
    std::optional<std::string> last_key(std::size_t, const std::string&, Wait) override {
        return {};
    }
    void abandon_changes() noexcept override { script_.abandoned = true; }
    void commit() override {}
    bool opened_orders_automatically() const override { return script_.automatic_orders; }
    void clear_orders() override { script_.orders_added.clear(); }
    std::optional<Refusal> add_orders(const std::string& file, int) override {
        script_.orders_added.push_back(file);
        return script_.attach() ? std::nullopt : std::optional(kRefusal);
    }
    std::size_t order_count() const override { return 0; }
    std::vector<std::size_t> orders_of(const std::string&) const override { return {}; }
    std::string_view order_name(std::size_t) const override { return {}; }
    OrderDescription order_description(std::size_t) const override { return {}; }
    std::size_t order_number() const override { return 0; }
    bool set_order(std::size_t) override { return false; }
    bool seek(const Value&, SeekMode, SeekEnd) override { return false; }
    Value scope(ScopeEnd) const override { return {}; }
    void set_scope(ScopeEnd, const Value&) override {}
    std::size_t key_count(std::size_t, KeySet) override { return 12; }
    std::size_t key_number(std::size_t, KeySet) override { return 7; }
    void set_filter(Filter) override {}
    FilterOptimisation filter_optimisation() const override { return FilterOptimisation::kNone; }

  private:
    bool refuse() {
        ++script_.attempts;
        return script_.refusals < 0 || script_.attempts <= script_.refusals;
    }

    Script& script_;
};

class Engine : public local::LocalEngine {
  public:
    OpenAnswer open(const std::string& path, TableSharing, int) override {
        opened.push_back(path);
        if (damaged) {
            return Refusal{RefusalReason::kDamaged, FaultCode::kDamagedFile, path + ": damaged"};
        }
        if (refusals < 0 || static_cast<int>(opened.size()) <= refusals) return kRefusal;
        return std::make_unique<Table>(tables[path]);
    }

    int refusals = 0;  // opens to refuse; negative: all of them
    bool damaged = false;
    std::vector<std::string> opened;
    std::map<std::string, Script> tables;
};

}  // namespace brenik::fake
