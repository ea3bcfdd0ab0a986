// Reads and writes memo blocks.

#include "engine/local/memo_file.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "engine/record/table_path.h"
#include "util/bytes.h"
#include "util/runtime.h"

namespace brenik::local {
namespace {

// At this distance from the limit the remembered size is good enough.
constexpr std::uint64_t kFarFromFull = std::uint64_t{64} << 20;
// A new record requires this much free space, because its memos are written later and must not be
// refused then.
constexpr std::uint64_t kReserve = std::uint64_t{1} << 20;
// Large enough for most texts, so that they take one call.
constexpr std::size_t kReadAtOnce = 512;
constexpr std::uint64_t kReadUnasked = 1 << 16;
constexpr std::size_t kMostReleased = 4096;
constexpr std::size_t kMostRemembered = 4096;

}  // namespace

std::unique_ptr<MemoFile> MemoFile::open(const std::string& table_path, std::uint8_t version,
                                         const locks::FileUse& use) {
    const record::MemoKind kind = record::memo_kind(version);
    const std::string path = record::sibling_path(table_path, record::memo_extension(version));
    auto memo =
        std::unique_ptr<MemoFile>(new MemoFile(locks::open_file(path, use), kind, use.mode));
    memo->read_header();
    return memo;
}

// Others may have taken released blocks meanwhile, because the lock was lost.
void MemoFile::reopen() {
    file_.reopen();
    read_header();
    known_blocks_ = left_free_ = 0;
    released_.clear();
    ours_.clear();
    if (doubtful_) pass_over_used_blocks();
}

void MemoFile::pass_over_used_blocks() {
    if (!queue_.lock(lock_, locks::LockScheme::queue(), platform::LockKind::kExclusive,
                     platform::kShortLockTimeout_ms)) {
        locks::refuse_busy("field put", path(), "the memo file is locked",
                           {lock_, platform::LockKind::kExclusive});
    }
    const locks::HeldLock held(file_, lock_);
    const std::uint64_t used = format_.blocks_in(file_.size());
    if (next_free_block() < used) {
        record::write_next_free(file_, static_cast<std::uint32_t>(used));
    }
    doubtful_ = false;
}

void MemoFile::create(const std::string& table_path) {
    platform::File file = locks::create_file(record::sibling_path(table_path, "FPT"));
    file.write_at(0, record::make_memo_header());
}

void MemoFile::read_header() {
    const auto format = record::read_memo_format(file_, format_.kind);
    if (!format) damaged(0, "shorter than a header");
    format_ = *format;
}

std::string MemoFile::read(std::uint32_t block) const {
    if (block == 0) return {};
    const std::uint64_t offset = format_.offset_of(block);
    if (format_.kind == record::MemoKind::kGeneration3) return read_generation3(offset);
    std::array<Byte, kReadAtOnce> first;
    const Bytes begin(first.data(), file_.read_at(offset, up_to_lock(first, offset)));
    std::string text(static_cast<std::size_t>(data_length(offset, begin)), '\0');
    const std::span<Byte> buffer{reinterpret_cast<Byte*>(text.data()), text.size()};
    const std::size_t at_hand = std::min(buffer.size(), begin.size() - record::kBlockHeaderSize);
    std::ranges::copy(begin.subspan(record::kBlockHeaderSize, at_hand), buffer.begin());
    const std::span<Byte> rest = buffer.subspan(at_hand);
    if (!rest.empty() &&
        file_.read_at(offset + record::kBlockHeaderSize + at_hand, rest) != rest.size()) {
        damaged(offset, "a memo that ends past the file");
    }
    return text;
}

// Stops before the lock's position: some systems refuse to read bytes that another process has
// locked.
MutableBytes MemoFile::up_to_lock(MutableBytes bytes, std::uint64_t offset) const {
    if (offset >= lock_.offset) return bytes;
    return bytes.first(static_cast<std::size_t>(
        std::clamp<std::uint64_t>(lock_.offset - offset, record::kBlockHeaderSize, bytes.size())));
}

std::string MemoFile::read_generation3(std::uint64_t offset) const {
    if (offset >= file_.size()) damaged(offset, "a memo block past the end of the file");
    std::string text;
    std::array<Byte, record::kGeneration3BlockSize> block;
    while (const std::size_t got = file_.read_at(offset + text.size(), block)) {
        const auto end = std::find(block.begin(), block.begin() + got, record::kTextEnd);
        text.append(block.begin(), end);
        if (end != block.begin() + got) break;
    }
    return text;
}

// Length of the data of the memo whose first block is at the offset and begins with these bytes. A
// length that would cost much memory is checked against the file; a read shows whether any other is
// wrong.
std::uint64_t MemoFile::data_length(std::uint64_t block_offset, Bytes header) const {
    if (block_offset < format_.first_offset() || header.size() < record::kBlockHeaderSize) {
        damaged(block_offset, "a memo block outside the file");
    }
    const auto memo = record::parse_memo_header(format_.kind, header);
    if (!memo) damaged(block_offset, "not the beginning of a memo");
    const std::uint64_t length = memo->length;
    if (length > kReadUnasked && length > file_.size() - block_offset - record::kBlockHeaderSize) {
        damaged(block_offset, "a memo of " + counted(length, "byte") + ", past the file's end");
    }
    return length;
}

std::uint32_t MemoFile::write(std::string_view text, bool binary, bool durable) {
    if (format_.kind != record::MemoKind::kFpt) {
        throw EngineFault(FaultCode::kUnsupported, "field put",
                          path() + ": memo files of this generation are read only");
    }
    if (text.empty()) return 0;
    const std::uint64_t blocks = format_.blocks_for(text.size());
    const std::uint32_t reused = reuse(blocks);
    const std::uint32_t block = reused != 0 ? reused : allocate(blocks, durable);
    file_.write_at(format_.offset_of(block), record::make_memo(format_, text, binary));
    if (durable) file_.sync();
    ours_.push_back({block, blocks});
    if (ours_.size() > kMostRemembered) ours_.pop_front();
    return block;
}

void MemoFile::release(std::uint32_t block) {
    const auto own = std::ranges::find(ours_, block, &Written::block);
    if (own == ours_.end()) return;
    released_.push_back({block, own->blocks, Clock::now() + kTextStays});
    ours_.erase(own);
    if (released_.size() > kMostReleased) released_.pop_front();
}

// Takes the first released blocks that are enough; their rest stays for the next text.
std::uint32_t MemoFile::reuse(std::uint64_t blocks) {
    const Clock::time_point now = Clock::now();
    for (auto one = released_.begin(); one != released_.end() && one->free_from <= now; ++one) {
        if (one->blocks < blocks) continue;
        const std::uint32_t block = one->block;
        one->block += static_cast<std::uint32_t>(blocks);
        one->blocks -= blocks;
        if (one->blocks == 0) released_.erase(one);
        return block;
    }
    return 0;
}

MemoFile::Allocation::Allocation(MemoFile& memo, LockTry attempt) : memo_(memo) {
    memo.allocating_ = memo.queue_.attempt(memo.lock_, locks::LockScheme::queue(), attempt);
}

MemoFile::Allocation::~Allocation() {
    if (!std::exchange(memo_.allocating_, false)) return;
    memo_.file_.unlock(memo_.lock_);
}

// Reserves blocks at the end of the file under the memo lock.
std::uint32_t MemoFile::allocate(std::uint64_t blocks, bool durable) {
    if (allocating_) return allocate_locked(blocks, durable);
    if (!queue_.lock(lock_, locks::LockScheme::queue(), platform::LockKind::kExclusive,
                     platform::kShortLockTimeout_ms)) {
        locks::refuse_busy("field put", path(), "the memo file is locked",
                           {lock_, platform::LockKind::kExclusive});
    }
    const locks::HeldLock held(file_, lock_);
    return allocate_locked(blocks, durable);
}

std::uint32_t MemoFile::allocate_locked(std::uint64_t blocks, bool durable) {
    const std::uint64_t block = next_free_block();
    if (block != left_free_) require_unused(block);
    check_room(block, blocks);
    // The system may have reconnected to a share in order to write, and others may have been given
    // these blocks meanwhile.
    file_.require_same_session();
    doubtful_ = true;
    record::write_next_free(file_, static_cast<std::uint32_t>(block + blocks));
    file_.require_same_session();
    doubtful_ = false;
    // Blocks past what the header counts would make every later allocation fail.
    if (durable) file_.sync();
    known_blocks_ = left_free_ = block + blocks;
    return static_cast<std::uint32_t>(block);
}

void MemoFile::require_unused(std::uint64_t block) const {
    const std::uint64_t offset = format_.offset_of(block);
    if (offset >= format_.first_offset() && offset >= file_.size()) return;
    damaged(0, "next free block " + std::to_string(block) + " lies inside used blocks");
}

std::uint64_t MemoFile::next_free_block() const {
    const auto block = record::read_next_free(file_);
    if (!block) damaged(0, "shorter than a header");
    return *block;
}

// Memos end before the lock's position, and their block numbers fit into 32 bits.
void MemoFile::check_room(std::uint64_t next_free, std::uint64_t blocks) const {
    const std::uint64_t end = next_free + blocks;
    if (format_.offset_of(end) <= lock_.offset && end < lock_.offset) return;
    throw EngineFault(
        FaultCode::kLimit, "field put",
        path() + ": the memo file cannot grow past " + std::to_string(lock_.offset) + " bytes");
}

void MemoFile::require_room(std::uint64_t memos, std::uint64_t bytes) {
    if (format_.kind != record::MemoKind::kFpt) return;
    const std::uint64_t blocks = bytes / format_.block_size + memos * format_.blocks_for(0) + memos;
    const bool far_from_full =
        known_blocks_ != 0 &&
        format_.offset_of(known_blocks_ + blocks) + kFarFromFull < lock_.offset;
    if (far_from_full) return;
    known_blocks_ = next_free_block();
    check_room(known_blocks_, blocks);
}

void MemoFile::require_room_for_record() { require_room(0, kReserve); }

void MemoFile::damaged(std::uint64_t offset, const std::string& what) const {
    throw EngineFault(FaultCode::kDamagedFile, "memo",
                      path() + ": at " + std::to_string(offset) + ": " + what);
}

}  // namespace brenik::local
