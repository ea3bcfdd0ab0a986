// The second half of the seam: the object that opens tables.
//
// An engine serves one session. table.h distinguishes conflicts from faults.
//
//     local::LocalEngine engine;                                       // or another one
//     engine.set_full_durability(true);
//     OpenAnswer answer = engine.open(folder + "LAW1", TableSharing::kShared);
//     if (const auto* refusal = std::get_if<Refusal>(&answer)) return tell(refusal->explanation());

#pragma once

#include <memory>
#include <string>
#include <variant>

#include "engine/table.h"

namespace brenik {

enum class TableSharing { kShared, kExclusive };

// The types of server: the local one opens the files itself, the remote one is a process beside
// them.
inline constexpr int kLocalServer = 1;
inline constexpr int kRemoteServer = 2;

// An open table, or the reason why the open was refused.
using OpenAnswer = std::variant<std::unique_ptr<Table>, Refusal>;

// Each engine defines its own status codes; 0 means success.
class Engine {
  public:
    virtual ~Engine() = default;

    // For reports.
    virtual std::string name() const = 0;
    virtual std::string version() const = 0;

    // Opens a table and positions it at its top. A name without extension means ".DBF". If the
    // table has a structural index, the order with the number `controlling` becomes controlling; if
    // there is no such order, none does.
    virtual OpenAnswer open(const std::string& path, TableSharing sharing, int controlling = 1) = 0;
    // Begins a call of the host. What a table has remembered of its files for some milliseconds, so
    // as to read less, ends here: a host that was told of a change finds it.
    virtual void begin_call() {}
    // Ends it, also after a fault. An engine that changes settings of the whole process for its own
    // calls puts them back here, because they belong to the host until it calls again.
    virtual void end_call() noexcept {}
    // False for an engine whose tables must not be closed while the library is being unloaded.
    virtual bool closes_at_unload() const { return true; }
    // File and reason of the last status other than 0, as text for people.
    virtual std::string last_error() const = 0;

    virtual int set_server_type(int type) = 0;
    // The best type of server that serves the folder; 0 if none does.
    virtual int server_loaded(const std::string& folder) = 0;
    // Both return the previous setting. Default: compatible locking, deleted records visible.
    virtual bool set_proprietary_locking(bool on) = 0;
    virtual bool set_deleted_hidden(bool on) = 0;
    virtual bool deleted_hidden() const = 0;
    // With full durability a record, its memos and its keys are on the disk when the call that
    // writes them returns. They reach the disk in an order in which a power failure never leaves
    // one of them referring to another that is missing. Default off.
    virtual void set_full_durability(bool on) = 0;
    // Bytes of memory for cached pages of each index file of a table that is opened from now on; 0
    // for the engine's own choice. An engine that manages its own memory ignores it.
    virtual void set_index_cache(std::size_t bytes) = 0;
    // Both continue after a table that fails, and never throw. They return the first failure's
    // status.
    virtual int write_all_records() = 0;
    // Closes every table that this engine has open. The Table objects stay valid and behave like
    // empty tables until they are destroyed.
    virtual int close_all_tables() = 0;
};

}  // namespace brenik
