// One workstation at a practice, as the fault and soak tests want it: the library's own calls for
// what hosts can do, the tables behind them for what only companion programs do (deleting,
// recalling, walking).

#pragma once

#include <string>
#include <utility>
#include <vector>

#include "BrenikDB/process_session.h"
#include "api/bridge.h"

namespace brenik::faults {

// Ends a workstation's work: a call has answered something else than success.
struct Refused {
    int code;
};

class Workstation {
  public:
    using Values = std::vector<std::pair<std::string, std::string>>;

    // Throws Refused when the practice cannot be opened.
    explicit Workstation(std::string folder);

    // The identifier of the new record.
    std::string add(int table, const Values& values, const std::string& contact = "");
    void edit(int table, const std::string& identifier, const Values& values);
    void report_deleted(int table, RecordNumber record);
    void shut_down() { bridge_.shut_down(); }

    // The table of a work area, made current; opened by name where the practice's own start-up
    // does not open it.
    Table& table(int area) { return session().areas.table(area, "workstation"); }
    Table& open(int area, const std::string& name);
    // Runs something on tables themselves under the barrier that the library's calls have.
    template <class Work>
    void guarded(Work work);
    Session& session() { return process_session(); }
    const std::string& folder() const { return folder_; }

  private:
    void expect_success(Bridge::Code code);

    Bridge bridge_{process_session};
    std::string folder_;
};

template <class Work>
void Workstation::guarded(Work work) {
    try {
        work();
    } catch (const EngineFault&) {
        session().areas.release_all_locks();
        throw Refused{14};
    }
}

}  // namespace brenik::faults
