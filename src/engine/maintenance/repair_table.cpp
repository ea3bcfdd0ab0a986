// Repairs one table: header, end of file, memos and index, in this order, then checks it again.
//
// Each repair determines what the next one has to do. So a dry run repairs copies.

#include "engine/maintenance/repair_table.h"

#include <algorithm>
#include <array>

#include "engine/local/memo_file.h"
#include "engine/locks/lock_scheme.h"
#include "engine/maintenance/check_table.h"
#include "engine/maintenance/rebuild_index.h"
#include "engine/maintenance/table_copies.h"
#include "engine/make/index_builder.h"
#include "engine/record/memo_format.h"
#include "engine/record/record_scan.h"
#include "util/runtime.h"

namespace brenik::maintenance {
namespace {

// More bad deletion marks than one per this many records mean that the records are misplaced.
constexpr RecordNumber kRecordsPerBadMark = 10;

Access access_for(const RepairOptions& options) {
    return options.trial_folder.empty() ? Access::kRepair : Access::kTry;
}

class TableRepair {
  public:
    TableRepair(Access access, const RepairOptions& options, const RepairReport& report,
                const Progress& progress)
        : options_(options),
          access_(access),
          report_(report),
          log_(options, report, progress),
          progress_(progress) {}

    RepairResult run(const std::string& path, bool index_only) {
        index_only_ = index_only;
        files_ = OpenTableFiles::open(path, access_);
        if (!files_.table.is_open()) return refusal(files_.table);
        try {
            CheckedTable counts;
            const Report silent = [](const Finding&) {};
            // A rebuild does not depend on what is wrong with the old index.
            const auto check = index_only ? check_without_index : check_open_table;
            found_ = check(files_, access_, {files_.table.path(), silent, counts}, progress_);
            if (!found_.header.layout) {
                log_.refuse(files_.table.path(),
                            "the header cannot be understood; restore the table from a backup");
                return RepairResult::kPartly;
            }
            for (const platform::File* file : {&files_.memo, &files_.index}) {
                if (!can_be_had(*file)) return refusal(*file);
            }
            if (misplaced() && !options_.force) return refuse_misplaced();
            if (!index_only && counts.faults + counts.notes == 0) return RepairResult::kNothingToDo;
            if (access_ == Access::kTry) return repair_copies();
            if (misplaced()) {
                log_.done(files_.table.path(),
                          misplaced_records() + "; they are taken as they are (--force)");
            }
            if (index_only) return reindex();
            repair();
        } catch (const EngineFault& fault) {
            log_.refuse(files_.table.path(), fault);
        }
        return outcome();
    }

  private:
    // True unless another program holds the file or it may not be opened. A missing file is no
    // obstacle.
    static bool can_be_had(const platform::File& file) {
        return file.failure() == platform::OpenFailure::kNone ||
               file.failure() == platform::OpenFailure::kMissing;
    }

    RepairResult repair_copies() {
        const std::string path = files_.table.path();
        try {
            copy_table(path, options_.trial_folder, progress_);
        } catch (const EngineFault&) {
            log_.refuse(path, "cannot be tried: its files cannot be copied to " +
                                  options_.trial_folder + "; is there enough space?");
            return RepairResult::kPartly;
        }
        const std::size_t name = path.find_last_of("\\/") + 1;
        return TableRepair(Access::kRepair, options_, report_, progress_)
            .run(options_.trial_folder + "/" + path.substr(name), index_only_);
    }

    // True when so many records lack a deletion mark that the records are probably elsewhere; their
    // fields are then not what they seem.
    bool misplaced() const {
        return found_.memo.bad_marks > found_.header.usable / kRecordsPerBadMark;
    }

    std::string misplaced_records() const {
        return std::to_string(found_.memo.bad_marks) + " of " +
               counted(found_.header.usable, "record") + " " +
               (found_.memo.bad_marks == 1 ? "begins" : "begin") +
               " with neither blank nor asterisk, as if the records did not lie where the header "
               "says";
    }

    RepairResult refuse_misplaced() {
        log_.refuse(files_.table.path(), misplaced_records() +
                                             ": nothing is changed; restore the table from a "
                                             "backup, or insist with --force");
        return RepairResult::kPartly;
    }

    RepairResult refusal(const platform::File& file) {
        const bool sharing = file.failure() == platform::OpenFailure::kSharing;
        report_({false, file.path(),
                 sharing ? "in use by other programs; it can be repaired when they have closed it"
                         : "cannot be opened for writing: " + file.why_not_open()});
        return sharing ? RepairResult::kInUse : RepairResult::kCannotOpen;
    }

    RepairResult reindex() {
        if (!found_.header.corrected.empty() || found_.header.tail == Tail::kCutShort ||
            found_.header.tail == Tail::kUncounted) {
            log_.refuse(files_.table.path(),
                        "header or record count is wrong; run \"brenik repair\"");
            return RepairResult::kPartly;
        }
        const bool any = files_.index.is_open() || found_.header.layout->has_structural_index() ||
                         !options_.tags.empty() || !options_.like.empty();
        if (any && rebuild_index(files_, found_.header, log_, progress_)) mark_as_indexed();
        if (!log_.refused_any()) remove_leftover();
        return any ? outcome() : RepairResult::kNothingToDo;
    }

    // The index may be new, or one that an interrupted run has built.
    void mark_as_indexed() {
        const record::TableLayout& layout = *found_.header.layout;
        if (layout.has_structural_index()) return;
        log_.act(files_.table, "marked as having an index",
                 [&] { record::mark_as_indexed(files_.table, layout); });
    }

    void repair() {
        repair_header();
        repair_end();
        repair_memo_header();
        for (const MemoFault& fault : found_.memo.faults) repair_memo(fault);
        remove_leftover();
        const bool keys_changed =
            found_.header.tail == Tail::kUncounted || found_.header.tail == Tail::kCutShort;
        const bool indexed = files_.index.is_open() || found_.header.layout->has_structural_index();
        if (indexed && (found_.index_faults || keys_changed)) {
            rebuild_index(files_, found_.header, log_, progress_);
        }
    }

    void repair_header() {
        const std::vector<Byte>& header = found_.header.corrected;
        if (header.empty()) return;
        log_.act(files_.table, "header corrected", [&] {
            files_.table.write_at(0, Bytes(header).first(found_.header.layout->header_length));
        });
    }

    void repair_end() {
        const HeaderFacts& header = found_.header;
        if (header.tail == Tail::kSound) return;
        const std::uint64_t end = header.end_of(header.usable);
        if (header.usable != header.counted) {
            log_.act(files_.table,
                     "record count set from " + std::to_string(header.counted) + " to " +
                         std::to_string(header.usable),
                     [&] {
                         files_.table.write_at(record::kCountOffset,
                                               record::count_bytes(header.usable));
                     });
        }
        const std::uint64_t cut = header.size > end + 1 ? header.size - end - 1 : 0;
        log_.act(files_.table,
                 "end mark written after record " + std::to_string(header.usable) +
                     (cut > 0 ? "; " + counted(cut, "byte") + " after it only in the copy"
                              : std::string()),
                 [&] {
                     files_.table.write_at(end, {&record::kEndMark, 1});
                     files_.table.resize(end + 1);
                 });
    }

    // -- Memos.

    void repair_memo_header() {
        if (!found_.memo.sound_header) return make_memo_file();
        if (found_.memo.block_size) {
            log_.act(files_.memo, "block size set to " + std::to_string(*found_.memo.block_size),
                     [&] { record::write_block_size(files_.memo, *found_.memo.block_size); });
        }
        if (!found_.memo.next_free) return;
        log_.act(files_.memo, "next free block set to " + std::to_string(*found_.memo.next_free),
                 [&] { record::write_next_free(files_.memo, *found_.memo.next_free); });
    }

    void make_memo_file() {
        const record::TableLayout& layout = *found_.header.layout;
        const bool can_be_made = record::memo_kind(layout.version) == record::MemoKind::kFpt;
        if (!can_be_made || (found_.memo.pointers && !options_.without_memos)) {
            return log_.refuse(files_.memo.path(),
                               std::string("the memo file is missing or has no header; restore it "
                                           "from a backup") +
                                   (can_be_made ? ", or give its memos up with --without-memos"
                                                : "; this program cannot make one of its kind"));
        }
        if (found_.memo.pointers) give_up_memos();
        if (files_.memo.is_open()) log_.back_up(files_.memo);
        files_.memo.close();
        local::MemoFile::create(files_.table.path());
        files_.open_memo(layout.version, access_);
        log_.done(files_.memo.path(), "empty memo file created");
    }

    // Must be complete before there is a memo file: hosts would write new memos to the blocks that
    // records still name.
    void give_up_memos() {
        const record::TableLayout& layout = *found_.header.layout;
        std::size_t records = 0, fields = 0;
        const auto read = [&](RecordNumber first, MutableBytes into) {
            return files_.table.read_at(found_.header.end_of(first - 1), into) == into.size();
        };
        record::scan_records(layout, found_.header.usable, read,
                             [&](const record::RecordView& record) {
                                 const std::size_t emptied = give_up_memos(record);
                                 fields += emptied;
                                 if (emptied > 0) ++records;
                                 return true;
                             });
        files_.table.sync();
        log_.done(files_.table.path(), counted(fields, "memo field") + " of " +
                                           counted(records, "record") +
                                           " emptied, because the memo file is given up");
    }

    // Returns the number of fields that were not empty before.
    std::size_t give_up_memos(const record::RecordView& record) {
        std::vector<Byte> bytes(record.bytes.begin(), record.bytes.end());
        std::vector<std::string> names;
        for (const record::Field& field : found_.header.layout->fields) {
            if (!field.is_memo()) continue;
            const record::MemoPointer pointer = record::read_memo_pointer(record, field);
            if (pointer.is_number && pointer.block == 0) continue;
            record::set_memo_block(bytes, field, 0);
            names.push_back(field.name);
        }
        if (names.empty()) return 0;
        std::string list = names.size() == 1 ? "field " : "fields ";
        for (const std::string& name : names) list += (&name == names.data() ? "" : ", ") + name;
        log_.act(
            files_.table, list + ": emptied, the memo is given up",
            [&] { files_.table.write_at(found_.header.end_of(record.number - 1), bytes); },
            record.number);
        return names.size();
    }

    void repair_memo(const MemoFault& fault) {
        const record::Field& field = found_.header.layout->fields[fault.field];
        const std::uint64_t at = found_.header.end_of(fault.record - 1);
        std::vector<Byte> record(found_.header.layout->record_length);
        if (files_.table.read_at(at, record) < record.size()) return;
        if (!fault.shared) {
            record::set_memo_block(record, field, 0);
            return log_.act(
                files_.table,
                "field " + field.name + ": its memo cannot be read; the field is now empty",
                [&] { files_.table.write_at(at, record); }, fault.record);
        }
        if (record::memo_kind(found_.header.layout->version) != record::MemoKind::kFpt) {
            return log_.refuse(files_.memo.path(), "memo files of this generation are read only",
                               fault.record);
        }
        log_.back_up(files_.memo);
        log_.act(
            files_.table, "field " + field.name + ": its memo now has blocks of its own",
            [&] {
                record::set_memo_block(
                    record, field, copy_memo(record::read_memo_pointer({record, 0}, field).block));
                files_.table.write_at(at, record);
            },
            fault.record);
    }

    // Copies a memo to the end of the file, in the order in which any program adds one.
    std::uint32_t copy_memo(std::uint32_t block) {
        const auto found = record::read_memo_format(files_.memo, record::MemoKind::kFpt);
        if (!found) {
            throw EngineFault(FaultCode::kDamagedFile, "repair",
                              files_.memo.path() + ": the memo file has no header");
        }
        const record::MemoFormat& format = *found;
        const std::vector<Byte> bytes = read_memo(format, block);
        const std::uint64_t blocks = format.blocks_in(bytes.size());
        const std::uint64_t free = std::max<std::uint64_t>(
            record::read_next_free(files_.memo).value_or(0), format.blocks_in(files_.memo.size()));
        if (format.offset_of(free + blocks) > memo_limit(files_.memo.size())) {
            throw EngineFault(FaultCode::kLimit, "repair",
                              files_.memo.path() + ": the memo file is full");
        }
        record::write_next_free(files_.memo, static_cast<std::uint32_t>(free + blocks));
        files_.memo.write_at(format.offset_of(free), bytes);
        return static_cast<std::uint32_t>(free);
    }

    // The memo's whole blocks; empty when they are not all in the file.
    std::vector<Byte> read_memo(const record::MemoFormat& format, std::uint32_t block) {
        const std::uint64_t at = format.offset_of(block), size = files_.memo.size();
        std::array<Byte, record::kBlockHeaderSize> header{};
        if (at < format.first_offset() || files_.memo.read_at(at, header) < header.size())
            return {};
        const auto memo = record::parse_memo_header(format.kind, header);
        const std::uint64_t data = memo ? memo->length : 0;
        if (!memo || data > size - at - header.size()) return {};
        std::vector<Byte> bytes(header.size() + static_cast<std::size_t>(data));
        files_.memo.read_at(at, bytes);
        bytes.resize(static_cast<std::size_t>(format.offset_of(format.blocks_in(bytes.size()))));
        return bytes;
    }

    // -- The end.

    void remove_leftover() {
        for (const std::string& path : make::leftover_paths(files_.index.path())) {
            if (!platform::file_exists(path)) continue;
            platform::remove_file(path);
            if (platform::file_exists(path)) {
                log_.refuse(path, "left behind by an interrupted run; it cannot be removed");
            } else {
                log_.done(path, "left behind by an interrupted run; removed");
            }
        }
    }

    RepairResult outcome() {
        if (const std::size_t left = faults_left(); left > 0) {
            log_.refuse(files_.table.path(),
                        "faults left: " + std::to_string(left) + "; \"brenik check\" names them");
        }
        if (log_.refused_open() == RefusalReason::kNotPermitted) return RepairResult::kCannotOpen;
        if (log_.refused_open() == RefusalReason::kHeld) return RepairResult::kInUse;
        return log_.refused_any() ? RepairResult::kPartly : RepairResult::kWhole;
    }

    std::size_t faults_left() {
        sync();
        CheckedTable counts;
        const Report silent = [](const Finding&) {};
        check_open_table(files_, access_, {files_.table.path(), silent, counts}, progress_);
        return counts.faults;
    }

    void sync() {
        if (files_.memo.is_open()) files_.memo.sync();
        files_.table.sync();
    }

    const RepairOptions& options_;
    Access access_;
    const RepairReport& report_;
    RepairLog log_;
    const Progress& progress_;
    bool index_only_ = false;
    OpenTableFiles files_;
    TableFindings found_;
};

}  // namespace

RepairResult repair_table(const std::string& path, const RepairOptions& options,
                          const RepairReport& report, const Progress& progress) {
    return TableRepair(access_for(options), options, report, progress).run(path, false);
}

RepairResult reindex_table(const std::string& path, const RepairOptions& options,
                           const RepairReport& report, const Progress& progress) {
    return TableRepair(access_for(options), options, report, progress).run(path, true);
}

}  // namespace brenik::maintenance
