// One workstation at a practice, as the fault and soak tests want it: the library's own calls for
// what hosts can do, the tables behind them for what only companion programs do (deleting,
// recalling, walking).

#pragma once

#include <string>
#include <utility>
#include <vector>

#include "BrenikDB/process_session.h"
#include "brenikdb.h"

namespace brenik::faults {

// Ends a workstation's work: a call has answered something else than success.
struct Refused {
    int code;
};

class Workstation {
  public:
    using Values = std::vector<std::pair<std::string, std::string>>;

    // Throws Refused when the practice cannot be opened.
    explicit Workstation(std::string folder) : folder_(std::move(folder)) {
        expect_success(BrenikInitialize(folder_.c_str(), 0, 0));
    }

    // The identifier of the new record.
    std::string add(int table, const Values& values, const std::string& contact = "") {
        int ignored = 0;
        expect_success(BrenikAddStart(table, &ignored));
        set_fields(table, values);
        char identifier[8] = {};
        contact.copy(identifier, 7);
        expect_success(BrenikAddEnd(table, identifier));
        return identifier;
    }
    void edit(int table, const std::string& identifier, const Values& values) {
        int ignored = 0;
        expect_success(BrenikEditStart(table, identifier.c_str(), &ignored));
        set_fields(table, values);
        expect_success(BrenikEditEnd(table, 0));
    }
    void report_deleted(int table, RecordNumber record) {
        expect_success(BrenikDeletedRecord(table, static_cast<int>(record)));
    }
    void shut_down() { BrenikShutDown(); }

    // The table of a work area, made current; opened by name where the practice's own start-up
    // does not open it.
    Table& table(int area) { return session().areas.table(area, "workstation"); }
    Table& open(int area, const std::string& name) {
        WorkAreas& areas = session().areas;
        areas.select(area);
        if (!areas.used()) areas.open(folder_ + "/" + name, std::nullopt, TableSharing::kShared);
        return table(area);
    }
    // Runs something on tables themselves under the barrier that the library's calls have.
    template <class Work>
    void guarded(Work work) {
        try {
            work();
        } catch (const EngineFault&) {
            session().areas.release_all_locks();
            throw Refused{14};
        }
    }
    Session& session() { return process_session(); }
    const std::string& folder() const { return folder_; }

  private:
    void expect_success(BrenikCode code) {
        if (code != 0) throw Refused{static_cast<int>(code)};
    }
    void set_fields(int table, const Values& values) {
        for (const auto& [field, text] : values) {
            expect_success(BrenikSetField(table, 0, field.c_str(), text.c_str()));
        }
    }

    std::string folder_;
};

}  // namespace brenik::faults
