// One pass over the records and their values, then a comparison of the memos' blocks for overlaps.

#include "engine/maintenance/check_memo.h"

#include <algorithm>
#include <array>

#include "engine/locks/lock_scheme.h"
#include "engine/maintenance/check_values.h"
#include "engine/record/memo_format.h"
#include "engine/record/record_scan.h"
#include "util/runtime.h"

namespace brenik::maintenance {
namespace {

constexpr std::uint64_t kDbtHeaderSize = 24;  // as much of it as says something
constexpr RecordNumber kProgressStep = 4096;

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
    RecordCheck(OpenTableFiles& files, const HeaderFacts& header, const Reporter& report)
        : files_(files),
          layout_(*header.layout),
          header_(header),
          table_report_(report),
          report_(report.for_file(files.memo.path())),
          format_{record::memo_kind(layout_.version)},
          values_(
              layout_, [this](RecordNumber record) { return bytes_now(record); }, report) {
        for (std::size_t i = 0; i < layout_.fields.size(); ++i) {
            if (layout_.fields[i].is_memo()) fields_.push_back(i);
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
        if (usable_ && is_fpt()) check_next_free();
        return facts_;
    }

  private:
    void open_memo() {
        const platform::File& memo = files_.memo;
        const std::uint64_t least = is_fpt() ? record::kFptHeaderSize : kDbtHeaderSize;
        if (memo.is_open() && memo.size() >= least) {
            if (const auto format = record::read_memo_format(memo, format_.kind)) {
                format_ = *format;
                usable_ = true;
            }
        }
        facts_.sound_header = usable_;
    }
    bool is_fpt() const { return format_.kind == record::MemoKind::kFpt; }

    void report_unusable() {
        const bool missing = files_.memo.failure() == platform::OpenFailure::kMissing;
        if (!missing && !files_.memo.is_open()) return report_.not_open(files_.memo);
        const std::string what =
            missing ? "the table's memo file is missing" : "the memo file has no whole header";
        const bool replaceable = !facts_.pointers && is_fpt();
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
        values_.check(record);
        for (const std::size_t i : fields_) check(record, i);
    }

    void check(const record::RecordView& record, std::size_t field) {
        const auto pointer = record::read_memo_pointer(record, layout_.fields[field]);
        if (pointer.is_number && pointer.block == 0) return;
        facts_.pointers = true;
        if (!usable_) return;
        std::string wrong = pointer.is_number ? reason_against(pointer.block, record, field)
                                              : std::string("the memo's block is not a number");
        // A program may be writing the record just now; if the pointer has changed, it is not
        // reported.
        if (wrong.empty() || changed_since(record, field)) return;
        bad_.push_back({record.number, field, pointer.block, std::move(wrong)});
    }

    // If most pointers are wrong, the block size is wrong instead.
    void report_pointers() {
        if (is_fpt() && bad_.size() > 1 && bad_.size() > claims_.size()) {
            if (const std::uint32_t size = likely_block_size()) {
                report_.fault("memo-block-size", Remedy::kRepair, {},
                              "the block size is " + std::to_string(format_.block_size) +
                                  ", but the memos of all records begin at blocks of " +
                                  counted(size, "byte"));
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

    // A block size with which every block that records name begins a memo; 0 if there is none.
    std::uint32_t likely_block_size() const {
        for (const std::uint32_t size : {64U, 512U, 32U, 128U, 256U, 1024U, 33U}) {
            const auto is_memo_there = [&](std::uint64_t block) {
                return begins_memo(block * size);
            };
            const bool all =
                std::all_of(bad_.begin(), bad_.end(),
                            [&](const BadPointer& bad) { return is_memo_there(bad.block); }) &&
                std::all_of(claims_.begin(), claims_.end(), [&](const Claim& claim) {
                    return is_memo_there(claim.from / format_.block_size);
                });
            if (size != format_.block_size && all) return size;
        }
        return 0;
    }

    bool begins_memo(std::uint64_t at) const {
        if (at < record::kFptHeaderSize) return false;
        const auto memo = header_at(at);
        return memo && memo->is_known_type && memo->length > 0 &&
               memo->length <= files_.memo.size() - at - record::kBlockHeaderSize;
    }

    std::optional<record::MemoHeader> header_at(std::uint64_t at) const {
        std::array<Byte, record::kBlockHeaderSize> header{};
        if (files_.memo.read_at(at, header) < header.size()) return std::nullopt;
        return record::parse_memo_header(format_.kind, header);
    }

    std::string reason_against(std::uint32_t block, const record::RecordView& record,
                               std::size_t field) {
        const std::uint64_t at = format_.offset_of(block), size = files_.memo.size();
        const std::string where = "the memo's block " + std::to_string(block);
        if (at < format_.first_offset() || at >= size) return where + " lies outside the memo file";
        if (format_.kind == record::MemoKind::kGeneration3) return {};
        if (size - at < record::kBlockHeaderSize) return where + " is cut short";
        const auto memo = header_at(at);
        const std::uint64_t length = memo ? record::kBlockHeaderSize + memo->length : 0;
        if (length > size - at) {
            return where + " begins a memo of " + counted(length, "byte") +
                   ", which runs past the end of the memo file";
        }
        if (!memo || !memo->is_known_type) return where + " is not the beginning of a memo";
        // Other programs leave deleted records that refer to the memo of a live one.
        if (!record.deleted()) {
            claims_.push_back({at, at + length, record.number, static_cast<std::uint32_t>(field)});
        }
        return {};
    }

    // The record in the file at this moment; empty if it is not there.
    std::vector<Byte> bytes_now(RecordNumber record) const {
        std::vector<Byte> bytes(layout_.record_length);
        if (files_.table.read_at(header_.end_of(record - 1), bytes) < bytes.size()) bytes.clear();
        return bytes;
    }

    std::uint32_t block_now(RecordNumber record, std::size_t field) const {
        const std::vector<Byte> bytes = bytes_now(record);
        if (bytes.empty()) return 0;
        return record::read_memo_pointer({bytes, record}, layout_.fields[field]).block;
    }

    bool changed_since(const record::RecordView& record, std::size_t field) const {
        return block_now(record.number, field) !=
               record::read_memo_pointer(record, layout_.fields[field]).block;
    }

    // Programs reuse the blocks of texts that they have replaced, so a record read early and one
    // read late may seem to share them.
    bool still_claims(const Claim& claim) const {
        return format_.offset_of(block_now(claim.record, claim.field)) == claim.from;
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
                                  " overlaps that of record " + std::to_string(reach->record) +
                                  ", field " + layout_.fields[reach->field].name);
                facts_.faults.push_back({claim.record, claim.field, true});
            }
            if (reach == nullptr || claim.to > reach->to) reach = &claim;
        }
    }

    // Programs raise the number before they write the blocks. So it may point past the file's end,
    // and the size must be read before the number.
    void check_next_free() {
        const std::uint64_t size = std::max(files_.memo.size(), record::kFptHeaderSize);
        const auto number = record::read_next_free(files_.memo);
        if (!number) return;
        const std::uint64_t next = *number;
        const std::uint64_t free = format_.blocks_in(size);
        // In a full file no other number would be better.
        const bool too_high = next > free && format_.offset_of(next) > memo_limit(size);
        if (facts_.block_size || (next >= free && !too_high)) return;
        facts_.next_free = static_cast<std::uint32_t>(free);
        report_.fault(
            "memo-next-free", Remedy::kRepair, {},
            "the next free block " + std::to_string(next) +
                (next < free ? " lies inside used blocks: memos could overwrite each other"
                             : " lies past the last position of a memo: none can be added"));
    }

    OpenTableFiles& files_;
    const record::TableLayout& layout_;
    const HeaderFacts& header_;
    const Reporter& table_report_;
    const Reporter report_;
    record::MemoFormat format_;
    ValueCheck values_;
    std::vector<std::size_t> fields_;
    bool usable_ = false;
    std::vector<Claim> claims_;
    std::vector<BadPointer> bad_;
    MemoFacts facts_;
};

}  // namespace

std::uint64_t memo_limit(std::uint64_t file_size) {
    const std::uint64_t compatible = locks::LockScheme::memo().offset;
    return file_size <= compatible ? compatible
                                   : locks::LockScheme::memo(locks::LockMode::kProprietary).offset;
}

MemoFacts check_records(OpenTableFiles& files, const HeaderFacts& header, const Reporter& report,
                        const Progress& progress) {
    return RecordCheck(files, header, report).run(progress);
}

}  // namespace brenik::maintenance
