// The engines that the suite of the seam is run over.
//
// The suite speaks through engine.h and work_areas.h alone. An engine joins it by one line in
// kEngines; what an engine of another kind cannot do is a trait of that line.

#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "engine/local/local_engine.h"
#include "unit/tables.h"

namespace brenik {

struct EngineUnderTest {
    const char* name;
    std::unique_ptr<Engine> (*make)();
    bool has_locking_modes;  // two of them, which keep each other's users out
};

inline const EngineUnderTest kEngines[] = {
    {"Embedded", []() -> std::unique_ptr<Engine> { return std::make_unique<local::LocalEngine>(); },
     true},
};

inline std::string engine_name(const testing::TestParamInfo<EngineUnderTest>& info) {
    return info.param.name;
}

// Two workstations over a folder of tables.
class EngineTest : public testing::TestWithParam<EngineUnderTest> {
  protected:
    std::string path(const std::string& name) const { return folder_.path(name + ".DBF"); }

    // A table of text K and number N.
    void make(const std::string& name, const std::vector<Array>& rows,
              const std::vector<make::TagDefinition>& tags) const {
        folder_.make(name, {{"K", 'C', 4}, {"N", 'N', 4}}, tags, rows);
    }
    std::unique_ptr<Table> open(Engine& engine, TableSharing sharing = TableSharing::kShared) {
        return fake::open(engine, path("T"), sharing);
    }

    fake::TableFolder folder_;
    const std::unique_ptr<Engine> engine_ = GetParam().make();
    const std::unique_ptr<Engine> other_ = GetParam().make();
};

}  // namespace brenik
