// First checks the structure of an index, on bytes read under its lock, then the keys of each tag.
//
// Keys are first compared without any lock, with the records as they are at that moment. Suspicions
// are checked again under the index lock, which excludes half-done changes; the index is read again
// if it has changed. A record that another program has locked may legitimately lack its keys, so it
// is reported as not checked.
//
// Other programs never wait long, however many suspicions there are: the lock is released at
// intervals, and findings are reported without it, because the receiver of the report may be slow.

#include "engine/maintenance/check_index.h"

#include <algorithm>
#include <chrono>
#include <set>
#include <span>

#include "engine/index/cdx_header.h"
#include "engine/locks/open_file.h"
#include "engine/locks/short_lock.h"
#include "engine/maintenance/check_keys.h"
#include "engine/record/dbf_file.h"
#include "engine/record/record_scan.h"
#include "engine/record/table_path.h"
#include "util/runtime.h"

namespace brenik::maintenance {
namespace {

constexpr std::uint32_t kFirstTreePage = 2 * index::kCdxPageSize;
constexpr std::uint64_t kFreeHeadOffset = 4;
constexpr std::size_t kMostPagesNamed = 5;
constexpr RecordNumber kProgressStep = 4096;
constexpr std::chrono::milliseconds kLongestHold{100};

index::CdxForm directory_form() { return {0, index::kTagNameLength, ' '}; }

// For tags whose expression cannot be used: their key bytes are only compared with each other.
Byte likely_pad(const index::TagDescription& tag) { return tag.collation.empty() ? ' ' : 0; }

std::string reason_of(const EngineFault& fault, const std::string& path) {
    const std::string what = fault.what();
    return what.starts_with(path + ": ") ? what.substr(path.size() + 2) : what;
}

// A new plan for the tag, if only the key length in its header is wrong.
std::optional<make::TagPlan> plan_anew(const index::TagDescription& tag,
                                       const record::TableLayout& layout) {
    if (!tag.unsupported.empty() && tag.key_length >= 1 &&
        tag.key_length <= index::kLongestCdxKey) {
        return std::nullopt;
    }
    if (!tag.collation.empty()) return std::nullopt;
    try {
        return make::plan_new_tag(definition_of(tag), layout);
    } catch (const expression::ExpressionError&) {
        return std::nullopt;
    }
}

FoundTag read_tag(const IndexBytes& bytes, const record::TableLayout& layout,
                  const std::string& name, std::uint32_t header, const std::string& path) {
    const Bytes raw = bytes.header_at(header);
    FoundTag tag{index::parse_tag_header(raw, name, path, header),
                 header,
                 load_le32(raw.data()),
                 {},
                 {},
                 {}};
    try {
        tag.plan = make::plan_existing_tag(tag.description, layout);
    } catch (const expression::ExpressionError& error) {
        tag.unusable = error.what();
        tag.rebuilt = plan_anew(tag.description, layout);
    }
    return tag;
}

// The directory entries that can be read, whatever else is wrong.
struct Directory {
    std::vector<index::IndexEntry> names;
    bool complete = true;
};

Directory read_directory(const IndexBytes& bytes, const std::string& path) {
    Directory directory;
    if (bytes.header_at(0).empty()) return {{}, false};
    CheckedTable counts;
    const Report silent = [](const Finding&) {};
    const Reporter report(path, silent, counts);
    const auto walk = [&](std::uint32_t root) {
        PageOwners owners(bytes.bytes().size());
        TreeWalk(bytes, owners, report, "", directory_form())
            .run(root, [&](const index::CdxPage& page) {
                for_each_entry(page, [&](std::size_t, const index::PageEntry& entry) {
                    directory.names.push_back(
                        {std::string(trim_right(as_text(entry.key()))), entry.record()});
                });
            });
    };
    walk(load_le32(bytes.bytes().data()));
    // In nearly every file the directory follows its header.
    if (directory.names.empty() && counts.faults > 0) {
        counts.faults = 0;
        walk(kFirstTreePage);
    }
    directory.complete = counts.faults == 0;
    std::stable_sort(
        directory.names.begin(), directory.names.end(),
        [](const index::IndexEntry& a, const index::IndexEntry& b) { return a.record < b.record; });
    return directory;
}

class IndexCheck {
  public:
    IndexCheck(OpenTableFiles& files, const HeaderFacts& header, const Reporter& report,
               const Progress& progress)
        : files_(files),
          header_(header),
          layout_(*header.layout),
          report_(report),
          progress_(progress) {}

    void run() {
        if (!bytes_.read(files_.index)) {
            return report_.unchecked("index-locked", {}, "another program keeps the index locked");
        }
        if (files_.index.size() > IndexBytes::kLargest) {
            report_.fault("index-size", Remedy::kReindex, {},
                          "the file is larger than page offsets can express");
        }
        if (bytes_.header_at(0).empty()) {
            return report_.fault("index-header", Remedy::kRestore, {},
                                 "the file is shorter than an index header");
        }
        check_structure();
        for (std::size_t i = 0; i < found_.tags.size(); ++i) check_keys(i);
    }

  private:
    void check_structure() {
        if (bytes_.bytes().size() % index::kCdxPageSize != 0) {
            report_.note("index-size", Remedy::kReindex, {},
                         "the file ends in the middle of a page");
        }
        try {
            index::check_directory_header(bytes_.header_at(0), report_.file());
        } catch (const EngineFault& fault) {
            report_.fault("index-header", Remedy::kReindex, {}, reason_of(fault, report_.file()));
        }
        PageOwners owners(bytes_.bytes().size());
        owners.claim(0, "the header");
        owners.claim(index::kCdxPageSize, "the header");
        TreeWalk(bytes_, owners, report_, "(directory)", directory_form())
            .run(load_le32(bytes_.bytes().data()), [](const index::CdxPage&) {});
        found_ = find_tags(bytes_, layout_, report_.file());
        report_tags(owners);
        for (const FoundTag& tag : found_.tags) walk_tag(tag, owners);
        check_free_list(owners);
        report_orphans(owners);
        report_.counts().tags += found_.tags.size();
    }

    void report_tags(PageOwners& owners) {
        for (const std::string& name : found_.unreadable) {
            Finding place;
            place.tag = name;
            report_.fault("tag-header", Remedy::kReindex, place,
                          "its header cannot be read: the tag is lost unless its definition is "
                          "supplied");
        }
        std::set<std::string> names;
        for (const FoundTag& tag : found_.tags) {
            const std::string& name = tag.description.name;
            if (!names.insert(name).second) {
                report_.fault("tag-name", Remedy::kReindex, at_page(name, tag.header),
                              "a second tag of that name");
            }
            for (const std::uint64_t page : {tag.header, tag.header + 512U}) {
                const std::string refused = owners.claim(page, "the header of tag " + name);
                if (refused.empty()) continue;
                report_.fault("index-page", Remedy::kReindex, at_page(name, page),
                              "the page of its header " + refused);
            }
            if (!tag.description.wrong_place.empty()) {
                report_.fault("tag-header", Remedy::kReindex, at_page(name, tag.header),
                              tag.description.wrong_place);
            }
            if (!tag.unusable.empty()) report_unusable(tag);
        }
    }

    void report_unusable(const FoundTag& tag) {
        const Finding place = at_page(tag.description.name, tag.header);
        if (tag.rebuilt) {
            return report_.fault("tag-header", Remedy::kReindex, place, tag.unusable);
        }
        const bool foreign = !tag.description.unsupported.empty();
        report_.fault(foreign ? "tag-unsupported" : "tag-expression", Remedy::kByHand, place,
                      tag.unusable +
                          ": its keys cannot be checked, and a table with such a tag "
                          "cannot be used");
    }

    void walk_tag(const FoundTag& tag, PageOwners& owners) {
        const index::TagDescription& description =
            tag.plan ? tag.plan->description : tag.description;
        if (description.key_length < 1 || description.key_length > index::kLongestCdxKey) return;
        const Byte pad = tag.plan ? description.pad : likely_pad(description);
        const index::CdxForm form{tag.header, description.key_length, pad};
        TreeWalk(bytes_, owners, report_, description.name, form)
            .run(tag.root, [](const index::CdxPage&) {});
    }

    void check_free_list(PageOwners& owners) {
        std::uint32_t page = load_le32(bytes_.bytes().data() + kFreeHeadOffset);
        while (page != 0 && page != index::kNoPage) {
            const std::string refused = owners.claim(page, "the free list");
            if (!refused.empty()) {
                return report_.fault("free-list", Remedy::kReindex, at_page({}, page),
                                     "is on the list of free pages, but " + refused);
            }
            page = load_le32(bytes_.page(page).data());
        }
    }

    void report_orphans(const PageOwners& owners) {
        const std::vector<std::uint64_t> orphans = owners.unclaimed();
        if (orphans.empty()) return;
        std::string list;
        for (std::size_t i = 0; i < std::min(orphans.size(), kMostPagesNamed); ++i) {
            list += (i == 0 ? "" : ", ") + std::to_string(orphans[i]);
        }
        if (orphans.size() > kMostPagesNamed) list += " ...";
        report_.note("orphan-pages", Remedy::kReindex, at_page({}, orphans.front()),
                     counted(orphans.size(), "page") +
                         " of no tag and not on the list of free pages (at " + list +
                         "): wasted space, nothing worse");
    }

    // -- Keys.

    bool read_records(RecordNumber first, MutableBytes into) const {
        return files_.table.read_at(header_.end_of(first - 1), into) == into.size();
    }

    RecordNumber count_now() const {
        const auto counted = record::read_record_count(files_.table);
        if (!counted) return 0;
        return std::min(std::max(*counted, header_.usable),
                        record::records_in(layout_, files_.table.size()));
    }

    void check_keys(std::size_t number) {
        const FoundTag& tag = found_.tags[number];
        if (!tag.plan) return;
        KeyCheck::Suspicions found;
        {
            const KeyCheck check(*tag.plan, bytes_, entries_of(tag));
            const RecordNumber count = header_.usable;
            const auto read = [&](RecordNumber first, MutableBytes into) {
                return read_records(first, into);
            };
            record::scan_records(layout_, count, read, [&](const record::RecordView& record) {
                check.check(record, found);
                if (progress_ && record.number % kProgressStep == 0) {
                    progress_("tag " + tag.description.name, record.number, count);
                }
                return true;
            });
            check.check_past(count, found);
            check.check_unique(found);
        }
        if (!found.empty()) confirm(tag, found);
    }

    // Re-checks suspicions under the index lock.
    void confirm(const FoundTag& tag, const KeyCheck::Suspicions& suspicions) {
        std::set<RecordNumber> distinct;
        for (const auto& suspicion : suspicions) distinct.insert(suspicion.record);
        const std::vector<RecordNumber> records(distinct.begin(), distinct.end());
        std::optional<KeyCheck> check(std::in_place, *tag.plan, bytes_, entries_of(tag));
        for (std::size_t done = 0; done < records.size();) {
            std::vector<Confirmed> confirmed;
            const std::size_t more =
                confirm_some(tag, std::span(records).subspan(done), check, confirmed);
            if (more == 0) {
                return report_.unchecked("index-locked", at_page(tag.description.name, tag.header),
                                         "another program keeps the index locked");
            }
            done += more;
            for (const Confirmed& wrong : confirmed) report_confirmed(tag, wrong);
        }
        // All entries were read at one moment, and the record count only grows.
        const RecordNumber count = count_now();
        KeyCheck::Suspicions found;
        check->check_past(count, found);
        check->check_unique(found);
        for (const auto& suspicion : found) {
            const bool there = suspicion.record != 0 && suspicion.record <= count;
            report_confirmed(tag, {suspicion, there, there && in_use(suspicion.record)});
        }
    }

    struct Confirmed {
        KeyCheck::Suspicion suspicion;
        bool there;   // whether the record exists
        bool in_use;  // whether another program had it locked at that moment
    };

    // Re-checks the first of these records under the index lock, as many as the time for which
    // others may be kept waiting allows. Returns their number; 0 if another program keeps the index
    // locked.
    std::size_t confirm_some(const FoundTag& tag, std::span<const RecordNumber> records,
                             std::optional<KeyCheck>& check, std::vector<Confirmed>& confirmed) {
        using Clock = std::chrono::steady_clock;
        const locks::ShortLock lock = locks::ShortLock::on_index(files_.index);
        if (!lock.held()) return 0;
        if (!bytes_.is_current(files_.index)) {
            check.reset();
            bytes_.read_again(files_.index);
            check.emplace(*tag.plan, bytes_, entries_of(tag));
        }
        const RecordNumber count = count_now();
        const Clock::time_point end = Clock::now() + kLongestHold;
        std::vector<Byte> bytes(layout_.record_length);
        std::size_t done = 0;
        do {
            const RecordNumber record = records[done++];
            if (record == 0 || record > count || !read_records(record, bytes)) continue;
            KeyCheck::Suspicions found;
            check->check({bytes, record}, found);
            const bool used = !found.empty() && in_use(record);
            for (const auto& suspicion : found) confirmed.push_back({suspicion, true, used});
        } while (done < records.size() && Clock::now() < end);
        return done;
    }

    // The tree's entries in the current bytes. Its structure has been checked before, without
    // collecting them: the entries of all tags together would take too much memory.
    std::vector<TreeEntry> entries_of(const FoundTag& tag) const {
        std::vector<TreeEntry> entries;
        entries.reserve(std::min<std::size_t>(header_.usable, bytes_.bytes().size()));
        CheckedTable counts;
        const Report silent = [](const Finding&) {};
        const Reporter report(report_.file(), silent, counts);
        PageOwners owners(bytes_.bytes().size());
        const index::TagDescription& description = tag.plan->description;
        const Bytes raw = bytes_.header_at(tag.header);
        if (raw.empty()) return entries;
        TreeWalk(bytes_, owners, report, description.name,
                 {tag.header, description.key_length, description.pad})
            .run(load_le32(raw.data()), [&](const index::CdxPage& page) {
                for_each_entry(page, [&](std::size_t, const index::PageEntry& entry) {
                    entries.push_back(
                        {entry.record(), page.offset(), hash_of(as_text(entry.key()))});
                });
            });
        return entries;
    }

    bool in_use(RecordNumber record) {
        return !locks::ShortLock::on_record(files_.table, layout_, record).held();
    }

    void report_confirmed(const FoundTag& tag, const Confirmed& confirmed) {
        const KeyCheck::Suspicion& suspicion = confirmed.suspicion;
        Finding place = at_tag(tag.description.name, suspicion.record);
        if (suspicion.page != 0) place.page = suspicion.page;
        if (confirmed.in_use) {
            return report_.unchecked("record-locked", place,
                                     "another program has the record locked; its keys are not "
                                     "checked");
        }
        switch (suspicion.wrong) {
            case KeyCheck::Wrong::kMissing:
                return report_.fault("missing-key", Remedy::kReindex, place,
                                     "the record has no key in the tag");
            case KeyCheck::Wrong::kStray:
                return report_.fault("stray-key", Remedy::kReindex, place,
                                     confirmed.there ? "an entry whose key is not the record's"
                                                     : "an entry of a record that does not exist");
            case KeyCheck::Wrong::kUnrepresented:
                return report_.note("unrepresented-key", Remedy::kReindex, place,
                                    "no entry represents the record's key; programs leave this "
                                    "behind when the record that had the entry changes");
            case KeyCheck::Wrong::kAgain:
                return report_.fault(
                    "key-not-unique", tag.description.unique ? Remedy::kReindex : Remedy::kByHand,
                    place,
                    "has the same key as record " + std::to_string(suspicion.other) +
                        ", which the tag does not allow");
        }
    }

    OpenTableFiles& files_;
    const HeaderFacts& header_;
    const record::TableLayout& layout_;
    const Reporter& report_;
    const Progress& progress_;
    IndexBytes bytes_;
    FoundTags found_;
};

}  // namespace

make::TagDefinition definition_of(const index::TagDescription& tag) {
    return {tag.name, tag.key, tag.condition, tag.unique, tag.candidate, tag.descending};
}

FoundTags find_tags(const IndexBytes& bytes, const record::TableLayout& layout,
                    const std::string& path) {
    const Directory directory = read_directory(bytes, path);
    FoundTags found;
    found.complete = directory.complete;
    for (const index::IndexEntry& name : directory.names) {
        try {
            if (name.record % index::kCdxPageSize != 0 || name.record < kFirstTreePage ||
                bytes.header_at(name.record).empty()) {
                throw EngineFault(FaultCode::kDamagedFile, "open", "outside the file");
            }
            found.tags.push_back(read_tag(bytes, layout, name.key, name.record, path));
        } catch (const EngineFault&) {
            found.unreadable.push_back(name.key);
        }
    }
    return found;
}

FoundTags tags_of_table(const std::string& path) {
    locks::FileUse reading;
    reading.access = platform::OpenMode::kReadOnly;
    const platform::File table = locks::open_file(record::table_path(path), reading);
    const record::TableLayout layout =
        record::parse_layout(record::read_header(table), table.path());
    platform::File index = locks::open_file(record::sibling_path(table.path(), "CDX"), reading);
    IndexBytes bytes;
    if (!bytes.read(index)) {
        throw EngineFault(FaultCode::kBusy, "open",
                          index.path() + ": another program keeps the index locked");
    }
    return find_tags(bytes, layout, index.path());
}

std::vector<make::TagDefinition> tag_definitions(const std::string& path) {
    const FoundTags found = tags_of_table(path);
    const auto refuse = [&](FaultCode code, const std::string& why) {
        throw EngineFault(code, "read tags", path + ": " + why);
    };
    if (!found.complete || !found.unreadable.empty()) {
        refuse(FaultCode::kDamagedFile, "its index is damaged, so not all of its tags are known");
    }
    std::vector<make::TagDefinition> definitions;
    for (const FoundTag& tag : found.tags) {
        if (!tag.plan) {
            refuse(FaultCode::kUnsupported, "tag " + tag.description.name + ": " + tag.unusable);
        }
        definitions.push_back(definition_of(tag.description));
    }
    if (definitions.empty()) refuse(FaultCode::kDamagedFile, "its index has no tags");
    return definitions;
}

std::optional<std::vector<std::string>> tag_names(const std::string& path) {
    OpenTableFiles files = OpenTableFiles::open(path, Access::kCheck);
    files.open_index(Access::kCheck);
    IndexBytes bytes;
    if (!files.index.is_open() || !bytes.read(files.index)) return {};
    const Directory directory = read_directory(bytes, files.index.path());
    if (!directory.complete) return {};
    std::vector<std::string> names;
    for (const index::IndexEntry& name : directory.names) names.push_back(name.key);
    return names;
}

void check_index(OpenTableFiles& files, const HeaderFacts& header, const Reporter& report,
                 const Progress& progress) {
    IndexCheck(files, header, report, progress).run();
}

}  // namespace brenik::maintenance
