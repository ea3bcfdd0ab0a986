// The embedded engine: implements the Engine interface on files that it reads and writes itself.

#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "engine/engine.h"
#include "engine/index/cdx_pages.h"
#include "util/bytes.h"

namespace brenik::local {

class LocalTable;

// What the loss of a share's session left unfinished in the index of a table. Closing the table
// keeps it, because a host may begin a new session before the share can be reached again.
struct Unsettled {
    // A record whose keys in the index may be those of either version, of both, or some of each.
    struct Edit {
        RecordNumber record;
        std::vector<Byte> before;
        std::vector<Byte> after;
    };
    std::vector<Edit> edits;
    bool index = false;  // the index may contradict itself, and is to be rebuilt

    bool any() const { return index || !edits.empty(); }
};

class LocalEngine : public Engine {
  public:
    ~LocalEngine() override;

    std::string name() const override { return "embedded"; }
    std::string version() const override;
    OpenAnswer open(const std::string& path, TableSharing sharing, int controlling = 1) override;
    void begin_call() override { end_moment(); }
    std::string last_error() const override { return last_error_; }
    // Opens tables from now on for reading only, which needs no write permission.
    void set_read_only(bool on) { read_only_ = on; }
    // From now on opens tables for reading only, and even if the memo file or the structural index
    // cannot be opened; then calls `tell` with the reason. Such a table has no orders without its
    // index. Without its memo file, reading a memo throws EngineFault kDamagedFile unless the memo
    // is empty.
    void set_lenient(std::function<void(const Refusal&)> tell) {
        read_only_ = true;
        tell_unavailable_ = std::move(tell);
    }
    int set_server_type(int type) override;
    int server_loaded(const std::string& folder) override;
    bool set_proprietary_locking(bool on) override;
    bool set_deleted_hidden(bool on) override;
    bool deleted_hidden() const override { return deleted_hidden_; }
    void set_full_durability(bool on) override { full_durability_ = on; }
    bool full_durability() const { return full_durability_; }
    void set_index_cache(std::size_t bytes) override {
        index_cache_ = bytes != 0 ? bytes : index::kDefaultCacheBytes;
    }
    int write_all_records() override;
    int close_all_tables() override;

  private:
    friend class LocalTable;

    // What a table remembers of its files for some milliseconds is valid in one moment only. A call
    // of the host begins a new one, and so does every lock and every write of this session.
    void end_moment() { ++moment_; }

    // Keeps the fault's text for last_error() and returns its status.
    int note(const std::exception& fault) noexcept;
    // Runs a step that opens a file of a table. A lenient engine passes a refusal on instead.
    void open_part(const std::function<void()>& open);
    template <class Step>
    int for_each_table(Step step) noexcept;

    bool deleted_hidden_ = false;
    bool full_durability_ = false;
    bool proprietary_locking_ = false;
    bool read_only_ = false;
    std::function<void(const Refusal&)> tell_unavailable_;  // empty: not lenient
    std::size_t index_cache_ = index::kDefaultCacheBytes;
    std::uint64_t moment_ = 0;
    std::string last_error_;
    std::set<LocalTable*> tables_;
    std::map<std::string, Unsettled> unsettled_;  // by the table's path
};

}  // namespace brenik::local
