// The engines that the suite of the seam is run over.
//
// The suite speaks through engine.h and work_areas.h alone. An engine joins it by one line in
// kEngines; what an engine of another kind cannot do is a trait of that line. The client engine
// runs over the stand-in for its library, which counts whatever breaks the library's rules.

#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "engine/advantage/advantage_engine.h"
#include "engine/local/local_engine.h"
#include "unit/tables.h"

namespace brenik {

// Of the client library: 1 serves the files of this machine, 2 is a server elsewhere.
template <int server>
std::unique_ptr<Engine> make_client_engine() {
    auto engine = std::make_unique<advantage::AdvantageEngine>(advantage::ClientLibrary::load());
    engine->set_server_type(server);
    return engine;
}

inline std::string broken_client_rules() {
    const auto told = advantage::ClientLibrary::load()->file().find("StandInViolations");
    return told ? reinterpret_cast<const char*(BRENIK_CLIENT_CALL*)()>(told)()
                : "there is no stand-in";
}

struct EngineUnderTest {
    const char* name;
    std::unique_ptr<Engine> (*make)();
    bool has_locking_modes;  // two of them, which keep each other's users out
    // Otherwise the other locking mode is told as any other use, and what is not supported as
    // damage.
    bool tells_refusals_apart;
};

inline const EngineUnderTest kEngines[] = {
    {"Embedded", []() -> std::unique_ptr<Engine> { return std::make_unique<local::LocalEngine>(); },
     true, true},
    {"LocalClient", make_client_engine<1>, false, false},
    {"RemoteClient", make_client_engine<2>, true, false},
};

inline std::string engine_name(const testing::TestParamInfo<EngineUnderTest>& info) {
    return info.param.name;
}

// Two workstations over a folder of tables.
class EngineTest : public testing::TestWithParam<EngineUnderTest> {
  protected:
    void TearDown() override { EXPECT_EQ(broken_client_rules(), ""); }

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
