// Any text as an array string. What was read can be written and read again.

#include "c_source/Strings.h"
#include "fuzz.h"
#include "unit/fake_engine.h"

using namespace brenik;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    fake::UserInterface ui;
    const std::string_view text = as_text({bytes, size});
    const ArrayReference array = STR2A(ui, text);
    fuzz::allow_faults([&] {
        const std::string written = A2STR(array);
        fake::UserInterface silent;
        fuzz::require(A2STR(STR2A(silent, written)) == written);
    });
    for (const char type : {'C', 'N', 'D', 'L', 'M', 'A'}) CASTANY(ui, std::string(text), type);
    return 0;
}
