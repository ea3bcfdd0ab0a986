// What every probe works with: a fresh scratch table, and two connections that stand for two
// workstations.

#pragma once

#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "engine/advantage/assumptions.h"
#include "engine/advantage/client_library.h"
#include "engine/probes/probes.h"
#include "engine/probes/scratch_table.h"

namespace brenik::probes {

using advantage::ClientLibrary;
using advantage::Handle;
using advantage::I32;
using advantage::Status;
using advantage::U16;
using advantage::U32;

// Numbers of the library that the engine does not use.
inline constexpr U32 kReadOnly = 2;
inline constexpr U16 kTrimRight = 2;
inline constexpr U16 kRespectFilters = 1;
inline constexpr U16 kRespectScopes = 3;
inline constexpr U16 kTopOfScope = 1;
inline constexpr U16 kBottomOfScope = 2;
inline constexpr Status kInvalidRecordNumber = 5022;

// What a probe found out.
struct Answer {
    Verdict verdict;
    std::string seen;
};

inline Answer told(bool as_expected, std::string seen) {
    return {as_expected ? Verdict::kConfirmed : Verdict::kRefuted, std::move(seen)};
}
inline Answer unknown(std::string seen) { return {Verdict::kUnknown, std::move(seen)}; }

// A step that the probe needs, but does not test, was refused.
class Stopped : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

void require(Status status, const char* function);
// "status 5035", or "success".
std::string said(Status status);
// The bytes in hexadecimal.
std::string in_hex(std::string_view bytes);
std::string quoted(std::string_view text);

struct OpenHow {
    U32 options = advantage::kShared;
    U16 characters = advantage::kAnsi;
    U16 locking = advantage::kCompatibleLocking;
    U16 records_ahead = 1;  // 1: none
};

// One table handle; closed by the destructor.
class ClientTable {
  public:
    // Throws Stopped if the open is refused.
    ClientTable(const ClientLibrary& client, Handle connection, const ScratchTable& table,
                const OpenHow& how = {});
    ~ClientTable() { client_.AdsCloseTable(handle_); }
    ClientTable(const ClientTable&) = delete;
    ClientTable& operator=(const ClientTable&) = delete;

    Handle handle() const { return handle_; }
    // The order of a tag. Throws Stopped.
    Handle order(std::string_view tag) const;

    // These throw Stopped if the library refuses the step.
    void go(U32 record) const;
    void go_top(Handle object) const;
    // Leaves the record, as the engine does before it reads one anew: to the end of the table.
    void leave() const;
    // Without a requirement: what happens at the ends is what some probes ask.
    Status skip(Handle object, I32 count) const { return client_.AdsSkip(object, count); }
    void lock(U32 record) const;
    void unlock(U32 record) const;
    void set(const char* field, std::string_view text) const;
    void write() const;
    // Locks a record, changes its TEXT and unlocks it.
    void change(U32 record, std::string_view text) const;

    bool holds(U32 record) const;
    U32 record() const;
    U32 count(U16 filters) const;
    bool at_end() const;
    bool at_begin() const;
    // "record 3", "record 11, at the end".
    std::string place() const;
    // The bytes of the current record.
    std::string image() const;
    // The bytes of a field in the current record.
    std::string bytes(std::string_view field) const;
    // The same without trailing blanks.
    std::string text(std::string_view field) const;
    // A field as the library gives it.
    std::string get(const char* field, U16 trim = advantage::kNotTrimmed) const;

  private:
    const ClientLibrary& client_;
    const record::TableLayout& layout_;
    Handle handle_ = 0;
};

// Functions of the library that the engine never calls; null if the library lacks them.
struct FurtherFunctions {
    explicit FurtherFunctions(const platform::DynamicLibrary& file);

    Status(BRENIK_CLIENT_CALL* set_scope)(Handle order, U16 side, const void* key, U16 length,
                                          U16 type) = nullptr;
    Status(BRENIK_CLIENT_CALL* get_scope)(Handle order, U16 side, void* key, U16* size) = nullptr;
    Status(BRENIK_CLIENT_CALL* set_filter)(Handle table, const char* filter) = nullptr;
};

class Bench {
  public:
    // Connects twice. Throws Stopped.
    Bench(const ClientLibrary& library, const std::string& folder, U16 server_type);
    ~Bench();
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    const ClientLibrary& client() const { return client_; }
    const FurtherFunctions& further() const { return further_; }
    const std::string& folder() const { return folder_; }
    U16 server_type() const { return server_type_; }
    ScratchTable& scratch() { return scratch_; }
    const std::string& path() const { return scratch_.path(); }
    Handle first() const { return connections_[0]; }
    Handle second() const { return connections_[1]; }
    // The table on the first and on the second connection.
    std::unique_ptr<ClientTable> here(const OpenHow& how = {}) const;
    std::unique_ptr<ClientTable> there(const OpenHow& how = {}) const;
    // Opens the table without a wrapper; closes it at once if that worked.
    Status try_open(Handle connection, const std::string& path, const char* alias, U32 options,
                    U16 characters = advantage::kAnsi) const;
    // Makes the table anew, and restores the settings that a probe may have changed.
    void begin(unsigned records, TextOf text);

    // Throws Stopped.
    void connect(Handle& connection) const;

  private:
    const ClientLibrary& client_;
    FurtherFunctions further_;
    std::string folder_;
    U16 server_type_;
    ScratchTable scratch_;
    Handle connections_[2] = {0, 0};
};

// A probe as one row of a table.
struct Probe {
    std::string_view name;
    std::string_view expected;
    Answer (*run)(Bench&);
    unsigned records = kRecords;
    TextOf text = TextOf::kWindows;
};

// One table for each file of probes.
std::span<const Probe> opening_probes();
std::span<const Probe> position_probes();
std::span<const Probe> locking_probes();
std::span<const Probe> order_probes();
std::span<const Probe> value_probes();

}  // namespace brenik::probes
