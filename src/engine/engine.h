// The seam, second half: what opens tables.
//
// An engine serves one session. table.h says what is a conflict and what is a fault.
//
//     LocalEngine engine;                                              // or another one
//     engine.set_full_durability(true);
//     OpenAnswer answer = engine.open(folder + "LAW1", TableSharing::kShared);
//     if (const auto* refusal = std::get_if<Refusal>(&answer)) return tell(refusal->text);

#pragma once

#include <memory>
#include <string>
#include <variant>

#include "engine/table.h"

namespace brenik {

enum class TableSharing { kShared, kExclusive };

// A table or the reason why there is none.
using OpenAnswer = std::variant<std::unique_ptr<Table>, Refusal>;

// Status codes are the engine's own, 0 for success.
class Engine {
  public:
    virtual ~Engine() = default;

    // For reports.
    virtual std::string name() const = 0;
    virtual std::string version() const = 0;

    // Opens a table; a name without extension means ".DBF". Where it has a structural index, the
    // order with the number `controlling` becomes controlling, none where there is no such one. The
    // table is at its top.
    virtual OpenAnswer open(const std::string& path, TableSharing sharing, int controlling = 1) = 0;
    // What the last status other than 0 was about: file and reason, for people.
    virtual std::string last_error() const = 0;

    virtual int set_server_type(int type) = 0;
    // 0 no server answers for the folder, 1 the local server, 2 a remote server.
    virtual int server_loaded(const std::string& folder) = 0;
    // Both answer the previous setting. Default: compatible locking, deleted records visible.
    virtual bool set_proprietary_locking(bool on) = 0;
    virtual bool set_deleted_hidden(bool on) = 0;
    virtual bool deleted_hidden() const = 0;
    // With full durability a record, its memos and its keys are on the disk when the call that
    // writes them returns, and never in an order in which a power failure could leave one of them
    // naming another that is not there. Default off.
    virtual void set_full_durability(bool on) = 0;
    // Both go on past a table that fails, and never throw. The status is that of the first one.
    virtual int write_all_records() = 0;
    // Closes every table that this engine still holds open; the Table objects stay valid and
    // answer as on an empty file until they are destroyed.
    virtual int close_all_tables() = 0;
};

}  // namespace brenik
