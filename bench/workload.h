// The operations that the benchmark measures, each on tables of its own making.
//
// On a sample practice, through the twelve functions, as a host calls them:
//   start-stop   BrenikShutDown and BrenikInitialize: seven tables with their indexes
//   my-firm      BrenikGetMyFirm: the firm's contact, by the ID in the settings
//   seek-id      BrenikGetU_ID: the identifier of a contact, by its ID
//   edit-start   BrenikEditStart: a contact found by identifier and read into the buffer
//   edit-end     an edit of plain fields: EditStart, two SetField, EditEnd (lock, write, journal)
//   edit-key     an edit of one indexed field, likewise
//   add-end      an added contact: AddStart, five SetField, AddEnd (counter, record, keys, journal)
//   add-linked   an added matter with its link to a contact
//
// On the contacts of the same practice, at the engine's seam, without counter and journal:
//   append       a record with five fields and all of its keys
//   put          a locked change of a plain field
//   put-key      a locked change of an indexed field
//   seek-uid     a seek for an identifier, one field read
//   seek-name    a seek for the first letters of a name, one field read
//   walk         one step in the order of the names, one field read
//   scan         one step in the order of the file, one field read
//
// On a table of one short key in no order:
//   first-count  the keys counted after the index has changed: the headers of all leaves are read
//   key-count    the keys counted within scopes somewhere
//   key-number   the number of a record's key, the record gone to by its number
//   skip-far     from the top to a key by its number, then back by half as many
//   walk-keys    one step in the order of the keys, to compare: without counting, reaching the
//                middle takes half as many of these as there are keys

#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace brenik::bench {

struct Operation {
    std::string name;
    // Carries out `batch` of them. Which records are touched follows from the operations before.
    std::function<void()> run;
    std::size_t batch = 1;
    std::size_t most = 0;  // slow ones are measured this often at most; 0: no limit
};

// Keeps its tables open while it lives, one at a time in a process.
class Workload {
  public:
    virtual ~Workload() = default;
    virtual std::vector<Operation> operations() = 0;
};

// `practice` is a fresh sample. Every failure ends the process with a message.
std::unique_ptr<Workload> host_workload(const std::filesystem::path& practice);
std::unique_ptr<Workload> seam_workload(const std::filesystem::path& practice);
// Makes the table, of `keys` records, in `folder`.
std::unique_ptr<Workload> key_workload(const std::filesystem::path& folder, std::size_t keys);

[[noreturn]] void give_up(const std::string& reason);

}  // namespace brenik::bench
