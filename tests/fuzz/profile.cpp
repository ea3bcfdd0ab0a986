// A settings file of any content, asked for what the library asks. Two bytes of UTF-16 may become
// three of UTF-8.

#include "platform/profile.h"

#include "fuzz.h"

using brenik::platform::profile_string;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string path = brenik::fuzz::write_file("LAWSYS.INI", {bytes, size});
    for (const char* section : {"Main", "Setup", "", "["}) {
        for (const char* key : {"MyFirm", "LinkType", "", "="}) {
            const std::string value = profile_string(section, key, "default", path);
            brenik::fuzz::require(value == "default" || value.size() <= 2 * size);
        }
    }
    return 0;
}
