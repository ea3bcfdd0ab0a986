// The embedded engine: the Engine interface over files of our own reading and writing.

#pragma once

#include <exception>
#include <memory>
#include <set>
#include <string>

#include "engine/engine.h"

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
    std::string last_error() const override { return last_error_; }
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
    std::string last_error_;
    std::set<LocalTable*> tables_;
};

}  // namespace brenik::local
