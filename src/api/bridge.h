// The way from the exports' machine-level arguments to the operations, and back.
//
// One function for each export. It looks the operation up by name, hands the arguments over as
// values, copies by-reference results into the host's memory and answers the operation's code. It
// is also the only barrier: whatever is thrown below ends here as code kStoppedByFault, with one
// line in the trace log when tracing is on, every lock released and the session still usable.

#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "BrenikDB/registry.h"

namespace brenik {

class Bridge {
  public:
    using SessionSource = Session& (*)();
    using LookUp = Operation (*)(std::string_view name);
    using Code = std::uint32_t;

    constexpr explicit Bridge(SessionSource session, LookUp look_up = find_operation)
        : session_(session), look_up_(look_up) {}

    Code initialize(const char* data_path, int trace) const noexcept;
    Code shut_down() const noexcept;
    Code added_record(int table, int record) const noexcept;
    Code deleted_record(int table, int record) const noexcept;
    Code add_start(int table, int* in_out) const noexcept;
    Code add_end(int table, char* identifier) const noexcept;
    Code edit_start(int table, const char* identifier, int* in_out) const noexcept;
    Code edit_begin(int table, int record, int* in_out) const noexcept;
    Code set_field(int table, int record, const char* field, const char* text) const noexcept;
    Code edit_end(int table, int record) const noexcept;
    Code get_my_firm(char* firm) const noexcept;
    Code get_u_id(int table, const char* key, char* identifier) const noexcept;

  private:
    template <class Call>
    Code guarded(std::string_view operation, Call call) const noexcept;
    template <class... Arguments>
    Code forward(const char* name, Arguments... arguments) const noexcept;
    template <class... Arguments>
    Code forward_start(const char* name, int* in_out, int table,
                       Arguments... arguments) const noexcept;
    Code run(std::string_view name, Operation operation, std::span<Value> arguments) const;
    void recover(std::string_view operation, std::string_view fault) const noexcept;

    SessionSource session_;
    LookUp look_up_;
};

}  // namespace brenik
