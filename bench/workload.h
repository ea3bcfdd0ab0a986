// The operations that the benchmark measures, each workload on its own tables.
//
// On a sample practice, through the twelve exports, as a host calls them:
//   start-stop   BrenikShutDown and BrenikInitialize: seven tables with their indexes
//   my-firm      BrenikGetMyFirm: the firm's contact, by the ID in the settings
//   seek-id      BrenikGetU_ID: the identifier of a contact, by its ID
//   edit-start   BrenikEditStart: a contact, sought by identifier and read into the buffer
//   edit-end     an edit of plain fields: EditStart, two SetField, EditEnd (lock, write, journal)
//   edit-key     an edit of one indexed field, with the same calls
//   add-end      a new contact: AddStart, five SetField, AddEnd (counter, record, keys, journal)
//   add-linked   a new matter with its link to a contact
//
// On the same practice's contacts, at the engine's seam:
//   append       a record with five fields and all its keys, without counter and journal
//   append-whole a record with all its fields but the memo, a different key in each order, a raised
//                counter and an entry in the journal
//   put          a locked change of a plain field
//   put-key      a locked change of an indexed field
//   seek-uid     a seek for an identifier; one field is read
//   seek-name    a seek for the first letters of a name; one field is read
//   walk         one step in the order of names; one field is read
//   scan         one step in file order; one field is read
//
// On a table with one short key, in random order:
//   first-count  counting the keys after the index has changed: reads the headers of all leaves
//   key-count    counting the keys within random scopes
//   key-number   the position of a record's key, after a go-to by record number
//   skip-far     a skip from the top to a key by its position, then back by half as many
//   walk-keys    one step in key order, for comparison: without counts, reaching the middle would
//                take half as many steps as there are keys

#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace brenik::bench {

inline constexpr std::size_t kSteps = 100;  // of a walk, in one batch

struct Operation {
    std::string name;
    // Runs the operation `batch` times. Which records it touches follows from the previous runs.
    std::function<void()> run;
    std::size_t batch = 1;
    std::size_t most = 0;  // upper limit on runs, for slow operations; 0: no limit
};

// Keeps its tables open for its lifetime. A process may have one at a time.
class Workload {
  public:
    virtual ~Workload() = default;
    virtual std::vector<Operation> operations() = 0;
};

// `practice` is a fresh sample. Any failure ends the process with a message.
std::unique_ptr<Workload> host_workload(const std::filesystem::path& practice);
std::unique_ptr<Workload> seam_workload(const std::filesystem::path& practice);
// Those of the operations above that SQLite can do, on a database that was made from the practice.
std::unique_ptr<Workload> sqlite_workload(const std::filesystem::path& database,
                                          const std::filesystem::path& practice);
// Creates a table of `keys` records in `folder`.
std::unique_ptr<Workload> key_workload(const std::filesystem::path& folder, std::size_t keys);

}  // namespace brenik::bench
