// The whole check of one table: header, records and memos, index.

#include "engine/maintenance/check_table.h"

#include <new>

#include "engine/maintenance/check_header.h"
#include "engine/maintenance/check_index.h"
#include "engine/maintenance/check_memo.h"
#include "engine/make/index_builder.h"

namespace brenik::maintenance {
namespace {

void check_index_file(OpenTableFiles& files, TableFindings& found, const Reporter& table_report,
                      const Progress& progress) {
    const Reporter report = table_report.for_file(files.index.path());
    if (files.index.failure() == platform::OpenFailure::kMissing) {
        if (!found.header.layout->has_structural_index()) return;
        found.index_faults = true;
        return report.fault("index-missing", Remedy::kRestore, {},
                            "the table's index is missing (\"brenik reindex\" with --like or --tag "
                            "makes a new one)");
    }
    if (!files.index.is_open()) return report.not_open(files.index);
    const CheckedTable before = report.counts();
    check_index(files, found.header, report, progress);
    found.index_faults =
        report.counts().faults > before.faults || report.counts().notes > before.notes;
    for (const std::string& path : make::leftover_paths(files.index.path())) {
        if (!platform::file_exists(path)) continue;
        report.for_file(path).note("leftover", Remedy::kReindex, {},
                                   "left behind by a \"brenik reindex\" that was interrupted");
    }
}

}  // namespace

TableFindings check_without_index(OpenTableFiles& files, Access access, const Reporter& report,
                                  const Progress& progress) {
    TableFindings found;
    found.header = check_header(files.table, report);
    if (!found.header.layout) return found;
    const record::TableLayout& layout = *found.header.layout;
    report.counts().records = found.header.usable;
    report.counts().code_page = layout.code_page;
    if (!files.memo.is_open()) files.open_memo(layout.version, access);
    found.memo = check_records(files, found.header, report, progress);
    if (!files.index.is_open()) files.open_index(access);
    return found;
}

TableFindings check_open_table(OpenTableFiles& files, Access access, const Reporter& report,
                               const Progress& progress) {
    TableFindings found = check_without_index(files, access, report, progress);
    if (found.header.layout) check_index_file(files, found, report, progress);
    return found;
}

CheckedTable check_table(const std::string& path, const Report& report, const Progress& progress) {
    CheckedTable counts;
    OpenTableFiles files = OpenTableFiles::open(path, Access::kCheck);
    const Reporter reporter(files.table.path(), report, counts);
    if (!files.table.is_open()) {
        reporter.not_open(files.table);
        return counts;
    }
    try {
        check_open_table(files, Access::kCheck, reporter, progress);
    } catch (const platform::FileError& error) {
        Reporter(error.path(), report, counts)
            .fault("unreadable", Remedy::kRestore, {}, error.what());
    } catch (const EngineFault& fault) {
        reporter.fault("unreadable", Remedy::kRestore, {}, fault.what());
    } catch (const std::bad_alloc&) {
        reporter.unchecked("cannot-open", {}, "too large for this machine's memory");
    }
    return counts;
}

}  // namespace brenik::maintenance
