// Index files against a model in memory, in every reader, and cut short or damaged on disk.
//
// Whether the bytes of pages are exactly what other programs rely on is judged in local_test.

#include <gtest/gtest.h>

#ifndef _WIN32
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <random>
#include <set>

#include "engine/index/cdx_file.h"
#include "engine/make/index_builder.h"
#include "engine/record/dbf_file.h"
#include "file_bytes.h"
#include "refused.h"
#include "temporary_folder.h"

#ifndef _WIN32

// Offset and bytes of each write of this process, while a test asks for them.
static std::optional<std::vector<std::pair<std::uint64_t, std::string>>> recorded_writes;
// The writes for which the disk has room, while a test asks for an end of it.
static std::optional<int> writes_left;

// Takes the place of the system's function.
extern "C" ssize_t pwrite(int file, const void* bytes, std::size_t count, off_t offset) {
    if (recorded_writes) {
        recorded_writes->emplace_back(offset, std::string(static_cast<const char*>(bytes), count));
    }
    if (writes_left && (*writes_left)-- <= 0) return errno = ENOSPC, -1;
    return syscall(SYS_pwrite64, file, bytes, count, offset);
}

#endif

namespace brenik::local {
namespace {

namespace fs = std::filesystem;
using Entry = std::pair<std::string, RecordNumber>;
using Entries = std::vector<Entry>;
using Model = std::set<Entry>;

constexpr std::uint32_t kNone = 0xFFFFFFFF;
constexpr std::size_t kFirstTag = 1536;  // behind the directory's header and page

// The leaves of the first tag in a file without damage, from the left. On every level each page
// names the one to its left.
std::vector<std::uint32_t> leaves_of(const std::string& file) {
    const Bytes bytes = as_bytes(file);
    const std::size_t first_child = 12 + load_le16(&bytes[kFirstTag + 12]) + 4;
    std::uint32_t first = load_le32(&bytes[kFirstTag]);
    for (;; first = load_be32(&bytes[first + first_child])) {
        std::vector<std::uint32_t> level;
        for (std::uint32_t page = first; page != kNone; page = load_le32(&bytes[page + 8])) {
            EXPECT_EQ(load_le32(&bytes[page + 4]), level.empty() ? kNone : level.back());
            level.push_back(page);
        }
        if ((load_le16(&bytes[first]) & 2) != 0) return level;
    }
}

std::string number_bytes(std::uint32_t number) {
    Byte bytes[4];
    store_le32(bytes, number);
    return std::string(as_text(bytes));
}

Entries walk(index::CdxTree& tag, bool forward) {
    Entries found;
    index::IndexEntry entry;
    for (bool any = forward ? tag.first(entry) : tag.last(entry); any;
         any = forward ? tag.after(entry, entry) : tag.before(entry, entry)) {
        found.emplace_back(entry.key, entry.record);
    }
    if (!forward) std::reverse(found.begin(), found.end());
    return found;
}

// The entries of a list, which must outlive the result.
index::SortedEntries sorted_entries(const Entries& list) {
    RecordNumber largest = 0;
    for (const Entry& e : list) largest = std::max(largest, e.second);
    return {largest, [&list, i = std::size_t{0}, bytes = std::vector<Byte>()](Bytes& next) mutable {
                if (i == list.size()) return false;
                bytes.assign(list[i].first.begin(), list[i].first.end());
                bytes.resize(bytes.size() + 4);
                store_be32(&bytes[bytes.size() - 4], list[i++].second);
                next = bytes;
                return true;
            }};
}

class IndexTest : public testing::Test {
  protected:
    std::unique_ptr<index::CdxFile> open(Byte pad = ' ') {
        auto file = index::CdxFile::open(path_.string(), {});
        for (const auto& tag : file->tags()) tag->set_pad(pad);
        return file;
    }
    std::unique_ptr<index::CdxFile> make(std::size_t key_length, Byte pad,
                                         const Entries& entries = {}) {
        index::TagDescription tag;
        tag.name = "TAG";
        tag.key = "FIELD";
        tag.key_length = key_length;
        tag.pad = pad;
        index::CdxFile::create(path_.string())->add_tag(tag, sorted_entries(entries));
        return open(pad);
    }
    // A change of the first tag, published.
    static void change(index::CdxFile& file, const Entries& removed, const Entries& added) {
        index::CdxFile::Change change(file);
        index::CdxTree& tag = *file.tags()[0];
        for (const Entry& e : removed) change.remove(tag, as_bytes(e.first), e.second);
        for (const Entry& e : added) change.insert(tag, as_bytes(e.first), e.second);
        change.publish();
    }
    // What a reader that comes now finds, either way.
    Entries on_disk(Byte pad) {
        const auto file = open(pad);
        Entries found = walk(*file->tags()[0], true);
        EXPECT_EQ(walk(*file->tags()[0], false), found);
        leaves_of(bytes_of(path_));
        return found;
    }

    TemporaryFolder folder_;
    const fs::path path_ = folder_ / "T.CDX";
};

void expect_walks(index::CdxTree& tag, const Entries& wanted) {
    EXPECT_EQ(walk(tag, true), wanted);
    EXPECT_EQ(walk(tag, false), wanted);
}

// Where an entry, which need not be there, and the first half of its key lie among those held.
void expect_places(index::CdxTree& tag, const Entries& held, const Entry& probe) {
    index::IndexEntry found;
    const auto check = [&](bool any, std::size_t place) {
        ASSERT_EQ(any, place < held.size());
        if (!any) return;
        ASSERT_EQ(Entry(found.key, found.record), held[place]);
    };
    const auto before = [&](const Entry& entry) {
        const auto place = std::lower_bound(held.begin(), held.end(), entry);
        return static_cast<std::size_t>(place - held.begin());
    };
    const auto expect = [&](const std::string& key, RecordNumber record, std::size_t first,
                            std::size_t past) {
        EXPECT_EQ(tag.count_before(as_bytes(key), record), first);
        EXPECT_EQ(tag.count_through(as_bytes(key), record), past);
        check(tag.at_or_after(as_bytes(key), record, found), first);
        check(tag.at_or_before(as_bytes(key), record, found), past - 1);
    };
    const auto& [key, record] = probe;
    const std::size_t first = before(probe), past = before({key, record + 1});
    expect(key, record, first, past);
    check(tag.after({key, record}, found), past);
    check(tag.before({key, record}, found), first - 1);
    EXPECT_EQ(tag.count(), held.size());
    check(tag.at(first, found), first);
    const std::string prefix = key.substr(0, key.size() / 2);
    expect(prefix, 9, before({prefix, 0}),
           before({prefix + std::string(key.size(), '\xFF'), kNone}));
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

// Two opens of the file, as two workstations have it, take turns. One of them can keep few pages.
TEST_P(RandomChanges, LeaveExactlyTheModelInEveryReader) {
    const auto [length, pad, largest] = GetParam();
    std::mt19937 random(static_cast<unsigned>(length));
    auto one = make(length, pad), two = open(pad);
    two->set_cache_bytes(4096);
    Model model;
    for (int round = 0; round < 12; ++round) {
        const unsigned removals = round % 4 == 3 ? 9 : 2;
        for (int batch = 0; batch < 50; ++batch) {
            index::CdxFile& file = random() % 4 == 0 ? *two : *one;
            index::CdxTree& tag = *file.tags()[0];
            index::CdxFile::Change change(file);
            for (int step = 0; step < 10; ++step) {
                if (!model.empty() && random() % 10 < removals) {
                    auto victim = model.lower_bound({some_key(random, length, pad), 0});
                    if (victim == model.end()) victim = model.begin();
                    EXPECT_TRUE(change.remove(tag, as_bytes(victim->first), victim->second));
                    model.erase(victim);
                    continue;
                }
                const Entry entry{some_key(random, length, pad), random() % largest + 1};
                EXPECT_EQ(change.insert(tag, as_bytes(entry.first), entry.second),
                          model.insert(entry).second);
            }
            const std::string absent(length, '\x7F');
            EXPECT_FALSE(change.remove(tag, as_bytes(absent), 1));
            EXPECT_FALSE(change.contains(tag, as_bytes(absent)));
            change.publish();
        }
        const Entries held(model.begin(), model.end());
        ASSERT_EQ(on_disk(pad), held);
        for (index::CdxFile* file : {one.get(), two.get()}) {
            index::CdxTree& tag = *file->tags()[0];
            for (int i = 0; i < 20; ++i) {
                expect_places(tag, held, {some_key(random, length, pad), random() % 9});
                if (!held.empty()) expect_places(tag, held, held[random() % held.size()]);
            }
            expect_walks(tag, held);
        }
    }
    // Emptied and filled again, the tree takes its pages from the free list.
    const Entries all(model.begin(), model.end());
    const auto size = fs::file_size(path_);
    change(*one, all, {});
    EXPECT_TRUE(on_disk(pad).empty());
    change(*one, {}, all);
    EXPECT_EQ(on_disk(pad), all);
    EXPECT_LE(fs::file_size(path_), size);
    // A build from sorted entries holds the same, and of a change of it that is not published there
    // remain at most pages that nothing names.
    one.reset(), two.reset();
    one = make(length, pad, all);
    const std::string before = bytes_of(path_);
    {
        index::CdxFile::Change change(*one);
        for (const Entry& e : all) change.insert(*one->tags()[0], as_bytes(e.first), e.second + 1);
        change.write_new_pages();
        EXPECT_GT(fs::file_size(path_), before.size());
    }
    EXPECT_TRUE(bytes_of(path_).starts_with(before));
    expect_walks(*one->tags()[0], all);
    EXPECT_EQ(on_disk(pad), all);
}

INSTANTIATE_TEST_SUITE_P(KeyLengths, RandomChanges,
                         testing::Values(Variety{1, ' ', 70000}, Variety{4, 0, 3000000},
                                         Variety{8, 0, 900}, Variety{10, ' ', 200000},
                                         Variety{30, ' ', 5000}, Variety{200, ' ', 40000},
                                         Variety{240, 0, 0xFFFFFFFE}));

#ifndef _WIN32

// A process is killed after some of the writes of a change, anywhere between them. What it leaves
// must hold every entry (one whose removal was cut short may still be there), in both directions,
// and later changes must make the tree exact again.
TEST_F(IndexTest, ATreeWhoseWritingWasCutShortIsReadAndMended) {
    std::mt19937 random(154);
    Model model, strays;
    auto file = make(100, ' ');
    int cut_short = 0;
    const auto any_entry = [&] {
        return *std::next(model.begin(), static_cast<int>(random() % model.size()));
    };
    for (int step = 0; step < 1500; ++step) {
        const bool removing = step % 500 > 280 && !model.empty();
        const bool adding = !removing || step % 3 == 0;
        const std::size_t number =
            step % 500 > 200 ? 500000u + static_cast<unsigned>(step) : random() % 400000 + 100000;
        Entries removed,
            added{{std::to_string(number) + std::string(94, 'x'), random() % 5000 + 1}};
        if (removing) {
            removed = {step % 2 == 0 ? *model.begin() : any_entry()};
            const auto& [key, record] = removed[0];
            added = {{key.substr(0, 98) + (step % 4 == 0 ? "wy" : "xz"), record}};
            model.erase(removed[0]);
            strays.insert(removed[0]);
        }
        strays.insert(added[0]);
        const std::string before = bytes_of(path_);
        recorded_writes.emplace();
        change(*file, removed, adding ? added : Entries());
        auto writes = *std::exchange(recorded_writes, std::nullopt);
        const std::size_t count = writes.size();
        if (count > 3 && random() % 2 == 0) {
            writes.resize(random() % (count - 1) + 1);
            file.reset();
            std::ofstream(path_, std::ios::binary) << before;
            for (const auto& [offset, bytes] : writes) write_over(path_, offset, bytes);
            file = open();
            ++cut_short;
        } else if (adding) {
            model.insert(added[0]);
            strays.erase(added[0]);
        }
        if (count <= 3) continue;
        for (const bool forward : {true, false}) {
            Entries found = walk(*file->tags()[0], forward);
            // A walk comes across a removed entry that a descent does not.
            const auto removed_ones =
                std::erase_if(found, [&](const Entry& e) { return strays.contains(e); });
            if (forward && removed_ones == 0 && !found.empty()) {
                expect_places(*file->tags()[0], found, any_entry());
            }
            ASSERT_TRUE(std::equal(found.begin(), found.end(), model.begin(), model.end()))
                << "step " << step << ", " << count << " written, removing " << removing
                << ", found " << found.size() << " of " << model.size();
        }
    }
    EXPECT_GT(cut_short, 100);
    const Entries all(model.begin(), model.end());
    for (const Entry& entry : all) change(*file, {entry}, {}), change(*file, {}, {entry});
    for (const Entry& entry : walk(*file->tags()[0], true)) {
        if (!model.contains(entry)) change(*file, {entry}, {});
    }
    EXPECT_EQ(on_disk(' '), all);
}

#endif

// How another program may lay out a leaf.
struct ForeignLeaf {
    enum Sharing { kNothing, kExact, kTooMuch };
    const char* name;
    unsigned record_bits, duplicate_bits, trailing_bits, entry_bytes;
    Sharing sharing;
    index::CdxPage::Packing packing = index::CdxPage::Packing::kExact;
};

// Puts entries into a leaf in place of those that it has.
void write_foreign(const fs::path& path, std::uint32_t page, const Entries& entries,
                   const ForeignLeaf& leaf) {
    std::string bytes = bytes_of(path).substr(page, 12) + std::string(500, '\0');
    std::size_t table = 24, keys = bytes.size(), before = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const auto& [key, record] = entries[i];
        const std::size_t text = key.find_last_not_of(' ') + 1;
        std::size_t shared = 0;
        const std::size_t most = leaf.sharing == ForeignLeaf::kNothing ? 0
                                 : leaf.sharing == ForeignLeaf::kExact ? std::min(text, before)
                                                                       : text;
        while (i > 0 && shared < most && key[shared] == entries[i - 1].first[shared]) ++shared;
        keys -= text - shared;
        bytes.replace(keys, text - shared, key, shared, text - shared);
        std::uint64_t packed = key.size() - text;
        packed = (packed << leaf.duplicate_bits | shared) << leaf.record_bits | record;
        for (unsigned k = 0; k < leaf.entry_bytes; ++k, packed >>= 8) {
            bytes[table++] = static_cast<char>(packed);
        }
        before = text;
    }
    ASSERT_LE(table, keys) << leaf.name;
    const auto ones = [](unsigned bits) {
        return number_bytes(static_cast<std::uint32_t>((std::uint64_t{1} << bits) - 1));
    };
    bytes.replace(2, 2, number_bytes(static_cast<std::uint32_t>(entries.size())), 0, 2);
    bytes.replace(12, 2, number_bytes(static_cast<std::uint32_t>(keys - table)), 0, 2);
    bytes.replace(14, 4, ones(leaf.record_bits));
    const unsigned numbers[] = {leaf.record_bits, leaf.duplicate_bits, leaf.trailing_bits,
                                leaf.entry_bytes};
    bytes[18] = ones(leaf.duplicate_bits)[0], bytes[19] = ones(leaf.trailing_bits)[0];
    for (std::size_t i = 0; i < 4; ++i) bytes[20 + i] = static_cast<char>(numbers[i]);
    write_over(path, page, bytes);
}

// A leaf in the middle of a tree, as other programs or an interrupted change leave it.
class ForeignPage : public IndexTest {
  protected:
    static constexpr std::size_t kLength = 60;

    // Two keys that differ only in their last byte, the first of which is mostly pads.
    void add_pair(std::string start) {
        start.resize(kLength, ' ');
        model_.insert({start, static_cast<RecordNumber>(model_.size() + 1)});
        start.back() = 'x';
        model_.insert({start, static_cast<RecordNumber>(model_.size() + 1)});
    }
    void make_tree() {
        model_.clear();
        for (char c = 'A'; c <= 'Z'; ++c) add_pair({c});
        const Entries all(model_.begin(), model_.end());
        make(kLength, ' ', all);
        const std::string bytes = bytes_of(path_);
        const std::vector<std::uint32_t> leaf = leaves_of(bytes);
        ASSERT_GT(leaf.size(), 3u);
        page_ = leaf[1];
        const auto from = all.begin() + load_le16(&as_bytes(bytes)[leaf[0] + 2]);
        held_ = {from, from + load_le16(&as_bytes(bytes)[page_ + 2])};
        ASSERT_GE(held_.size(), 8u);
    }
    index::CdxPage decoded(std::uint32_t page) const {
        const std::string bytes = bytes_of(path_);
        return index::CdxPage::decode({kFirstTag, kLength, ' '}, page,
                                      as_bytes(bytes).subspan(page, index::kCdxPageSize));
    }
    void change_both(index::CdxFile& file, const Entries& removed, const Entries& added) {
        for (const Entry& e : removed) EXPECT_EQ(model_.erase(e), 1u);
        model_.insert(added.begin(), added.end());
        change(file, removed, added);
        expect_walks(*file.tags()[0], {model_.begin(), model_.end()});
        EXPECT_EQ(on_disk(' '), Entries(model_.begin(), model_.end()));
        for (const std::uint32_t page : leaves_of(bytes_of(path_))) {
            EXPECT_EQ(decoded(page).packing(), index::CdxPage::Packing::kExact);
        }
    }

    Model model_;
    std::uint32_t page_ = 0;
    Entries held_;  // by the leaf
};

TEST_F(ForeignPage, IsChangedWhateverItsLayout) {
    using enum index::CdxPage::Packing;
    const ForeignLeaf leaves[] = {
        {"eight bytes for each entry", 32, 6, 6, 8, ForeignLeaf::kExact},
        {"no shared bytes, no large record numbers", 8, 6, 6, 3, ForeignLeaf::kNothing, kInexact},
        {"no bits for shared bytes", 16, 0, 6, 3, ForeignLeaf::kNothing, kInexact},
        {"more shared bytes than others accept", 12, 6, 6, 3, ForeignLeaf::kTooMuch, kTooTight},
    };
    for (const bool adds_first : {true, false}) {
        for (const ForeignLeaf& leaf : leaves) {
            SCOPED_TRACE(leaf.name);
            make_tree();
            // Wide entries need room; shared bytes make some.
            const std::size_t first = leaf.entry_bytes == 8 ? 4 : 0;
            for (std::size_t i = 0; i < first; ++i) model_.erase(held_[i]);
            for (std::size_t i = 2; i + 2 < held_.size(); i += 2) {
                if (leaf.sharing == ForeignLeaf::kTooMuch)
                    add_pair(held_[i].first.substr(0, 1) + "1");
            }
            const Entries now(model_.lower_bound(held_[first]), model_.upper_bound(held_.back()));
            write_foreign(path_, page_, now, leaf);
            EXPECT_EQ(decoded(page_).packing(), leaf.packing);
            const auto file = open();
            std::string added = now[1].first;
            added[3] = 'k';
            if (adds_first) change_both(*file, {}, {{added, 70000}});
            change_both(*file, {now.back(), now[3], now[1]}, {{now[2].first, 200}});
            change_both(*file, {now[2]}, {now[1], now.back()});
        }
    }
}

// A change that is given up has found that the leaf ends before its entry in the parent.
TEST_F(ForeignPage, ThatWasFoundUnfinishedIsMendedByALaterChange) {
    make_tree();
    model_.erase(held_.back());
    held_.pop_back();
    write_foreign(path_, page_, held_, {"unfinished", 12, 6, 6, 3, ForeignLeaf::kExact});
    const auto file = open();
    {
        index::CdxFile::Change given_up(*file);
        EXPECT_FALSE(given_up.remove(*file->tags()[0], as_bytes(held_[1].first), 70000));
    }
    change_both(*file, held_, {});
}

// Builds an index from invented records, and knows what it must hold.
class Rebuild : public IndexTest {
  protected:
    static constexpr RecordNumber kRecords = 5000;
    static constexpr std::size_t kWidth = 26, kShortKey = 2;
    static constexpr std::size_t kAmple = 1 << 20;

    Rebuild() {
        layout_.fields.resize(2);
        layout_.fields[0].name = "TEXT", layout_.fields[0].width = kWidth;
        layout_.fields[1].name = "NUMBER", layout_.fields[1].width = 6;
        record::make_header(layout_, {2026, 1, 31});
        std::mt19937 random(5);
        std::set<std::string> firsts;
        for (RecordNumber record = 1; record <= kRecords; ++record) {
            const std::string text = some_key(random, kWidth, ' ');
            const std::string number = std::to_string(100000 + record);
            records_ += " " + text + number;
            wanted_[0].insert({text, record});
            wanted_[1].insert({number, record});
            wanted_[4].insert({number.substr(3), record});
            if (text < "M") wanted_[2].insert({text, record});
            if (firsts.insert(text.substr(0, kShortKey)).second) {
                wanted_[3].insert({text.substr(0, kShortKey), record});
            }
        }
        for (const make::TagDefinition& tag : {make::TagDefinition{"TEXT", "TEXT"},
                                               {"NUMBER", "NUMBER"},
                                               {"SOME", "TEXT", "TEXT<\"M\""},
                                               {"FIRST", "LEFT(TEXT,2)", "", true},
                                               {"DIGITS", "SUBSTR(NUMBER,4)"}}) {
            plans_.push_back(make::plan_new_tag(tag, layout_));
        }
    }

    void build(std::size_t memory, const make::BuildProgress& progress = {}) {
        const auto read = [&](RecordNumber first, MutableBytes into) {
            std::ranges::copy(
                as_bytes(records_).subspan((first - 1) * layout_.record_length, into.size()),
                into.begin());
            return true;
        };
        make::build_index(path_.string(), {layout_, kRecords, read}, plans_, progress, memory);
    }
    // The index is as it was, and nothing lies beside it.
    void expect_only(const std::string& index) {
        EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 1);
        EXPECT_TRUE(bytes_of(path_) == index);
    }

    record::TableLayout layout_;
    std::string records_;
    std::vector<make::TagPlan> plans_;
    std::array<Model, 5> wanted_;
};

// Memory for all keys, for some runs, and for runs of very few.
TEST_F(Rebuild, GivesTheSameIndexInAnyMemory) {
    build(kAmple);
    const std::string index = bytes_of(path_);
    const auto file = open();
    for (std::size_t tag = 0; tag < wanted_.size(); ++tag) {
        EXPECT_EQ(walk(*file->tags()[tag], true),
                  Entries(wanted_[tag].begin(), wanted_[tag].end()));
    }
    file->close();
    for (const std::size_t memory : {50000u, 500u}) {
        bool runs_seen = false;
        build(memory, [&](const std::string&, std::uint64_t done, std::uint64_t total) {
            EXPECT_LE(done, total);
            runs_seen = runs_seen || fs::exists(path_.string() + ".run");
        });
        EXPECT_TRUE(runs_seen);
        expect_only(index);
    }
}

TEST_F(Rebuild, LeavesTheOldIndexWhenItFails) {
    build(kAmple);
    const std::string index = bytes_of(path_);
    struct Cancelled {};
    for (const char* phase : {"reading the records", "building the index"}) {
        EXPECT_THROW(build(50000,
                           [&](const std::string& what, std::uint64_t, std::uint64_t) {
                               if (what == phase) throw Cancelled{};
                           }),
                     Cancelled);
        expect_only(index);
    }
#ifndef _WIN32
    int room = 0;
    for (bool full = true; full && room < 1000; ++room) {
        writes_left = room;
        full = refused([&] { build(50000); }, FaultCode::kInputOutput, "T.CDX");
        writes_left.reset();
        expect_only(index);
    }
    EXPECT_GT(room, 20);
#endif
}

TEST_F(IndexTest, DamageIsNamedAndNeverFollowed) {
    Entries entries;
    for (RecordNumber r = 1; r <= 2000; ++r) {
        entries.push_back({std::to_string(100000 + r) + "abcd", r});
    }
    make(10, ' ', entries);
    const std::string sound = bytes_of(path_);
    const std::uint32_t root = load_le32(&as_bytes(sound)[kFirstTag]);
    const std::vector<std::uint32_t> leaf = leaves_of(sound);
    ASSERT_GT(leaf.size(), 4u);
    const auto use = [&] {
        const auto file = open();
        if (file->tags().empty()) return;
        index::CdxTree& tag = *file->tags()[0];
        for (const bool forward : {true, false}) EXPECT_LE(walk(tag, forward).size(), 40000u);
        index::IndexEntry entry;
        tag.at(tag.count() / 2, entry);
        const std::string key(tag.description().key_length, '1');
        change(*file, {{key, 300}}, {{key, 7}});
    };
    const struct {
        const char* name;
        std::uint64_t offset;
        std::string bytes;
    } table[] = {
        {"more entries than a page holds", root + 2, "\xFF\x7F"},
        {"no entries in an interior page", root + 2, {0, 0}},
        {"a leaf of unknown attributes", leaf[1], "\x42\x13"},
        {"a leaf that says it is none", leaf[1], {0, 0}},
        {"entries of no bytes", leaf[1] + 23, {0}},
        {"counts longer than the key", leaf[1] + 24, "\xFF\xFF\xFF"},
        {"record bits beyond the entry", leaf[1] + 20, {60}},
        {"masks that contradict the bits", leaf[1] + 14, "\1\2\3\4"},
        {"keys in disorder", leaf[1] + 497, "0"},
        {"right sibling is an earlier page", leaf[2] + 8, number_bytes(leaf[0])},
        {"right sibling is the root", leaf[1] + 8, number_bytes(root)},
        {"tag header outside the file", 1024 + 24, "\xFF\xFF"},
        {"no header of an index", 12, {9, 0}},
        {"no options of an index", 14, {0}},
        {"root between pages", kFirstTag, number_bytes(root + 1)},
    };
    for (const auto& damage : table) {
        write_over(path_, 0, sound);
        write_over(path_, damage.offset, damage.bytes);
        EXPECT_TRUE(refused(use, FaultCode::kDamagedFile, "T.CDX")) << damage.name;
    }
    std::mt19937 random(11);
    for (int round = 0; round < 400; ++round) {
        std::string bytes = sound;
        for (unsigned i = 0; i < 1 + random() % 6; ++i) {
            const std::size_t page = random() % bytes.size() / 512 * 512;
            bytes[page + random() % 40] = static_cast<char>(random());
        }
        write_over(path_, 0, bytes);
        try {
            use();
        } catch (const EngineFault& fault) {
            EXPECT_NE(std::string(fault.what()).find("T.CDX"), std::string::npos) << fault.what();
        }
    }
    fs::resize_file(path_, 700);
    EXPECT_TRUE(refused(use, FaultCode::kDamagedFile, "T.CDX"));
}

}  // namespace
}  // namespace brenik::local
