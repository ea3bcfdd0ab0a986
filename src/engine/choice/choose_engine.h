// Chooses between the embedded engine and the client engine.

#pragma once

#include "engine/engine_choice.h"

namespace brenik {

// "advantage" is the client engine, "embedded" the embedded one, in any letter case. With "auto",
// no text or any other, it is the client engine if the practice asks for a remote server and the
// client library can be used: a library that happens to lie on the machine moves no practice to
// another engine. Loads the library only if the answer depends on it.
EngineChoice choose_engine(const EngineSettings& settings);

// True if the choice depends on the library, or falls on the client engine: then a server may hold
// the practice's files.
bool asks_for_client(const EngineSettings& settings);

}  // namespace brenik
