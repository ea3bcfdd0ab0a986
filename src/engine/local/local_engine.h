// The embedded engine: the Engine interface over files of our own reading and writing.

#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "engine/engine.h"
#include "engine/locks/open_file.h"

namespace brenik::local {

class LocalTable;

// Settings that every table of an engine looks at.
struct EngineSettings {
    bool deleted_hidden = false;
    bool full_durability = false;
    int automatic_order = 1;
    int automatic_share = 0;
};

class LocalEngine : public Engine {
  public:
    ~LocalEngine() override;

    std::unique_ptr<Table> open(const std::string& path, TableSharing sharing) override;
    std::string last_error() const override;
    // The open, or the attaching of an index, that was refused last.
    const std::optional<locks::Refused>& refusal() const { return refusal_; }
    // Tables that are opened from now on are only read, which needs no permission to write.
    void set_read_only(bool on) { read_only_ = on; }
    int set_server_type(int type) override;
    int server_loaded(const std::string& folder) override;
    bool set_proprietary_locking(bool on) override;
    bool set_deleted_hidden(bool on) override;
    bool deleted_hidden() const override { return settings_.deleted_hidden; }
    int automatic_order() const override { return settings_.automatic_order; }
    void set_automatic_order(int order) override { settings_.automatic_order = order; }
    int automatic_share() const override { return settings_.automatic_share; }
    void set_automatic_share(int share) override { settings_.automatic_share = share; }
    void set_full_durability(bool on) override;
    int write_all_records() override;
    int close_all_tables() override;

  private:
    friend class LocalTable;

    // The status that answers a fault.
    int note(const std::exception& fault) noexcept;
    template <class Step>
    int for_each_table(Step step) noexcept;

    EngineSettings settings_;
    bool proprietary_locking_ = false;
    bool read_only_ = false;
    std::optional<locks::Refused> refusal_;
    std::string last_error_;  // while there is no refusal
    std::set<LocalTable*> tables_;
};

}  // namespace brenik::local
