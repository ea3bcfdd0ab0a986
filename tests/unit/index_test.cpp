// Index files against a model in memory, and against what lies on disk.
//
// A small reader of raw pages, written from the format alone, checks after every batch of changes
// that compression, free counts, parents and siblings are exactly what other programs rely on.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>

#include "engine/local/cdx_file.h"
#include "engine/local/lock_scheme.h"
#include "recorded_writes.h"
#include "temporary_folder.h"

namespace brenik::local {
namespace {

namespace fs = std::filesystem;
using Entry = std::pair<std::string, RecordNumber>;
using Model = std::set<Entry>;

constexpr std::uint32_t kNone = 0xFFFFFFFF;

std::vector<Byte> load_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Reads one tree page by page and collects its entries; every rule of the format is an EXPECT.
class RawTree {
  public:
    RawTree(const std::vector<Byte>& file, std::size_t header, Byte pad)
        : file_(file), key_length_(load_le16(&file[header + 12])), pad_(pad) {
        read_page(load_le32(&file[header]), 0);
        for (const auto& level : levels_) {
            for (std::size_t i = 0; i < level.size(); ++i) {
                EXPECT_EQ(load_le32(&file[level[i] + 4]), i == 0 ? kNone : level[i - 1]);
                EXPECT_EQ(load_le32(&file[level[i] + 8]),
                          i + 1 == level.size() ? kNone : level[i + 1]);
            }
        }
    }
    const std::vector<Entry>& entries() const { return entries_; }
    std::size_t depth() const { return levels_.size(); }

  private:
    void read_page(std::size_t offset, std::size_t depth) {
        ASSERT_EQ(offset % 512, 0u);
        ASSERT_LE(offset + 512, file_.size());
        if (levels_.size() <= depth) levels_.resize(depth + 1);
        levels_[depth].push_back(static_cast<std::uint32_t>(offset));
        const Byte* page = &file_[offset];
        const std::size_t count = load_le16(page + 2);
        EXPECT_EQ(load_le16(page) & 1, depth == 0 ? 1 : 0);
        if ((load_le16(page) & 2) != 0) return read_leaf(page, count, depth);
        const std::size_t step = key_length_ + 8;
        ASSERT_GE(count, 1u);
        ASSERT_LE(count, 500 / step);
        for (std::size_t i = 0; i < count; ++i) {
            const Byte* at = page + 12 + i * step;
            read_page(load_be32(at + key_length_ + 4), depth + 1);
            ASSERT_FALSE(entries_.empty());
            const Entry said{as_text({at, key_length_}), load_be32(at + key_length_)};
            EXPECT_EQ(said, entries_.back()) << "page " << offset << " entry " << i;
        }
    }

    void read_leaf(const Byte* page, std::size_t count, std::size_t depth) {
        EXPECT_TRUE(count > 0 || depth == 0);
        const unsigned bits = page[20], dup_bits = page[21], trail_bits = page[22];
        EXPECT_EQ(load_le32(page + 14), (std::uint64_t{1} << bits) - 1);
        EXPECT_EQ(page[18], (1 << dup_bits) - 1);
        EXPECT_EQ(page[19], (1 << trail_bits) - 1);
        EXPECT_TRUE(bits == 32 || bits + dup_bits + trail_bits == 8u * page[23]);
        std::size_t end = 512, stored_sum = 0;
        std::string key, previous;
        std::size_t previous_trail = 0;
        for (std::size_t i = 0; i < count; ++i) {
            std::uint64_t packed = 0;
            for (unsigned b = page[23]; b-- > 0;)
                packed = packed << 8 | page[24 + i * page[23] + b];
            const auto record = static_cast<RecordNumber>(packed & load_le32(page + 14));
            const auto dup = static_cast<std::size_t>(packed >> bits & page[18]);
            const auto trail = static_cast<std::size_t>(packed >> (bits + dup_bits) & page[19]);
            ASSERT_LE(dup + trail, key_length_);
            const std::size_t stored = key_length_ - dup - trail;
            stored_sum += stored;
            end -= stored;
            previous = key;
            key = previous.substr(0, dup) + std::string(as_text({page + end, stored})) +
                  std::string(trail, static_cast<char>(pad_));
            const std::size_t last = key.find_last_not_of(static_cast<char>(pad_));
            EXPECT_EQ(trail, key_length_ - (last == std::string::npos ? 0 : last + 1));
            std::size_t common = 0;
            while (i > 0 && common < key_length_ && key[common] == previous[common]) ++common;
            EXPECT_EQ(dup, std::min(common, key_length_ - std::max(trail, previous_trail)));
            previous_trail = trail;
            entries_.emplace_back(key, record);
        }
        EXPECT_EQ(24 + count * page[23] + load_le16(page + 12) + stored_sum, 512u);
    }

    const std::vector<Byte>& file_;
    std::size_t key_length_;
    Byte pad_;
    std::vector<std::vector<std::uint32_t>> levels_;
    std::vector<Entry> entries_;
};

class IndexTest : public testing::Test {
  protected:
    std::string path() const { return (folder_ / "T.CDX").string(); }

    static TagDescription describe(const std::string& name, std::size_t key_length, Byte pad) {
        TagDescription tag;
        tag.name = name;
        tag.key = "FIELD";
        tag.key_length = key_length;
        tag.pad = pad;
        return tag;
    }
    std::unique_ptr<CdxFile> open(Byte pad = ' ',
                                  platform::Sharing sharing = platform::Sharing::kShared) {
        auto file = CdxFile::open(path(), sharing);
        for (const auto& tag : file->tags()) tag->set_pad(pad);
        return file;
    }
    std::unique_ptr<CdxFile> make(std::size_t key_length, Byte pad,
                                  const std::vector<IndexEntry>& entries = {}) {
        CdxFile::create(path())->add_tag(describe("TAG", key_length, pad), entries);
        return open(pad);
    }
    static void put(CdxFile& file, const std::vector<Entry>& entries) {
        CdxFile::Change change(file);
        for (const Entry& e : entries) change.insert(*file.tags()[0], as_bytes(e.first), e.second);
        change.publish();
    }
    // Bytes 0 to 3 of the tag header that lies behind the directory page.
    std::vector<Entry> on_disk(Byte pad) {
        const std::vector<Byte> bytes = load_file(path());
        return RawTree(bytes, 1536, pad).entries();
    }
    // Where a tag with many leaves keeps them: the pages of its lowest level, from the left.
    std::vector<std::uint32_t> leaves() {
        const std::vector<Byte> bytes = load_file(path());
        std::vector<std::uint32_t> result;
        for (std::uint32_t page = load_le32(&bytes[1536]); page != kNone;) {
            if ((bytes[page] & 2) == 0) {
                page = load_be32(&bytes[page + 12 + load_le16(&bytes[1536 + 12]) + 4]);
                continue;
            }
            result.push_back(page);
            page = load_le32(&bytes[page + 8]);
        }
        return result;
    }
    void poke(std::uint64_t offset, const std::vector<Byte>& bytes) {
        std::fstream file(path(), std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(static_cast<std::streamoff>(offset));
        file.write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
    static std::vector<Byte> le32(std::uint32_t number) {
        std::vector<Byte> bytes(4);
        store_le32(bytes.data(), number);
        return bytes;
    }

    TemporaryFolder folder_;
};

std::vector<Entry> walk(CdxTag& tag, bool forward) {
    std::vector<Entry> found;
    IndexEntry entry;
    for (bool any = forward ? tag.first(entry) : tag.last(entry); any;
         any = forward ? tag.after(entry, entry) : tag.before(entry, entry)) {
        found.emplace_back(entry.key, entry.record);
    }
    if (!forward) std::reverse(found.begin(), found.end());
    return found;
}

void expect_walks(CdxTag& tag, const Model& model) {
    const std::vector<Entry> wanted(model.begin(), model.end());
    EXPECT_EQ(walk(tag, true), wanted);
    EXPECT_EQ(walk(tag, false), wanted);
}

void expect_seeks(CdxTag& tag, const Model& model, const Entry& probe) {
    IndexEntry found;
    const auto check = [&](bool any, auto expected) {
        ASSERT_EQ(any, expected != model.end());
        if (!any) return;
        EXPECT_EQ(Entry(found.key, found.record), *expected);
    };
    const auto before = [&](auto position) {
        return position == model.begin() ? model.end() : std::prev(position);
    };
    const Bytes key = as_bytes(probe.first);
    const std::string prefix = probe.first.substr(0, probe.first.size() / 2);
    const std::string past = prefix + std::string(probe.first.size(), '\xFF');
    check(tag.at_or_after(key, probe.second, found), model.lower_bound(probe));
    check(tag.at_or_before(key, probe.second, found), before(model.upper_bound(probe)));
    check(tag.after({probe.first, probe.second}, found), model.upper_bound(probe));
    check(tag.before({probe.first, probe.second}, found), before(model.lower_bound(probe)));
    check(tag.at_or_after(as_bytes(prefix), 9, found), model.lower_bound({prefix, 0}));
    check(tag.at_or_before(as_bytes(prefix), 9, found), before(model.upper_bound({past, kNone})));
}

// Entries by number, against a walk of the same tree.
void expect_numbers(CdxTag& tag, const std::vector<Entry>& walked, std::size_t number) {
    ASSERT_EQ(tag.count(), walked.size());
    IndexEntry found;
    ASSERT_EQ(tag.at(number, found), number < walked.size());
    if (number >= walked.size()) return;
    EXPECT_EQ(Entry(found.key, found.record), walked[number]);
    const Bytes key = as_bytes(walked[number].first);
    EXPECT_EQ(tag.count_before(key, found.record), number);
    EXPECT_EQ(tag.count_through(key, found.record), number + 1);
    const Bytes prefix = key.first(key.size() / 2);
    const auto compare = [&](const Entry& entry) {
        return entry.first.compare(0, prefix.size(), as_text(prefix));
    };
    const auto first = std::partition_point(walked.begin(), walked.end(),
                                            [&](const Entry& e) { return compare(e) < 0; });
    const auto past =
        std::partition_point(first, walked.end(), [&](const Entry& e) { return compare(e) == 0; });
    EXPECT_EQ(tag.count_before(prefix, 9), static_cast<std::size_t>(first - walked.begin()));
    EXPECT_EQ(tag.count_through(prefix, 9), static_cast<std::size_t>(past - walked.begin()));
}

// Keys as tables have them: many alike, long common beginnings, blank ends.
std::string some_key(std::mt19937& random, std::size_t length, Byte pad) {
    std::string key(length, static_cast<char>(pad));
    const bool shared = random() % 2 == 0;
    const std::size_t used = random() % (length + 1);
    for (std::size_t i = 0; i < used; ++i) {
        key[i] = static_cast<char>(shared && i + 2 < used ? 'M'
                                   : random() % 7 == 0    ? pad
                                                          : 'A' + random() % 26);
    }
    return key;
}

struct Variety {
    std::size_t key_length;
    Byte pad;
    RecordNumber largest_record;
};

class RandomChanges : public IndexTest, public testing::WithParamInterface<Variety> {};

TEST_P(RandomChanges, LeaveExactlyTheModelInEveryReader) {
    const auto [length, pad, largest] = GetParam();
    std::mt19937 random(static_cast<unsigned>(length));
    auto file = make(length, pad);
    Model model;
    for (int round = 0; round < 12; ++round) {
        const bool shrinking = round % 4 == 3;
        for (int batch = 0; batch < 50; ++batch) {
            CdxFile::Change change(*file);
            for (int step = 0; step < 10; ++step) {
                if (!model.empty() && random() % 10 < (shrinking ? 9 : 2)) {
                    auto victim = model.lower_bound({some_key(random, length, pad), 0});
                    if (victim == model.end()) victim = model.begin();
                    EXPECT_TRUE(
                        change.remove(*file->tags()[0], as_bytes(victim->first), victim->second));
                    model.erase(victim);
                    continue;
                }
                const Entry entry{some_key(random, length, pad), random() % largest + 1};
                EXPECT_EQ(change.insert(*file->tags()[0], as_bytes(entry.first), entry.second),
                          model.insert(entry).second);
            }
            const std::string absent(length, '\x7F');
            EXPECT_FALSE(change.remove(*file->tags()[0], as_bytes(absent), 1));
            EXPECT_FALSE(change.contains(*file->tags()[0], as_bytes(absent)));
            change.publish();
        }
        const std::vector<Entry> held(model.begin(), model.end());
        ASSERT_EQ(on_disk(pad), held);
        for (int seeks = 0; seeks < 20; ++seeks) {
            expect_numbers(*file->tags()[0], held, random() % (held.size() + 1));
            expect_seeks(*file->tags()[0], model, {some_key(random, length, pad), random() % 9});
        }
        expect_walks(*file->tags()[0], model);
    }
    // Emptied and filled again, the tree takes its pages from the free list.
    const auto size = fs::file_size(path());
    const std::vector<Entry> all(model.begin(), model.end());
    {
        CdxFile::Change change(*file);
        for (const Entry& e : all) change.remove(*file->tags()[0], as_bytes(e.first), e.second);
        change.publish();
    }
    EXPECT_TRUE(on_disk(pad).empty());
    put(*file, all);
    EXPECT_EQ(on_disk(pad), all);
    EXPECT_LE(fs::file_size(path()), size);
    // A build from sorted entries holds the same.
    std::vector<IndexEntry> sorted;
    for (const Entry& e : all) sorted.push_back({e.first, e.second});
    file.reset();
    file = make(length, pad, sorted);
    EXPECT_EQ(on_disk(pad), all);
    expect_walks(*file->tags()[0], model);
}

INSTANTIATE_TEST_SUITE_P(KeyLengths, RandomChanges,
                         testing::Values(Variety{1, ' ', 70000}, Variety{4, 0, 3000000},
                                         Variety{8, 0, 900}, Variety{10, ' ', 200000},
                                         Variety{30, ' ', 5000}, Variety{200, ' ', 40000},
                                         Variety{240, 0, 0xFFFFFFFE}));

TEST_F(IndexTest, TwoOpensSeeEachOthersChanges) {
    auto one = make(10, ' '), two = open();
    std::mt19937 random(5);
    Model model;
    for (int step = 0; step < 300; ++step) {
        std::vector<Entry> entries;
        for (int i = 0; i < 5; ++i) entries.emplace_back(some_key(random, 10, ' '), random() % 999);
        model.insert(entries.begin(), entries.end());
        put(step % 2 == 0 ? *one : *two, entries);
        if (step % 20 < 2) {
            expect_walks(*one->tags()[0], model);
            expect_walks(*two->tags()[0], model);
        }
        expect_seeks(step % 3 == 0 ? *one->tags()[0] : *two->tags()[0], model, entries[0]);
    }
    EXPECT_EQ(on_disk(' '), std::vector<Entry>(model.begin(), model.end()));
}

TEST_F(IndexTest, WhatIsNotPublishedLeavesNoTrace) {
    auto file = make(8, 0);
    std::mt19937 random(6);
    Model model;
    for (RecordNumber r = 1; r <= 400; ++r) model.emplace(some_key(random, 8, 0), r);
    put(*file, {model.begin(), model.end()});
    const std::vector<Byte> before = load_file(path());
    {
        CdxFile::Change change(*file);
        for (RecordNumber r = 500; r <= 900; ++r) {
            change.insert(*file->tags()[0], as_bytes(some_key(random, 8, 0)), r);
        }
        change.write_new_pages();
    }
    EXPECT_EQ(load_file(path()), before);
    expect_walks(*file->tags()[0], model);
}

TEST_F(IndexTest, ManyTagsAreFoundAgainInCreationOrder) {
    constexpr int kTags = 140;
    auto file = CdxFile::create(path());
    for (int i = kTags; i-- > 0;) {
        std::vector<IndexEntry> entries;
        for (RecordNumber r = 1; r <= 120u; ++r) entries.push_back({std::string(30, 'K'), r});
        TagDescription tag = describe("T" + std::to_string(i), 30, ' ');
        tag.condition = i % 2 == 0 ? "FIELD=\"K\"" : "";
        tag.descending = i % 3 == 0;
        tag.unique = i % 5 == 0;
        file->add_tag(tag, entries);
    }
    EXPECT_THROW(file->add_tag(describe("T7", 30, ' '), {}), EngineFault);
    file.reset();
    file = open();
    const std::vector<Byte> bytes = load_file(path());
    EXPECT_GT(RawTree(bytes, 0, ' ').depth(), 1u);
    ASSERT_EQ(file->tags().size(), std::size_t{kTags});
    for (int i = 0; i < kTags; ++i) {
        const TagDescription& tag =
            file->tags()[static_cast<std::size_t>(kTags - 1 - i)]->description();
        EXPECT_EQ(tag.name, "T" + std::to_string(i));
        EXPECT_EQ(tag.condition, i % 2 == 0 ? "FIELD=\"K\"" : "");
        EXPECT_EQ(tag.descending, i % 3 == 0);
        EXPECT_EQ(tag.unsupported, "");
        EXPECT_EQ(walk(*file->tags()[static_cast<std::size_t>(kTags - 1 - i)], true).size(),
                  i % 5 == 0 ? 1u : 120u);
    }
}

// A process is killed after some of the writes of a change, anywhere between them. What it leaves
// must hold every entry (one whose removal was cut short may still be there), in both directions,
// and later changes must make the tree exact again.
TEST_F(IndexTest, ATreeWhoseWritingWasCutShortIsReadAndMended) {
    std::mt19937 random(3);
    Model model, strays;
    auto file = make(100, ' ');
    const auto change_one = [&](const Entry* removed, const Entry* added) {
        CdxFile::Change change(*file);
        CdxTag& tag = *file->tags()[0];
        if (removed) change.remove(tag, as_bytes(removed->first), removed->second);
        if (added) change.insert(tag, as_bytes(added->first), added->second);
        change.publish();
    };
    int cut_short = 0;
    for (int step = 0; step < 1500; ++step) {
        const bool removing = step % 500 > 280 && !model.empty();
        const bool adding = !removing || step % 3 == 0;
        const std::size_t number =
            step % 500 > 200 ? 500000u + static_cast<unsigned>(step) : random() % 400000 + 100000;
        Entry removed, added(std::to_string(number) + std::string(94, 'x'), random() % 5000 + 1);
        if (removing) {
            const auto place = step % 2 == 0 ? 0 : static_cast<int>(random() % model.size());
            removed = *std::next(model.begin(), place);
            added = {removed.first.substr(0, 98) + (step % 4 == 0 ? "wy" : "xz"), removed.second};
            model.erase(removed);
            strays.insert(removed);
        }
        strays.insert(added);
        std::vector<Byte> before = load_file(path());
        recorded_writes.emplace();
        change_one(removing ? &removed : nullptr, adding ? &added : nullptr);
        auto writes = *std::exchange(recorded_writes, std::nullopt);
        if (writes.size() > 3 && random() % 2 == 0) {
            writes.resize(random() % (writes.size() - 1) + 1);
            file.reset();
            fs::resize_file(path(), before.size());
            poke(0, before);
            for (const auto& [offset, bytes] : writes) poke(offset, bytes);
            file = open();
            ++cut_short;
        } else if (adding) {
            model.insert(added);
            strays.erase(added);
        }
        if (writes.size() <= 3) continue;
        for (const bool forward : {true, false}) {
            std::vector<Entry> found = walk(*file->tags()[0], forward);
            if (forward) {
                expect_numbers(*file->tags()[0], found, random() % (found.size() + 1));
            }
            std::erase_if(found, [&](const Entry& e) { return strays.contains(e); });
            ASSERT_TRUE(std::equal(found.begin(), found.end(), model.begin(), model.end()))
                << "step " << step << ", " << writes.size() << " written, removing " << removing
                << ", found " << found.size() << " of " << model.size();
        }
    }
    EXPECT_GT(cut_short, 100);
    for (const Entry& entry : model) change_one(&entry, nullptr), change_one(nullptr, &entry);
    for (const Entry& entry : walk(*file->tags()[0], true)) {
        if (!model.contains(entry)) change_one(&entry, nullptr);
    }
    EXPECT_EQ(on_disk(' '), std::vector<Entry>(model.begin(), model.end()));
}

TEST_F(IndexTest, DamageIsNamedAndNeverFollowed) {
    std::vector<IndexEntry> entries;
    for (RecordNumber r = 1; r <= 2000; ++r) {
        entries.push_back({std::to_string(100000 + r) + "abcd", r});
    }
    make(10, ' ', entries);
    const std::vector<std::uint32_t> leaf = leaves();
    const std::vector<Byte> sound = load_file(path());
    const std::uint32_t root = load_le32(&sound[1536]);
    ASSERT_GT(leaf.size(), 4u);
    const std::uint32_t child = root + 12 + 10 + 4;  // of the root's first entry
    const auto be32 = [](std::uint32_t number) {
        std::vector<Byte> bytes(4);
        store_be32(bytes.data(), number);
        return bytes;
    };
    struct Damage {
        const char* name;
        std::uint64_t offset;
        std::vector<Byte> bytes;
    };
    const Damage table[] = {
        {"root outside the file", 1536, le32(0x00FFFE00)},
        {"root between pages", 1536, le32(root + 1)},
        {"root is the directory's page", 1536, le32(1024)},
        {"child outside the file", child, be32(0x7FFFFE00)},
        {"child is its own parent", child, be32(root)},
        {"child is a tag header", child, be32(1536)},
        {"child belongs to the directory", child, be32(1024)},
        {"more entries than a page holds", root + 2, {0xFF, 0x7F}},
        {"no entries in an interior page", root + 2, {0, 0}},
        {"more entries than a leaf holds", leaf[1] + 2, {0xFF, 0xFF}},
        {"a leaf of unknown attributes", leaf[1], {0x42, 0x13}},
        {"a leaf that says it is none", leaf[1], {0, 0}},
        {"record bits beyond the entry", leaf[1] + 20, {60}},
        {"entries of no bytes", leaf[1] + 23, {0}},
        {"masks that do not go with the bits", leaf[1] + 14, {1, 2, 3, 4}},
        {"counts longer than the key", leaf[1] + 24, {0xFF, 0xFF, 0xFF}},
        {"right sibling is the page itself", leaf[1] + 8, le32(leaf[1])},
        {"right sibling is an earlier page", leaf[2] + 8, le32(leaf[0])},
        {"right sibling is the root", leaf[1] + 8, le32(root)},
        {"right sibling outside the file", leaf[1] + 8, le32(0x10000000)},
        {"directory leads nowhere", 0, le32(0xFFFFFE00)},
        {"tag header outside the file", 1024 + 24, {0xFF, 0xFF}},
        {"expression past its page", 1536 + 510, {0xFF, 0x7F}},
        {"no header of an index", 12, {9, 0}},
    };
    for (const Damage& damage : table) {
        SCOPED_TRACE(damage.name);
        poke(0, sound);
        poke(damage.offset, damage.bytes);
        try {
            const auto file = open();
            for (const bool forward : {true, false}) walk(*file->tags()[0], forward);
            ADD_FAILURE() << "not noticed";
        } catch (const EngineFault& fault) {
            EXPECT_EQ(fault.code(), FaultCode::kDamagedFile);
            EXPECT_NE(std::string(fault.what()).find("T.CDX"), std::string::npos) << fault.what();
        }
    }
    fs::resize_file(path(), 700);
    EXPECT_THROW(open(), EngineFault);
}

// The root's left child is replaced by a leaf from further below: looking for the page to the left
// of one on the right side then comes to a leaf before it has gone down far enough.
TEST_F(IndexTest, AnUnevenTreeIsRefusedWhereTheLeftNeighbourIsLookedFor) {
    constexpr std::size_t kKeyLength = 200;
    std::vector<IndexEntry> entries;
    for (RecordNumber r = 1; r <= 60; ++r) {
        entries.push_back({std::string(kKeyLength, static_cast<char>('A' + r % 2)), r});
        std::string& key = entries.back().key;
        key.replace(0, 3, std::to_string(100 + r));
    }
    make(kKeyLength, ' ', entries);
    const std::vector<Byte> sound = load_file(path());
    const std::uint32_t root = load_le32(&sound[1536]);
    const std::uint32_t leaf = leaves().front();
    ASSERT_GE(RawTree(sound, 1536, ' ').depth(), 3u);
    ASSERT_EQ(load_le16(&sound[root + 2]), 2u);
    std::vector<Byte> child(4);
    store_be32(child.data(), leaf);
    poke(root + 12 + kKeyLength + 4, child);

    // Just behind the left side, as the root tells it, is the first place of the right side.
    const std::string last_of_left(as_text(Bytes(sound).subspan(root + 12, kKeyLength)));
    const auto expect_refusal = [&](auto change_tag) {
        const std::vector<Byte> before = load_file(path());
        const auto file = open();
        try {
            CdxFile::Change change(*file);
            change_tag(change, *file->tags()[0]);
            change.publish();
            ADD_FAILURE() << "not noticed";
        } catch (const EngineFault& fault) {
            EXPECT_EQ(fault.code(), FaultCode::kDamagedFile);
            EXPECT_NE(std::string(fault.what()).find("T.CDX: at"), std::string::npos);
        }
        EXPECT_EQ(load_file(path()), before);
    };
    expect_refusal([&](CdxFile::Change& change, CdxTag& tag) {
        change.insert(tag, as_bytes(last_of_left), 999);
    });
    expect_refusal([&](CdxFile::Change& change, CdxTag& tag) {
        for (const IndexEntry& entry : entries) {
            if (entry.key > last_of_left) change.remove(tag, as_bytes(entry.key), entry.record);
        }
    });
}

TEST_F(IndexTest, RandomBytesNeverDoMoreThanAFault) {
    std::mt19937 random(11);
    std::vector<IndexEntry> entries;
    for (RecordNumber r = 1; r <= 600; ++r) entries.push_back({std::to_string(100000 + r), r});
    make(6, ' ', entries);
    const std::vector<Byte> sound = load_file(path());
    for (int round = 0; round < 400; ++round) {
        std::vector<Byte> bytes = sound;
        for (unsigned i = 0; i < 1 + random() % 6; ++i) {
            bytes[random() % bytes.size() / 512 * 512 + random() % 40] =
                static_cast<Byte>(random());
        }
        poke(0, bytes);
        try {
            const auto file = open();
            if (file->tags().empty()) continue;
            std::vector<Entry> found = walk(*file->tags()[0], true);
            EXPECT_LE(found.size(), 40000u);
            walk(*file->tags()[0], false);
            IndexEntry entry;
            file->tags()[0]->at(file->tags()[0]->count() / 2, entry);
            CdxFile::Change change(*file);
            const std::string key = file->tags()[0]->description().key_length == 6 ? "100300" : "";
            change.insert(*file->tags()[0], as_bytes(key), 7);
            change.remove(*file->tags()[0], as_bytes(key), 300);
            change.publish();
        } catch (const EngineFault& fault) {
            EXPECT_NE(std::string(fault.what()).find("T.CDX"), std::string::npos) << fault.what();
        }
    }
}

TEST_F(IndexTest, WhatCannotBeKeptCorrectIsRefusedOrListedAsSuch) {
    make(10, ' ');
    const std::vector<Byte> sound = load_file(path());
    const std::pair<std::uint64_t, std::vector<Byte>> table[] = {{1536 + 494, {'G', 'E', 'N'}},
                                                                 {1536 + 15, {5}},
                                                                 {1536 + 14, {0x70}},
                                                                 {1536 + 12, {0, 0}},
                                                                 {1536 + 12, {241, 0}}};
    for (const auto& [offset, bytes] : table) {
        poke(0, sound);
        poke(offset, bytes);
        EXPECT_NE(open()->tags()[0]->description().unsupported, "") << offset;
    }
    poke(0, sound);
    poke(16, {0xCD, 0xAB, 0, 0});
    try {
        open();
        ADD_FAILURE() << "a variant was opened";
    } catch (const EngineFault& fault) {
        EXPECT_EQ(fault.code(), FaultCode::kUnsupported);
    }
}

TEST_F(IndexTest, GrowthStopsBelowTheLockPosition) {
    auto file = make(240, ' ');
    platform::File raw = platform::File::open(path(), platform::OpenMode::kWriteOnly);
    raw.resize(LockScheme::index().offset / 512 * 512);
    put(*file, {{std::string(240, 'a'), 1}, {std::string(240, 'b'), 2}});
    try {
        put(*file, {{std::string(240, 'c'), 3}});
        ADD_FAILURE() << "grown past the limit";
    } catch (const EngineFault& fault) {
        EXPECT_EQ(fault.code(), FaultCode::kLimit);
    }
    IndexEntry found;
    EXPECT_TRUE(file->tags()[0]->first(found));
}

TEST_F(IndexTest, RememberedPagesNeedNoLock) {
    auto file = make(10, ' ');
    put(*file, {{"KEY       ", 1}});
    platform::File other = platform::File::open(path(), platform::OpenMode::kReadWrite);
    ASSERT_TRUE(other.try_lock(LockScheme::index().offset, 1));
    IndexEntry found;
    EXPECT_TRUE(file->tags()[0]->first(found));
}

TEST_F(IndexTest, FilesOfAnotherEngineAreReadInItsOrder) {
    const fs::path fixtures = fs::path(BRENIK_TEST_DATA) / "fixtures";
    // Keys of numbers and dates end in zero bytes, those of text in blanks.
    const std::set<std::string> numbers{"DB", "DBD", "DEL", "DT", "DTD", "DU", "FL",    "ID",
                                        "IN", "IND", "ND",  "NI", "NID", "NU", "SALEM", "SUM"};
    for (const char* name : {"NUMKEYS", "CHARKEYS", "UNIQUES", "FORTAGS", "MEMO64", "EMPTY"}) {
        fs::remove(path());
        fs::copy_file(fixtures / (std::string(name) + ".CDX"), path());
        fs::permissions(path(), fs::perms::owner_all);
        std::map<std::string, std::vector<RecordNumber>> expected;
        std::ifstream in(fixtures / (std::string(name) + ".expected.txt"));
        std::string tag;
        for (std::string line; std::getline(in, line);) {
            std::istringstream words(line);
            std::string first;
            words >> first;
            if (first == "tag") words >> tag, expected[tag];
            if (tag.empty() || first == "tag") continue;
            words = std::istringstream(line);
            for (RecordNumber record; words >> record;) expected[tag].push_back(record);
        }
        auto file = open();
        EXPECT_EQ(file->tags().size(), expected.size());
        for (const auto& one : file->tags()) {
            SCOPED_TRACE(std::string(name) + " " + one->description().name);
            one->set_pad(numbers.contains(one->description().name) ? 0x00 : 0x20);
            std::vector<RecordNumber> records;
            for (const Entry& e : walk(*one, true)) records.push_back(e.second);
            if (one->description().descending) std::reverse(records.begin(), records.end());
            EXPECT_EQ(records, expected[one->description().name]);
        }
    }
}

}  // namespace

}  // namespace brenik::local
