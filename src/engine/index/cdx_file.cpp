// Opens index files and changes their tags.

#include "engine/index/cdx_file.h"

#include <algorithm>

#include "engine/index/cdx_header.h"
#include "engine/index/cdx_tree.h"
#include "util/runtime.h"

namespace brenik::index {
namespace {

constexpr const char* kLocked = "the index is locked";
// Changes of an index take milliseconds each, and waiting processes queue. The caller that opens a
// table retries, so a short timeout keeps the total wait for a locked index short.
constexpr int kOpeningTimeout_ms = 1000;

// Held until the file is closed: it keeps compatible programs from changing the index, and from
// locking it to read.
void keep_strangers_out(platform::File& file) {
    constexpr int kTimeout_ms = 50;
    const locks::LockRange marker = locks::LockScheme::index();
    if (!file.lock_within(marker, platform::LockKind::kShared, kTimeout_ms)) {
        throw locks::Refused(file.path(), kLocked, {marker, platform::LockKind::kShared});
    }
    file.keep_locks();
}

}  // namespace

CdxFile::CdxFile(platform::File file, bool exclusive, locks::LockMode mode)
    : pages_(std::make_unique<CdxPages>(std::move(file), exclusive, mode)),
      directory_(std::make_unique<CdxTree>(*pages_, directory_description(), 0)) {}

CdxFile::~CdxFile() = default;

const std::string& CdxFile::path() const { return pages_->path(); }

const platform::File& CdxFile::file() const { return pages_->file(); }

void CdxFile::set_cache_bytes(std::size_t bytes) { pages_->set_cache_bytes(bytes); }

void CdxFile::close() noexcept { pages_->file().close(); }

const std::vector<std::unique_ptr<CdxTree>>& CdxFile::tags() const { return tags_; }

void CdxFile::sync() { pages_->file().sync(); }

bool CdxFile::doubtful() const { return pages_->doubtful(); }

void CdxFile::require_room() const { pages_->require_room(); }

std::unique_ptr<CdxFile> CdxFile::open(const std::string& path, const locks::FileUse& use,
                                       Opened opened) {
    platform::File file = locks::open_file(path, use);
    if (use.mode == locks::LockMode::kProprietary && !use.exclusive()) keep_strangers_out(file);
    auto index = std::unique_ptr<CdxFile>(new CdxFile(std::move(file), use.exclusive(), use.mode));
    if (!index->pages_->begin_opening(opened == Opened::kLocked ? kOpeningTimeout_ms
                                                                : platform::kShortLockTimeout_ms)) {
        throw locks::Refused(index->path(), kLocked,
                             {locks::LockScheme::index(use.mode), platform::LockKind::kShared});
    }
    check_directory_header(index->pages_->tag_header(0), index->path());
    index->read_directory();
    if (opened == Opened::kUnlocked) index->end_opening();
    return index;
}

void CdxFile::end_opening() noexcept { pages_->end_opening(); }

void CdxFile::read_directory() {
    std::vector<IndexEntry> names;
    IndexEntry entry;
    for (bool any = directory_->first(entry); any; any = directory_->after(entry, entry)) {
        names.push_back(entry);
    }
    std::sort(names.begin(), names.end(),
              [](const IndexEntry& a, const IndexEntry& b) { return a.record < b.record; });
    std::uint64_t free_from = kTagHeaderSize;
    for (const IndexEntry& name : names) {
        const std::uint64_t offset = name.record;
        const std::vector<Byte> header = pages_->tag_header(offset);
        if (offset % kCdxPageSize != 0 || offset < free_from || header.size() < kTagHeaderSize) {
            pages_->damaged(offset, "expected the header of tag " + name.key);
        }
        free_from = offset + kTagHeaderSize;
        const std::string text(trim_right(name.key));
        require_texts_inside(header, path(), offset);
        tags_.push_back(std::make_unique<CdxTree>(
            *pages_, parse_tag_header(header, text, path(), offset), name.record));
    }
}

std::unique_ptr<CdxFile> CdxFile::create(const std::string& path) {
    platform::File file = locks::create_file(path);
    // The directory's root page follows its header.
    std::vector<Byte> bytes = make_directory_header(kTagHeaderSize);
    bytes.resize(kTagHeaderSize + kCdxPageSize);
    CdxPage root(CdxForm{0, kTagNameLength, ' '}, kTagHeaderSize, true);
    root.root = true;
    std::ranges::copy(root.encode(), bytes.begin() + kTagHeaderSize);
    file.write_at(0, bytes);
    return std::unique_ptr<CdxFile>(
        new CdxFile(std::move(file), true, locks::LockMode::kCompatible));
}

CdxTree& CdxFile::add_tag(const TagDescription& description, const SortedEntries& entries) {
    if (!pages_->exclusive()) {
        throw EngineFault(FaultCode::kNotLocked, "create index",
                          path() + ": adding a tag needs exclusive use");
    }
    std::string name = description.name;
    name.resize(kTagNameLength, ' ');
    // This first header only shows whether everything fits. It is made again when the root is
    // known.
    make_tag_header(description, 0, path());
    Change change(*this);
    if (change.contains(*directory_, as_bytes(name))) {
        throw EngineFault(FaultCode::kDuplicateKey, "create index",
                          path() + ": tag " + description.name + " exists already");
    }
    const std::uint32_t header = pages_->reserve_header();
    auto tag = std::make_unique<CdxTree>(*pages_, description, header);
    tag->build(entries);
    pages_->fill_header(header, make_tag_header(description, pages_->root(tag->form()), path()));
    change.insert(*directory_, as_bytes(name), header);
    change.publish();
    tags_.push_back(std::move(tag));
    return *tags_.back();
}

CdxFile::Change::Change(CdxFile& file, std::optional<LockTry> attempt, bool durable)
    : file_(file), begun_(file.pages_->begin_change(attempt, durable)) {
    if (begun_ || attempt) return;
    file.pages_->refuse_busy("change index", platform::LockKind::kExclusive);
}

CdxFile::Change::~Change() {
    if (!begun_) return;
    for (const auto& tag : file_.tags_) tag->forget_changes();
    file_.pages_->end_change();
}

bool CdxFile::Change::contains(CdxTree& tag, Bytes key) { return tag.contains(key); }

bool CdxFile::Change::insert(CdxTree& tag, Bytes key, RecordNumber record) {
    return tag.insert(key, record);
}

bool CdxFile::Change::remove(CdxTree& tag, Bytes key, RecordNumber record) {
    return tag.remove(key, record);
}

void CdxFile::Change::rebuild(const std::function<SortedEntries(std::size_t number)>& entries_of) {
    file_.pages_->start_afresh();
    for (std::size_t i = 0; i < file_.tags_.size(); ++i) file_.tags_[i]->rebuild(entries_of(i));
}

void CdxFile::Change::write_new_pages() {
    for (const auto& tag : file_.tags_) tag->finish();
    file_.pages_->write_new_pages();
}

void CdxFile::Change::publish() {
    write_new_pages();
    file_.pages_->publish();
}

}  // namespace brenik::index
