// An index file of any content: every tag walked both ways, searched, added to and taken from.

#include "engine/index/cdx_file.h"
#include "fuzz.h"

using namespace brenik;

namespace {

constexpr std::size_t kMostSteps = 4000;

void walk(index::CdxTree& tag) {
    index::IndexEntry entry, last;
    std::size_t steps = 0;
    for (bool any = tag.first(entry); any && ++steps < kMostSteps; any = tag.after(entry, entry)) {
        // A tree in disorder may be refused, but not answered from: that is how walks never end.
        fuzz::require(steps == 1 || last.key < entry.key ||
                      (last.key == entry.key && last.record <= entry.record));
        last = entry;
    }
    steps = 0;
    for (bool any = tag.last(entry); any && ++steps < kMostSteps; any = tag.before(entry, entry)) {
    }
    tag.at_or_after(as_bytes("M"), 0, entry);
    tag.at_or_before(as_bytes("M"), 7, entry);
}

std::string made_up_key(const index::CdxTree& tag, int number) {
    std::string key = std::to_string(number * 7919 % 100);
    key.resize(tag.description().key_length, number % 3 == 0 ? 'x' : static_cast<char>(0x20));
    return key;
}

void change(index::CdxFile& file, index::CdxTree& tag) {
    index::IndexEntry entry;
    for (int number = 0; number < 60; number += 6) {
        index::CdxFile::Change change(file);
        for (int i = number; i < number + 6; ++i) {
            change.insert(tag, as_bytes(made_up_key(tag, i)), static_cast<RecordNumber>(1 + i));
            if (i % 4 == 0 && tag.first(entry)) {
                change.remove(tag, as_bytes(entry.key), entry.record);
            }
        }
        change.publish();
    }
    // What was put in and not taken out is there.
    fuzz::require(tag.at_or_after(as_bytes(made_up_key(tag, 59)), 60, entry));
}

void use(const std::string& path) {
    const auto file = index::CdxFile::open(path, {});
    for (const auto& tag : file->tags()) {
        if (!tag->description().unsupported.empty()) continue;
        fuzz::allow_faults([&] { walk(*tag); });
        fuzz::allow_faults([&] { change(*file, *tag); });
        fuzz::allow_faults([&] { walk(*tag); });
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string path = fuzz::write_file("T.CDX", {bytes, size});
    fuzz::allow_faults([&] { use(path); });
    return 0;
}
