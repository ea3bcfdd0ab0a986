// One pass over the records, then a look at which memos overlap.

#include "engine/maintenance/check_memo.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "engine/locks/lock_scheme.h"
#include "engine/record/field_codec.h"
#include "engine/record/record_scan.h"
#include "util/runtime.h"

namespace brenik::maintenance {
namespace {

constexpr std::uint64_t kFptHeaderSize = 512;
constexpr std::uint64_t kBlockHeaderSize = 8;
constexpr std::uint32_t kMostBlockTypes = 3;  // picture, text, object
constexpr std::uint64_t kGeneration3BlockSize = 512;
constexpr RecordNumber kProgressStep = 4096;

enum class MemoKind { kFpt, kGeneration3, kGeneration4 };

MemoKind kind_of(const record::TableLayout& layout) {
    if (layout.version == 0x83) return MemoKind::kGeneration3;
    return layout.version == 0x8B ? MemoKind::kGeneration4 : MemoKind::kFpt;
}

// What a record says about one of its memos.
struct Pointer {
    bool readable = true;
    std::uint32_t block = 0;
};

Pointer pointer_of(const record::RecordView& record, const record::Field& field) {
    if (field.width == 4) return {true, load_le32(record.field(field).data())};
    std::string_view text = as_text(record.field(field));
    while (!text.empty() && text.back() == '\0') text.remove_suffix(1);
    text = trim_both(text);
    Pointer pointer;
    if (text.empty()) return pointer;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), pointer.block);
    pointer.readable = error == std::errc() && end == text.data() + text.size();
    return pointer;
}

struct Claim {
    std::uint64_t from;  // bytes of the memo file
    std::uint64_t to;
    RecordNumber record;
    std::uint32_t field;

    bool operator<(const Claim& other) const {
        return from != other.from ? from < other.from : record < other.record;
    }
};

struct BadPointer {
    RecordNumber record;
    std::size_t field;
    std::uint32_t block;
    std::string what;
};

class RecordCheck {
  public:
    RecordCheck(TableFiles& files, const HeaderFacts& header, const Reporter& report)
        : files_(files),
          layout_(*header.layout),
          header_(header),
          table_report_(report),
          report_(report.for_file(files.memo.path())),
          kind_(kind_of(layout_)) {
        for (std::size_t i = 0; i < layout_.fields.size(); ++i) {
            if (record::is_memo(layout_.fields[i])) fields_.push_back(i);
        }
    }

    MemoFacts run(const Progress& progress) {
        if (!fields_.empty()) open_memo();
        const auto read = [&](RecordNumber first, MutableBytes into) {
            return files_.table.read_at(header_.end_of(first - 1), into) == into.size();
        };
        record::scan_records(layout_, header_.usable, read, [&](const record::RecordView& record) {
            check(record);
            if (progress && record.number % kProgressStep == 0) {
                progress("records", record.number, header_.usable);
            }
            return true;
        });
        if (fields_.empty()) return facts_;
        if (!usable_) report_unusable();
        report_pointers();
        report_overlaps();
        if (usable_ && kind_ == MemoKind::kFpt) check_next_free();
        return facts_;
    }

  private:
    void open_memo() {
        if (!files_.memo.is_open()) {
            facts_.sound_header = false;
            return;
        }
        std::array<Byte, 24> header{};
        const std::uint64_t least = kind_ == MemoKind::kFpt ? kFptHeaderSize : header.size();
        if (files_.memo.size() < least || files_.memo.read_at(0, header) < header.size()) {
            facts_.sound_header = false;
            return;
        }
        usable_ = true;
        block_size_ = kGeneration3BlockSize;
        if (kind_ == MemoKind::kFpt) block_size_ = memo_block_size(files_.memo);
        if (kind_ == MemoKind::kGeneration4 && load_le16(header.data() + 20) != 0) {
            block_size_ = load_le16(header.data() + 20);
        }
    }

    void report_unusable() {
        const platform::OpenFailure failure = files_.memo.failure();
        if (failure == platform::OpenFailure::kSharing) {
            return report_.unchecked("in-use", {}, "in exclusive use by another program");
        }
        const bool missing = failure == platform::OpenFailure::kMissing;
        if (!missing && !files_.memo.is_open()) {
            return report_.unchecked("cannot-open", {}, "the memo file cannot be opened");
        }
        const std::string what =
            missing ? "the table's memo file is missing" : "the memo file has no whole header";
        const bool replaceable = !facts_.pointers && kind_ == MemoKind::kFpt;
        report_.fault(missing ? "memo-missing" : "memo-header",
                      replaceable ? Remedy::kRepair : Remedy::kRestore, {},
                      what + (facts_.pointers ? ", and records have memos in it"
                                              : "; no record has a memo in it"));
    }

    void check(const record::RecordView& record) {
        const Byte mark = record.bytes[0];
        if (mark != ' ' && mark != '*') {
            ++facts_.bad_marks;
            table_report_.fault("deletion-mark", Remedy::kByHand, at_record(record.number),
                                "begins with byte " + std::to_string(mark) +
                                    ", neither blank nor asterisk: compare it with an older copy");
        }
        for (const std::size_t i : fields_) check(record, i);
    }

    void check(const record::RecordView& record, std::size_t field) {
        const Pointer pointer = pointer_of(record, layout_.fields[field]);
        if (pointer.readable && pointer.block == 0) return;
        facts_.pointers = true;
        if (!usable_) return;
        std::string wrong = pointer.readable ? reason_against(pointer.block, record, field)
                                             : std::string("the memo's block is no number");
        // A program that writes the record just now is given the time for it.
        if (wrong.empty() || changed_since(record, field)) return;
        bad_.push_back({record.number, field, pointer.block, std::move(wrong)});
    }

    // Pointers that are nearly all wrong are not wrong: the block size is.
    void report_pointers() {
        if (kind_ == MemoKind::kFpt && bad_.size() > 1 && bad_.size() > claims_.size()) {
            if (const std::uint32_t size = likely_block_size()) {
                report_.fault("memo-block-size", Remedy::kRepair, {},
                              "the block size is " + std::to_string(block_size_) +
                                  ", but the memos of all records begin at blocks of " +
                                  std::to_string(size) + " bytes");
                facts_.block_size = static_cast<std::uint16_t>(size);
                bad_.clear();
                claims_.clear();
                return;
            }
        }
        for (const BadPointer& bad : bad_) {
            report_.fault("memo-pointer", Remedy::kRepair,
                          at_record(bad.record, layout_.fields[bad.field].name), bad.what);
            facts_.faults.push_back({bad.record, bad.field, false});
        }
    }

    // A size that makes a memo of every block that records name; 0 when there is none.
    std::uint32_t likely_block_size() const {
        for (const std::uint32_t size : {64U, 512U, 32U, 128U, 256U, 1024U, 33U}) {
            const auto is_memo_there = [&](std::uint64_t block) {
                return begins_memo(block * size);
            };
            const bool all =
                std::all_of(bad_.begin(), bad_.end(),
                            [&](const BadPointer& bad) { return is_memo_there(bad.block); }) &&
                std::all_of(claims_.begin(), claims_.end(), [&](const Claim& claim) {
                    return is_memo_there(claim.from / block_size_);
                });
            if (size != block_size_ && all) return size;
        }
        return 0;
    }

    bool begins_memo(std::uint64_t at) const {
        std::array<Byte, kBlockHeaderSize> header{};
        const std::uint64_t size = files_.memo.size();
        if (at < kFptHeaderSize || files_.memo.read_at(at, header) < header.size()) return false;
        const std::uint32_t length = load_be32(header.data() + 4);
        return load_be32(header.data()) < kMostBlockTypes && length > 0 &&
               length <= size - at - kBlockHeaderSize;
    }

    std::string reason_against(std::uint32_t block, const record::RecordView& record,
                               std::size_t field) {
        const std::uint64_t at = block * block_size_;
        const std::string where = "the memo's block " + std::to_string(block);
        const std::uint64_t first = kind_ == MemoKind::kFpt ? kFptHeaderSize : block_size_;
        if (at < first || at >= files_.memo.size()) return where + " lies outside the memo file";
        if (kind_ == MemoKind::kGeneration3) return {};
        std::array<Byte, kBlockHeaderSize> header{};
        if (files_.memo.read_at(at, header) < header.size()) return where + " is cut short";
        std::uint64_t length = std::uint64_t{load_be32(header.data() + 4)} + kBlockHeaderSize;
        if (kind_ == MemoKind::kGeneration4) length = load_le32(header.data() + 4);
        if (length > files_.memo.size() - at) {
            return where + " begins a memo of " + std::to_string(length) +
                   " bytes, which runs past the end of the memo file";
        }
        if (kind_ == MemoKind::kFpt && load_be32(header.data()) >= kMostBlockTypes) {
            return where + " is not the beginning of a memo";
        }
        // Other programs leave deleted records with the memo of their successor.
        if (!record.deleted()) {
            claims_.push_back({at, at + length, record.number, static_cast<std::uint32_t>(field)});
        }
        return {};
    }

    // The pointer as the file has it at this moment.
    std::uint32_t block_now(RecordNumber record, std::size_t field) const {
        std::vector<Byte> bytes(layout_.record_length);
        if (files_.table.read_at(header_.end_of(record - 1), bytes) < bytes.size()) return 0;
        return pointer_of({bytes, record}, layout_.fields[field]).block;
    }

    bool changed_since(const record::RecordView& record, std::size_t field) const {
        return block_now(record.number, field) != pointer_of(record, layout_.fields[field]).block;
    }

    // Programs use the blocks of a text that they have replaced again, so a record read early and
    // one read late may seem to share them.
    bool still_claims(const Claim& claim) const {
        return block_now(claim.record, claim.field) * block_size_ == claim.from;
    }

    void report_overlaps() {
        std::sort(claims_.begin(), claims_.end());
        const Claim* reach = nullptr;  // the claim that reaches furthest so far
        for (const Claim& claim : claims_) {
            if (reach != nullptr && claim.from < reach->to && still_claims(claim) &&
                still_claims(*reach)) {
                report_.fault("memo-overlap", Remedy::kRepair,
                              at_record(claim.record, layout_.fields[claim.field].name),
                              "the memo at byte " + std::to_string(claim.from) +
                                  " lies in that of record " + std::to_string(reach->record) +
                                  ", field " + layout_.fields[reach->field].name);
                facts_.faults.push_back({claim.record, claim.field, true});
            }
            if (reach == nullptr || claim.to > reach->to) reach = &claim;
        }
    }

    // Programs raise the number before they write the blocks: it may point behind the file's end,
    // and the size must be asked for first.
    void check_next_free() {
        const std::uint64_t size = std::max(files_.memo.size(), kFptHeaderSize);
        std::array<Byte, 4> number{};
        if (files_.memo.read_at(0, number) < number.size()) return;
        const std::uint64_t next = load_be32(number.data());
        const std::uint64_t free = (size + block_size_ - 1) / block_size_;
        // Of a file that is full, no number would be better than the one that is there.
        const bool too_high = next > free && next * block_size_ > memo_limit(size);
        if (facts_.block_size || (next >= free && !too_high)) return;
        facts_.next_free = static_cast<std::uint32_t>(free);
        report_.fault(
            "memo-next-free", Remedy::kRepair, {},
            "the next free block " + std::to_string(next) +
                (next < free ? " lies inside used blocks: memos could be written over each other"
                             : " lies where no memo can be: none can be added"));
    }

    TableFiles& files_;
    const record::TableLayout& layout_;
    const HeaderFacts& header_;
    const Reporter& table_report_;
    const Reporter report_;
    MemoKind kind_;
    std::vector<std::size_t> fields_;
    bool usable_ = false;
    std::uint64_t block_size_ = 1;
    std::vector<Claim> claims_;
    std::vector<BadPointer> bad_;
    MemoFacts facts_;
};

}  // namespace

std::uint32_t memo_block_size(const platform::File& memo) {
    std::array<Byte, 2> size{};
    memo.read_at(6, size);
    return std::max<std::uint32_t>(load_be16(size.data()), 1);
}

std::optional<std::uint64_t> memo_size(const platform::File& memo, std::uint64_t block) {
    const std::uint64_t at = block * memo_block_size(memo);
    std::array<Byte, kBlockHeaderSize> header{};
    if (at < kFptHeaderSize || memo.read_at(at, header) < header.size()) return std::nullopt;
    const std::uint64_t length = std::uint64_t{load_be32(header.data() + 4)} + kBlockHeaderSize;
    if (length > memo.size() - at) return std::nullopt;
    return length;
}

std::uint64_t memo_limit(std::uint64_t file_size) {
    const std::uint64_t compatible = locks::LockScheme::memo().offset;
    return file_size <= compatible ? compatible
                                   : locks::LockScheme::memo(locks::LockMode::kProprietary).offset;
}

MemoFacts check_records(TableFiles& files, const HeaderFacts& header, const Reporter& report,
                        const Progress& progress) {
    return RecordCheck(files, header, report).run(progress);
}

}  // namespace brenik::maintenance
