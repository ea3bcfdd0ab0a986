// A folder with a few of a practice's tables, and workstations that share it: sessions of their own
// over the embedded engine, each with a clock and a user interface that take no real time.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "c_source/Strings.h"
#include "engine/local/create.h"
#include "engine/local/local_engine.h"
#include "fake_engine.h"
#include "session/session.h"
#include "temporary_folder.h"

namespace brenik::fake {

struct Column {
    const char* name;
    char type;
    std::uint32_t width;
};

class Practice {
  public:
    std::string path(const std::string& file) const { return (folder_ / file).string(); }
    std::string data_path() const { return folder_.string() + "\\"; }

    void make(const std::string& name, const std::vector<Column>& columns,
              const std::vector<local::TagDefinition>& tags = {}) const {
        local::TableLayout layout;
        for (const Column& column : columns) {
            local::Field& field = layout.fields.emplace_back();
            field.name = column.name;
            field.type = column.type;
            field.width = column.width;
        }
        local::create_table(path(name + ".DBF"), layout);
        if (!tags.empty()) local::create_index(path(name + ".DBF"), tags);
    }

  private:
    TemporaryFolder folder_;
};

struct Workstation {
    explicit Workstation(const Practice& practice) : folder(practice) {
        session.variables.PUBLICVARS = std::make_shared<Array>(41);
        (*session.variables.PUBLICVARS)[23] = practice.data_path();
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
        brenik::Table& table = session.areas.table("add");
        for (std::size_t i = 0; i < values.size(); ++i) table.field_put(i + 1, values[i]);
        table.unlock_all();
    }
    std::string text(int area, const char* field) { return CAST(session.areas.field(area, field)); }

    const Practice& folder;
    local::LocalEngine engine;
    Clock clock;
    UserInterface ui;
    Session session{engine, clock, ui};
};

}  // namespace brenik::fake
