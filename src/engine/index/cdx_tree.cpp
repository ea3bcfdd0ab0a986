// Walks a tag's tree, and inserts and removes entries.

#include <algorithm>
#include <cstring>
#include <utility>

#include "engine/index/cdx_tree.h"
#include "util/runtime.h"

namespace brenik::index {
namespace {

constexpr std::size_t kDeepestTree = 64;
constexpr std::size_t kUsualDepth = 5;
// Page visits that one call may make in addition to two per page of the file.
constexpr std::uint64_t kSpareVisits = 256;

bool same(Bytes a, Bytes b) { return std::equal(a.begin(), a.end(), b.begin(), b.end()); }

int compare(Bytes a, Bytes b) {
    return std::memcmp(a.data(), b.data(), std::min(a.size(), b.size()));
}

}  // namespace

CdxTree::CdxTree(CdxPages& pages, TagDescription description, std::uint32_t header_offset)
    : pages_(pages), description_(std::move(description)), header_(header_offset) {}

// -- Walking.

void CdxTree::begin() {
    if (description_.key_length < 1 || description_.key_length > kLongestCdxKey) {
        throw EngineFault(
            FaultCode::kUnsupported, "read index",
            pages_.path() + ": tag " + description_.name + ": " + description_.unsupported);
    }
    visits_left_ = kSpareVisits + 2 * pages_.page_count();
}

PageEntry CdxTree::probe(Bytes key, RecordNumber record) const {
    if (key.size() < description_.key_length) return PageEntry(key);
    return {key.first(description_.key_length), record};
}

bool CdxTree::forward(Bytes probe, bool past_equal, IndexEntry& found) {
    return read([&] { return answer(locate(probe, past_equal), probe, found); });
}

bool CdxTree::backward(Bytes probe, bool past_equal, IndexEntry& found) {
    return read([&] {
        Position position = locate(probe, past_equal);
        // An interrupted removal can leave a greater entry in the page before.
        while (step_back(position)) {
            if (probe.empty() || compare(position.page->entry(position.slot), probe) <= 0) {
                return answer(position, found);
            }
        }
        return false;
    });
}

bool CdxTree::after(const IndexEntry& entry, IndexEntry& found, Trust trust) {
    const PageEntry wanted = probe(as_bytes(entry.key), entry.record);
    if (trust == Trust::kMoment && remembered(wanted) && last_.slot + 1 < last_page_->count()) {
        last_page_->advance(last_);
        return answer_last(found);
    }
    return read([&] {
        if (!remembered(wanted)) return answer(locate(wanted, true), wanted, found);
        while (step_on()) {
            // A damaged file may hold an entry twice.
            if (!same(last_.entry, wanted)) return answer_last(found);
        }
        return false;
    });
}

bool CdxTree::before(const IndexEntry& entry, IndexEntry& found, Trust trust) {
    const PageEntry wanted = probe(as_bytes(entry.key), entry.record);
    if (trust == Trust::kMoment && remembered(wanted) && last_.slot > 0) {
        return answer({last_page_, last_.slot - 1}, found);
    }
    return read([&] {
        Position position =
            remembered(wanted) ? Position{last_page_, last_.slot} : locate(wanted, false);
        while (step_back(position)) {
            if (!same(position.page->entry(position.slot), wanted)) return answer(position, found);
        }
        return false;
    });
}

// True when `last_` is valid and is the position of this entry.
bool CdxTree::remembered(Bytes entry) const {
    return last_page_ != nullptr && last_generation_ == pages_.generation() &&
           same(last_.entry, entry);
}

bool CdxTree::answer(Position position, IndexEntry& found) {
    return position.slot < position.page->count() &&
           answer(*position.page, position.page->reading(position.slot), found);
}

// The same for the position that locate() has just found with the probe.
bool CdxTree::answer(Position located, Bytes probe, IndexEntry& found) {
    return located.slot < located.page->count() &&
           answer(*located.page, located.page->reading(place_, probe), found);
}

bool CdxTree::answer(CdxPage& page, const CdxPage::Reading& reading, IndexEntry& found) {
    last_page_ = &page;
    last_ = reading;
    last_generation_ = pages_.generation();
    return answer_last(found);
}

bool CdxTree::answer_last(IndexEntry& found) const {
    found.key.assign(as_text(last_.entry.key()));
    found.record = last_.entry.record();
    return true;
}

CdxPage& CdxTree::load(std::uint32_t offset) {
    if (visits_left_-- == 0) pages_.damaged(offset, "expected pages that do not form a cycle");
    return pages_.page(form(), offset);
}

CdxPage& CdxTree::root() { return load(pages_.root(form())); }

CdxPage& CdxTree::child_of(const CdxPage& page, std::size_t slot) {
    const std::uint32_t offset = page.child(slot);
    if (offset == page.offset()) {
        pages_.damaged(offset, "entry " + std::to_string(slot) + ": expected another page");
    }
    return load(offset);
}

CdxPage& CdxTree::sibling(const CdxPage& page, std::uint32_t offset) {
    if (offset == page.offset()) pages_.damaged(offset, "expected another page as sibling");
    CdxPage& other = load(offset);
    if (other.leaf() != page.leaf()) {
        pages_.damaged(page.offset(), "expected a sibling of the same level");
    }
    return other;
}

CdxPage& CdxTree::right_of(const CdxPage& page) {
    CdxPage& other = sibling(page, page.right);
    if (!page.empty() && !other.empty() && compare(page.last_entry(), other.entry(0)) > 0) {
        pages_.damaged(other.offset(), "expected keys not less than those of the left sibling");
    }
    return other;
}

// A page that an interrupted split left without an entry in the parent.
CdxPage& CdxTree::split_off(const CdxPage& page) {
    CdxPage& other = right_of(page);
    if (page.empty() || other.empty()) pages_.damaged(page.offset(), "expected entries");
    return other;
}

// The leaf and slot of the first entry at or past the probe; one slot past the last entry if every
// entry is before it.
CdxTree::Position CdxTree::locate(Bytes probe, bool past_equal) {
    CdxPage* page = &root();
    const auto bound = [&] {
        if (!page->leaf()) return page->bound(probe, past_equal);
        place_ = page->find(probe, past_equal);
        return place_.slot;
    };
    for (std::size_t depth = 0; depth < kDeepestTree; ++depth) {
        std::size_t slot = bound();
        while (slot == page->count() && page->right != kNoPage) {
            page = &right_of(*page);
            slot = bound();
        }
        if (page->leaf()) {
            check_depth(*page, depth);
            return {page, slot};
        }
        page = &child_of(*page, std::min(slot, page->count() - 1));
    }
    pages_.damaged(page->offset(), "expected a tree of at most 64 levels");
}

void CdxTree::check_depth(const CdxPage& leaf, std::size_t depth) {
    if (depth_generation_ == pages_.generation() && leaf_depth_ != depth) {
        pages_.damaged(leaf.offset(), "expected leaves at one depth only");
    }
    depth_generation_ = pages_.generation();
    leaf_depth_ = depth;
}

bool CdxTree::step_back(Position& position) {
    if (position.slot == 0) return !position.page->empty() && find_before(position);
    --position.slot;
    return true;
}

// Moves from the first entry of a leaf to the one before it. Descends from the root, because an
// interrupted write can leave left pointers to pages that are no longer in use.
bool CdxTree::find_before(Position& position) {
    const PageEntry first = position.page->entry(0);
    Path candidates;
    descend_before(root(), first, candidates);
    while (!candidates.empty()) {
        const Position nearest = candidates.back();
        candidates.pop_back();
        if (nearest.page->leaf()) {
            position = nearest;
            return true;
        }
        if (nearest.slot > 0) candidates.push_back({nearest.page, nearest.slot - 1});
        descend_before(child_of(*nearest.page, nearest.slot), first, candidates);
    }
    return false;
}

// Collects the positions below a page where the last entry less than `limit` may be; the nearest is
// last.
void CdxTree::descend_before(CdxPage& from, Bytes limit, Path& candidates) {
    for (CdxPage* page = &from;;) {
        std::size_t slot = page->bound(limit, false);
        while (slot == page->count() && page->right != kNoPage) {
            if (slot > 0) candidates.push_back({page, slot - 1});
            page = &right_of(*page);
            slot = page->bound(limit, false);
        }
        if (!page->leaf()) slot = std::min(slot, page->count() - 1);
        if (slot > 0) candidates.push_back({page, slot - 1});
        if (page->leaf()) return;
        page = &child_of(*page, slot);
    }
}

// Follows right pointers, but not to the page `end` nor to entries that are not less than `limit`.
CdxPage& CdxTree::last_below(CdxPage& from, Bytes limit, std::uint32_t end) {
    CdxPage* page = &from;
    while (page->right != kNoPage && page->right != end) {
        CdxPage& right = right_of(*page);
        if (!right.empty() && compare(right.entry(0), limit) >= 0) break;
        page = &right;
    }
    return *page;
}

// Moves `last_` to the next entry.
bool CdxTree::step_on() {
    if (last_.slot + 1 < last_page_->count()) {
        last_page_->advance(last_);
        return true;
    }
    CdxPage* page = last_page_;
    do {
        if (page->right == kNoPage) return false;
        page = &right_of(*page);
    } while (page->empty());
    last_page_ = page;
    last_ = page->reading(0);
    last_generation_ = pages_.generation();
    return true;
}

// -- Changing.

bool CdxTree::contains(Bytes key) {
    IndexEntry found;
    return key.size() == description_.key_length && forward(key, false, found) &&
           same(as_bytes(found.key), key);
}

PageEntry CdxTree::checked_entry(Bytes key, RecordNumber record) const {
    if (key.size() != description_.key_length) {
        throw EngineFault(FaultCode::kUnsuitableValue, "change index",
                          pages_.path() + ": tag " + description_.name + ": a key of " +
                              counted(description_.key_length, "byte") + " is needed");
    }
    return probe(key, record);
}

bool CdxTree::insert(Bytes key, RecordNumber record) {
    const PageEntry entry = checked_entry(key, record);
    Path path = path_to(entry);
    if (place_.there) return false;
    CdxPage& leaf = *path.back().page;
    pages_.touch_entries(leaf);
    leaf.insert(place_, entry);
    settle(path, path.size() - 1, place_.slot + 1 == leaf.count() ? &entry : nullptr);
    return true;
}

bool CdxTree::remove(Bytes key, RecordNumber record) {
    const PageEntry entry = checked_entry(key, record);
    Path path = path_to(entry);
    const auto [leaf, slot] = path.back();
    if (!place_.there) return false;
    pages_.touch_entries(*leaf);
    leaf->erase(place_, entry);
    if (path.size() > 1 && slot == leaf->count()) {
        const Position& parent = path[path.size() - 2];
        loosen(*leaf, parent.page->branch(parent.slot));
    }
    if (path.size() == 1 || !leaf->loose || !leaf->fits()) settle(path, path.size() - 1);
    return true;
}

// Touches the page: if the change is given up, it must not stay in the cache as a loose one.
void CdxTree::loosen(CdxPage& page, Bytes said) {
    if (page.loose) return;
    pages_.touch_entries(page);
    loose_.emplace_back(said);
    page.loose = true;
}

void CdxTree::finish() {
    while (!loose_.empty()) {
        const PageEntry entry = loose_.back();  // a repair on the way may add others
        Path path = path_to(entry);
        const auto lowest = std::find_if(path.rbegin(), path.rend(),
                                         [](const Position& step) { return step.page->loose; });
        if (lowest == path.rend()) {
            loose_.pop_back();
            continue;
        }
        lowest->page->loose = false;
        settle(path, static_cast<std::size_t>(path.rend() - lowest) - 1);
    }
}

// The path to the leaf and slot of an entry, or to where it belongs.
CdxTree::Path CdxTree::path_to(Bytes entry) {
    begin();
    Path path;
    path.reserve(kUsualDepth);
    while (!descend(entry, path)) path.clear();
    return path;
}

// False when it repaired something on the way; the path has then changed.
bool CdxTree::descend(Bytes entry, Path& path) {
    CdxPage* page = &root();
    if (page->right != kNoPage) {
        learn_levels(path, *page);
        grow(*page, {&split_off(*page)});
        return false;
    }
    for (;;) {
        if (page->leaf()) {
            place_ = page->find(entry, false);
            path.push_back({page, place_.slot});
            break;
        }
        path.push_back({page, std::min(page->bound(entry, false), page->count() - 1)});
        if (path.size() > kDeepestTree) {
            pages_.damaged(page->offset(), "expected a tree of at most 64 levels");
        }
        CdxPage& child = child_of(*page, path.back().slot);
        if (repair(path, child)) return false;
        page = &child;
    }
    if (repair_before(path, entry)) return false;
    set_levels(path);
    return true;
}

void CdxTree::set_levels(const Path& path) {
    for (std::size_t depth = 0; depth < path.size(); ++depth) {
        const int level = static_cast<int>(path.size() - 1 - depth);
        CdxPage& page = *path[depth].page;
        if (page.level != level && page.level != CdxPage::kUnknownLevel) {
            pages_.damaged(page.offset(), "expected leaves at one depth only");
        }
        page.level = level;
    }
}

// Sets the levels of a page and of those above it, for writes before a whole path is known.
void CdxTree::learn_levels(const Path& path, CdxPage& child) {
    int level = 0;
    for (CdxPage* page = &child; !page->leaf(); page = &child_of(*page, 0)) ++level;
    child.level = level;
    for (auto step = path.rbegin(); step != path.rend(); ++step) step->page->level = ++level;
}

// Makes the last entry of `path` agree with the child that it names. True if something was
// repaired. A child that ends before its entry in the parent becomes loose.
bool CdxTree::repair(Path& path, CdxPage& child) {
    CdxPage& parent = *path.back().page;
    const std::size_t slot = path.back().slot;
    repair_left_pointer(path, child);
    const std::uint32_t next = expected_right(path.back());
    CdxPage* extra = child.right == next ? nullptr : &split_off(child);
    if (extra == nullptr && (child.loose || child.end_is_named)) return false;
    const PageEntry said = parent.entry(slot);
    const PageEntry end = child.last_entry();
    child.end_is_named = same(said, end);
    if (extra == nullptr && child.end_is_named) return false;
    if (extra == nullptr && compare(end, said) < 0) {
        loosen(child, said);
        return false;
    }
    // Split-off pages lead to the parent's next child; anything else is not a split.
    for (CdxPage* page = extra; page != nullptr && page->right != next;) {
        if (page->right == kNoPage) {
            pages_.damaged(child.offset(), "expected siblings in the order of the level above");
        }
        page = &right_of(*page);
    }
    learn_levels(path, child);
    // Touched before the change: if the order below turns out wrong, the cached page is dropped.
    pages_.touch_entries(parent);
    parent.set_last_of_child(slot, end);
    child.loose = false;
    if (extra != nullptr) {
        const bool ends_before = compare(extra->last_entry(), said) < 0;
        if (ends_before) loosen(*extra, said);
        parent.insert_child(slot + 1, ends_before ? said : extra->last_entry(), extra->offset());
        link_behind(child, *extra);
    }
    if (slot + 1 < parent.count() && compare(parent.branch(slot), parent.branch(slot + 1)) > 0) {
        pages_.damaged(parent.offset(), "expected entries in key order");
    }
    settle(path, path.size() - 1);
    return true;
}

// An entry that would become the first of its leaf may belong in the leaf before, if an interrupted
// change has added a last entry there that the parents do not know yet.
bool CdxTree::repair_before(const Path& path, Bytes entry) {
    if (path.back().slot > 0) return false;
    const auto turn = std::find_if(path.rbegin(), path.rend(),
                                   [](const Position& step) { return step.slot > 0; });
    if (turn == path.rend()) return false;
    const CdxPage* before = left_neighbour(path, path.size() - 1);
    if (before->empty() || compare(before->last_entry(), entry) < 0) return false;
    Path other;
    if (descend(turn->page->entry(turn->slot - 1), other)) {
        pages_.damaged(before->offset(), "expected keys before those of the next page");
    }
    return true;
}

// The page to the right of the named child, according to its parents.
std::uint32_t CdxTree::expected_right(const Position& parent) {
    if (parent.slot + 1 < parent.page->count()) return parent.page->child(parent.slot + 1);
    if (parent.page->right == kNoPage) return kNoPage;
    return right_of(*parent.page).child(0);
}

void CdxTree::repair_left_pointer(Path& path, CdxPage& child) {
    const Position parent = path.back();
    if (parent.slot > 0 && child.left == parent.page->child(parent.slot - 1)) return;
    path.push_back({&child, 0});
    const CdxPage* neighbour = left_neighbour(path, path.size() - 1);
    path.pop_back();
    const std::uint32_t left = neighbour == nullptr ? kNoPage : neighbour->offset();
    if (child.left == left) return;
    child.left = left;
    pages_.touch_pointers(child);
}

// The page whose right pointer names the page at `depth` or skips it.
CdxPage* CdxTree::left_neighbour(const Path& path, std::size_t depth) {
    std::size_t level = depth;
    while (level > 0 && path[level - 1].slot == 0) --level;
    if (level == 0) return nullptr;
    const Bytes limit = path[depth - 1].page->branch(path[depth - 1].slot);
    CdxPage* page = &child_of(*path[level - 1].page, path[level - 1].slot - 1);
    for (;; ++level) {
        page = &last_below(*page, limit, path[level].page->offset());
        if (level == depth) return page;
        if (page->leaf() || page->empty()) {
            pages_.damaged(page->offset(), "expected leaves at one depth only");
        }
        page = &child_of(*page, page->count() - 1);
    }
}

// Completes a change to the entries of one page: splits it or removes it from the tree, and updates
// its entry in the parent. A caller that knows the page's last entry saves unpacking it.
void CdxTree::settle(Path& path, std::size_t depth, const PageEntry* known_last) {
    CdxPage& page = *path[depth].page;
    pages_.touch_entries(page);
    if (page.empty()) return remove_emptied(path, depth);
    const std::vector<CdxPage*> added = split(page, path[depth]);
    if (depth == 0) {
        if (!added.empty()) grow(page, added);
        return;
    }
    if (added.empty() && page.end_is_named) return;
    CdxPage& parent = *path[depth - 1].page;
    std::size_t slot = path[depth - 1].slot;
    CdxPage& end = added.empty() ? page : *added.back();
    const PageEntry said = parent.entry(slot);
    const PageEntry end_last =
        known_last != nullptr && added.empty() ? *known_last : end.last_entry();
    end.loose = end.loose && compare(end_last, said) < 0;
    const PageEntry& last = end.loose ? said : end_last;
    if (added.empty() && same(said, last)) return;
    parent.set_last_of_child(slot, added.empty() ? last : page.last_entry());
    end.end_is_named = !end.loose;
    for (const CdxPage* one : added) {
        parent.insert_child(++slot, one == &end ? last : one->last_entry(), one->offset());
    }
    path[depth - 1].slot = slot;
    settle(path, depth - 1);
}

void CdxTree::remove_emptied(Path& path, std::size_t depth) {
    CdxPage& page = *path[depth].page;
    if (depth == 0) {
        page.become_empty_leaf();
        return;
    }
    unlink(page, left_neighbour(path, depth));
    pages_.free(page);
    path[depth - 1].page->erase_child(path[depth - 1].slot);
    settle(path, depth - 1);
}

// Splits a page that has become too large; the new pages are on its right.
std::vector<CdxPage*> CdxTree::split(CdxPage& page, const Position& changed) {
    const bool appending = page.right == kNoPage && changed.slot + 1 == page.count();
    std::vector<std::size_t> cuts = page.cuts(appending);
    std::vector<CdxPage*> added;
    for (auto cut = cuts.rbegin(); cut != cuts.rend(); ++cut) {
        CdxPage& part = pages_.add(form(), page.leaf());
        page.move_tail(*cut, part);
        link_behind(page, part);
        added.insert(added.begin(), &part);
    }
    return added;
}

// Sets the left pointers of a page added to the right of `page`, and of the page after it.
void CdxTree::link_behind(CdxPage& page, CdxPage& added) {
    added.left = page.offset();
    pages_.touch_pointers(added);
    if (added.right == kNoPage) return;
    CdxPage& neighbour = sibling(added, added.right);
    neighbour.left = added.offset();
    pages_.touch_pointers(neighbour);
}

void CdxTree::unlink(const CdxPage& page, CdxPage* left) {
    if (page.right != kNoPage) {
        CdxPage& right = sibling(page, page.right);
        right.left = left == nullptr ? kNoPage : left->offset();
        pages_.touch_pointers(right);
    }
    if (left == nullptr) return;
    left->level = page.level;
    left->pass_over(page);
    pages_.touch_pointers(*left);
}

// The root keeps its offset, because other engines remember it. Its entries move to a new page, and
// it becomes the branch above that page and `added`.
void CdxTree::grow(CdxPage& root, const std::vector<CdxPage*>& added) {
    CdxPage& first = pages_.add(form(), root.leaf());
    root.move_tail(0, first);
    if (!first.fits()) pages_.damaged(root.offset(), "expected entries that fit a page");
    first.left = kNoPage;
    added.front()->left = first.offset();
    pages_.touch_pointers(*added.front());
    root.become_branch();
    root.insert_child(0, first.last_entry(), first.offset());
    for (const CdxPage* page : added) {
        root.insert_child(root.count(), page->last_entry(), page->offset());
    }
    Path path{{&root, root.count() - 1}};
    settle(path, 0);
}

// -- Searching.

bool CdxTree::first(IndexEntry& found) { return forward({}, false, found); }

bool CdxTree::last(IndexEntry& found) { return backward({}, true, found); }

bool CdxTree::at_or_after(Bytes key, RecordNumber record, IndexEntry& found) {
    return forward(probe(key, record), false, found);
}

bool CdxTree::at_or_before(Bytes key, RecordNumber record, IndexEntry& found, int timeout_ms) {
    const CdxPages::ReadTimeout timeout(pages_, timeout_ms);
    return backward(probe(key, record), true, found);
}

}  // namespace brenik::index
