// The rule by which an engine is chosen, and what is told about it.

#include "engine/choice/choose_engine.h"

#include <string_view>
#include <utility>

#include "engine/advantage/advantage_engine.h"
#include "engine/advantage/client_library.h"
#include "engine/local/local_engine.h"
#include "util/runtime.h"

namespace brenik {

namespace {

EngineChoice embedded(std::string reason) {
    return {.kind = EngineKind::kEmbedded,
            .reason = std::move(reason),
            .warning = {},
            .problem = {},
            .make = std::make_unique<local::LocalEngine>};
}

EngineChoice client(std::string reason,
                    const std::shared_ptr<const advantage::ClientLibrary>& library) {
    return {.kind = EngineKind::kClient,
            .reason = std::move(reason),
            .warning = {},
            .problem = library->problem(),
            .make = [library] { return std::make_unique<advantage::AdvantageEngine>(library); }};
}

enum class Wanted { kAuto, kClient, kEmbedded, kUnknown };

// `text` without blanks around it.
Wanted wanted_by(std::string_view text) {
    if (text.empty() || equal_ignoring_case(text, "auto")) return Wanted::kAuto;
    if (equal_ignoring_case(text, "advantage")) return Wanted::kClient;
    if (equal_ignoring_case(text, "embedded")) return Wanted::kEmbedded;
    return Wanted::kUnknown;
}

EngineChoice automatic(double server_type) {
    if (server_type != kRemoteServer) {
        return embedded("LAWSYS.INI asks for no remote server: nServerType is not 2");
    }
    const std::string wanted = "LAWSYS.INI asks for a remote server with nServerType=2";
    const auto library = advantage::ClientLibrary::load();
    if (!library->usable()) {
        return embedded(wanted + ", but the client library cannot be used: " + library->problem());
    }
    return client(wanted + ", and the client library can be used", library);
}

}  // namespace

EngineChoice choose_engine(const EngineSettings& settings) {
    const std::string text(trim_both(settings.engine));
    const std::string setting = "LAWSYS.INI says Engine=" + text;
    const Wanted wanted = wanted_by(text);
    if (wanted == Wanted::kClient) return client(setting, advantage::ClientLibrary::load());
    if (wanted == Wanted::kEmbedded) return embedded(setting);
    EngineChoice choice = automatic(settings.server_type);
    if (wanted == Wanted::kUnknown) {
        choice.warning = setting + ", which is none of auto, advantage and embedded; auto applies";
    }
    return choice;
}

bool asks_for_client(const EngineSettings& settings) {
    const Wanted wanted = wanted_by(trim_both(settings.engine));
    return wanted == Wanted::kClient ||
           (wanted != Wanted::kEmbedded && settings.server_type == kRemoteServer);
}

}  // namespace brenik
