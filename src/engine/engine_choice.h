// Which engine opens the tables of a practice: what its settings ask for, and the answer.
//
// The session and the tool share the answer of choose_engine() (choice/choose_engine.h). Tests
// supply a chooser of their own.

#pragma once

#include <functional>
#include <memory>
#include <string>

#include "engine/engine.h"

namespace brenik {

// The embedded engine works on the files itself. The client engine calls the client library of a
// database server.
enum class EngineKind { kEmbedded, kClient };

// The keys of section Main in the practice's LAWSYS.INI.
struct EngineSettings {
    std::string engine;      // Engine
    double server_type = 0;  // nServerType
};

struct EngineChoice {
    EngineKind kind = EngineKind::kEmbedded;
    std::string reason;   // why this engine, for people
    std::string warning;  // the setting that was not understood, and what applies; often empty
    std::string problem;  // why the engine can open no table; empty if it can
    std::function<std::unique_ptr<Engine>()> make;
};

using EngineChooser = std::function<EngineChoice(const EngineSettings&)>;

}  // namespace brenik
