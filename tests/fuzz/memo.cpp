// Reads and writes memos in a file of arbitrary bytes, under each version of the format.

#include "engine/local/memo_file.h"
#include "fuzz.h"

using namespace brenik;

namespace {

void use(const std::string& path, Byte version) {
    const auto memos = local::MemoFile::open(path, version, {});
    for (std::uint32_t block = 0; block < 64; ++block) {
        fuzz::allow_faults([&] { memos->read(block); });
    }
    fuzz::allow_faults([&] { memos->read(0xFFFFFFFF); });
    for (std::uint32_t block = 8; block < 12; ++block) {
        fuzz::allow_faults([&] {
            memos->release(block);
            const std::string text(block * 40, 'm');
            fuzz::require(memos->read(memos->write(text, false)) == text);
        });
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    for (const char* name : {"T.FPT", "T.DBT"}) fuzz::write_file(name, {bytes, size});
    for (const Byte version : {Byte{0xF5}, Byte{0x83}, Byte{0x8B}}) {
        fuzz::allow_faults([&] { use(fuzz::folder().string() + "/T.DBF", version); });
    }
    return 0;
}
