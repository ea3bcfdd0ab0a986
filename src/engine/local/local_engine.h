// The embedded engine: the Engine interface over files of our own reading and writing.

#pragma once

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
};

class LocalEngine : public Engine {
  public:
    ~LocalEngine() override;

    std::unique_ptr<Table> open(const std::string& path, TableSharing sharing) override;
    int set_server_type(int type) override;
    int server_loaded(const std::string& folder) override;
    bool set_proprietary_locking(bool on) override;
    bool set_deleted_hidden(bool on) override;
    void set_full_durability(bool on) override;
    int write_all_records() override;
    int close_all_tables() override;

  private:
    friend class LocalTable;

    EngineSettings settings_;
    bool proprietary_locking_ = false;
    std::set<LocalTable*> tables_;
};

}  // namespace brenik::local
