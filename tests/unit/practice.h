// A folder with a few of a practice's tables, and workstations that share it: sessions of their own
// over the embedded engine, each with a clock and a user interface that take no real time.

#pragma once

#include <string>

#include "c_source/Strings.h"
#include "session/session.h"
#include "stand_ins.h"
#include "tables.h"

namespace brenik::fake {

using Practice = TableFolder;

struct Workstation {
    explicit Workstation(const Practice& practice) : folder(practice) {
        session.variables.PUBLICVARS = std::make_shared<Array>(41);
        session.areas.set_default_folder(practice.data_path());
        session.variables.TODAY = Date::from_ymd("20031127");
        session.variables.MOPERATOR = "JON";
    }

    // Opens a table of the practice in a work area, which becomes current.
    brenik::Table& open(int area, const std::string& file, const std::string& alias = {},
                        TableSharing sharing = TableSharing::kShared) {
        session.areas.select(area);
        session.areas.open(folder.path(file), alias.empty() ? file : alias, sharing);
        return session.areas.table("open");
    }
    // Appends a record with these values and leaves it unlocked.
    void add(const Array& values) {
        session.areas.append_blank(false);
        put_and_unlock(session.areas.table("add"), values);
    }
    std::string text(int area, const char* field) { return CAST(session.areas.field(area, field)); }

    const Practice& folder;
    local::LocalEngine engine;
    Clock clock;
    UserInterface ui;
    Session session{engine, clock, ui};
};

}  // namespace brenik::fake
