// Compares the keys of the records with those in the leaves.

#include "engine/maintenance/check_keys.h"

#include <algorithm>

namespace brenik::maintenance {
namespace {

bool by_record(const TreeEntry& a, const TreeEntry& b) { return a.record < b.record; }

}  // namespace

KeyCheck::KeyCheck(const make::TagPlan& plan, const IndexBytes& bytes,
                   std::vector<TreeEntry> entries)
    : plan_(plan), bytes_(bytes), entries_(std::move(entries)) {
    std::stable_sort(entries_.begin(), entries_.end(), by_record);
    if (!plan_.description.unique) return;
    for (const TreeEntry& entry : entries_) key_hashes_.push_back(entry.key_hash);
    std::sort(key_hashes_.begin(), key_hashes_.end());
}

void KeyCheck::check(const record::RecordView& record, Suspicions& found) const {
    const auto [first, last] = std::equal_range(entries_.begin(), entries_.end(),
                                                TreeEntry{record.number, 0, 0}, by_record);
    const bool member = plan_.order.holds(record);
    const std::uint64_t hash = member ? hash_of(plan_.order.key_of(record)) : 0;
    auto own = !member ? last : std::find_if(first, last, [&](const TreeEntry& entry) {
        return entry.key_hash == hash;
    });
    if (member && own == last) {
        own = std::find_if(first, last,
                           [&](const TreeEntry& entry) { return is_lenient_match(entry, record); });
    }
    for (auto entry = first; entry != last; ++entry) {
        if (entry != own) found.push_back({record.number, Wrong::kStray, entry->page});
    }
    if (!member || own != last) return;
    if (!plan_.description.unique) {
        found.push_back({record.number, Wrong::kMissing});
    } else if (!std::binary_search(key_hashes_.begin(), key_hashes_.end(), hash)) {
        found.push_back({record.number, Wrong::kUnrepresented});
    }
}

// Accepts keys that two writers may compute differently.
bool KeyCheck::is_lenient_match(const TreeEntry& entry, const record::RecordView& record) const {
    const index::CdxForm form{0, plan_.description.key_length, plan_.description.pad};
    const index::CdxPage page = index::CdxPage::decode(form, entry.page, bytes_.page(entry.page));
    for (std::size_t slot = 0; slot < page.count(); ++slot) {
        if (page.record(slot) != entry.record) continue;
        const std::string key(as_text(page.entry(slot).key()));
        if (hash_of(key) == entry.key_hash &&
            plan_.order.agrees_with({key, entry.record}, record)) {
            return true;
        }
    }
    return false;
}

void KeyCheck::check_past(RecordNumber count, Suspicions& found) const {
    const auto first =
        std::upper_bound(entries_.begin(), entries_.end(), TreeEntry{count, 0, 0}, by_record);
    for (auto entry = first; entry != entries_.end(); ++entry) {
        found.push_back({entry->record, Wrong::kStray, entry->page});
    }
    for (const TreeEntry& entry : entries_) {
        if (entry.record != 0) break;
        found.push_back({0, Wrong::kStray, entry.page});
    }
}

void KeyCheck::check_unique(Suspicions& found) const {
    if (!plan_.description.unique && !plan_.description.candidate) return;
    Entries by_key = entries_;
    std::stable_sort(by_key.begin(), by_key.end(), [](const TreeEntry& a, const TreeEntry& b) {
        return a.key_hash < b.key_hash;
    });
    for (std::size_t i = 1; i < by_key.size(); ++i) {
        if (by_key[i].key_hash != by_key[i - 1].key_hash) continue;
        found.push_back({by_key[i].record, Wrong::kAgain, by_key[i].page, by_key[i - 1].record});
    }
}

}  // namespace brenik::maintenance
