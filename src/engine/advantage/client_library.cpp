// Finds the library and its functions, and words what is missing.

#include "engine/advantage/client_library.h"

#include <map>
#include <utility>

#include "platform/folders.h"
#include "platform/process.h"

namespace brenik::advantage {
namespace {

constexpr const char* kVariable = "BRENIK_ACE_LIBRARY";
constexpr const char* kStem = "ace";

platform::DynamicLibrary load_file_or_installed(const std::string& named) {
    return named.empty()
               ? platform::DynamicLibrary::load_installed(platform::library_file_name(kStem))
               : platform::DynamicLibrary::load_file(named);
}

std::string not_loaded(const platform::DynamicLibrary& file, bool is_named) {
    const std::string problem = file.path() + " cannot be loaded: " + file.why_not() + "; ";
    return is_named ? problem + "correct " + kVariable + ", or remove it"
                    : problem + "install the client of the database server, or give its path in " +
                          kVariable;
}

}  // namespace

std::shared_ptr<const ClientLibrary> ClientLibrary::load() {
    struct Loaded {
        std::shared_ptr<const ClientLibrary> library;
        unsigned generation;
    };
    static std::map<std::string, Loaded> loaded;  // by what the variable names

    const std::string named = platform::path_variable(kVariable);
    const unsigned generation = platform::process_generation();
    if (const auto found = loaded.find(named); found != loaded.end()) {
        // The child of a fork shares the connections that the library has made: both would talk to
        // the server over them.
        if (found->second.generation == generation) return found->second.library;
        const std::shared_ptr<ClientLibrary> parents(
            new ClientLibrary(found->second.library->file_));
        parents->problem_ = parents->path() +
                            " was loaded by the parent of this process and serves it alone; use it "
                            "in a process that is started anew";
        return parents;
    }
    std::shared_ptr<ClientLibrary> library(new ClientLibrary(load_file_or_installed(named)));
    if (!library->file_.loaded()) {
        library->problem_ = not_loaded(library->file_, !named.empty());
        return library;  // not kept: it may be installed by the next time
    }
    library->find_functions();
    loaded.emplace(named, Loaded{library, generation});
    return library;
}

ClientLibrary::ClientLibrary(platform::DynamicLibrary file) : file_(std::move(file)) {}

#define BRENIK_CLIENT_FIND(NAME, ...) NAME = reinterpret_cast<decltype(NAME)>(file_.find(#NAME));
void ClientLibrary::find_required() { BRENIK_CLIENT_REQUIRED(BRENIK_CLIENT_FIND) }
void ClientLibrary::find_optional() { BRENIK_CLIENT_OPTIONAL(BRENIK_CLIENT_FIND) }
#undef BRENIK_CLIENT_FIND

void ClientLibrary::find_functions() {
    version_ = file_.version();
    find_required();
    find_optional();
    std::string missing;
    for (const Function& function : functions()) {
        if (!function.required || function.found) continue;
        missing += (missing.empty() ? "" : ", ") + std::string(function.name);
    }
    if (missing.empty()) return;
    problem_ = path() + " lacks what this engine needs: " + missing +
               "; install a client of the database server that has it";
}

std::vector<ClientLibrary::Function> ClientLibrary::functions() const {
    return {
#define BRENIK_CLIENT_REQUIRED_ROW(NAME, ...) {#NAME, true, NAME != nullptr},
#define BRENIK_CLIENT_OPTIONAL_ROW(NAME, ...) {#NAME, false, NAME != nullptr},
        BRENIK_CLIENT_REQUIRED(BRENIK_CLIENT_REQUIRED_ROW)
            BRENIK_CLIENT_OPTIONAL(BRENIK_CLIENT_OPTIONAL_ROW)
#undef BRENIK_CLIENT_REQUIRED_ROW
#undef BRENIK_CLIENT_OPTIONAL_ROW
    };
}

}  // namespace brenik::advantage
