// The client library, loaded at run time, and its functions.
//
//     const auto library = ClientLibrary::load();
//     if (!library->usable()) return tell(library->problem());
//     Status status = library->AdsSkip(table, 1);
//
// Only AdvantageEngine::client() hands the library to code that calls it: what a call needs, and
// what must be put back after it, is arranged there.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "engine/advantage/client_functions.h"
#include "platform/dynamic_library.h"

namespace brenik::advantage {

class ClientLibrary {
  public:
    // Loads the file that $BRENIK_ACE_LIBRARY names by its absolute path, else the library of the
    // usual name where the system finds it. Never throws: what is wrong is problem(). A library
    // that was loaded is kept for the whole process.
    static std::shared_ptr<const ClientLibrary> load();

    // The library is loaded and has every required function.
    bool usable() const { return problem_.empty(); }
    // What is missing, with the file's name, and what to do; empty when usable.
    const std::string& problem() const { return problem_; }
    // The file that the system found; as named if it was not loaded.
    const std::string& path() const { return file_.path(); }
    // The file's version; empty if it states none.
    const std::string& version() const { return version_; }
    const platform::DynamicLibrary& file() const { return file_; }

    struct Function {
        const char* name;
        bool required;
        bool found;
    };
    // Every row of client_functions.h.
    std::vector<Function> functions() const;

    // One member for each row of client_functions.h, null if the library does not have it.
    // NOLINTBEGIN(readability-identifier-naming)
#define BRENIK_CLIENT_MEMBER(NAME, ...) Status(BRENIK_CLIENT_CALL* NAME)(__VA_ARGS__) = nullptr;
    BRENIK_CLIENT_REQUIRED(BRENIK_CLIENT_MEMBER)
    BRENIK_CLIENT_OPTIONAL(BRENIK_CLIENT_MEMBER)
#undef BRENIK_CLIENT_MEMBER
    // NOLINTEND(readability-identifier-naming)

  private:
    explicit ClientLibrary(platform::DynamicLibrary file);
    void find_functions();
    void find_required();
    void find_optional();

    platform::DynamicLibrary file_;
    std::string version_;
    std::string problem_;
};

}  // namespace brenik::advantage
