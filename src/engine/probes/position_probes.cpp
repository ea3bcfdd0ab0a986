// Probes of movement, of the ends, of deleted records and of what a handle remembers of a record.

#include "engine/probes/bench.h"

namespace brenik::probes {
namespace {

constexpr U16 kVisible = 1;
constexpr U16 kHidden = 0;

Answer skip_before_first(Bench& bench) {
    const auto table = bench.here();
    table->go_top(table->handle());
    const Status status = table->skip(table->handle(), -1);
    return told(status == 0 && table->at_begin() && table->record() == 0,
                said(status) + "; " + table->place());
}

Answer skip_past_last(Bench& bench) {
    const auto table = bench.here();
    table->go(kRecords);
    const Status status = table->skip(table->handle(), 1);
    const std::string end = table->place();
    const bool at_end = table->at_end() && table->record() == kRecords + 1;
    const Status back = table->skip(table->handle(), -1);
    return told(status == 0 && at_end && back == 0 && table->record() == kRecords,
                said(status) + "; " + end + "; a step back: " + said(back) + "; " + table->place());
}

Answer skip_zero(Bench& bench) {
    const auto reader = bench.here();
    const auto writer = bench.there();
    reader->go(1);
    const std::string before = reader->text("TEXT");
    writer->change(1, "changed");
    const Status status = reader->skip(reader->handle(), 0);
    const std::string after = reader->text("TEXT");
    return told(status == 0 && after == before,
                said(status) + "; the record that another has changed reads " + quoted(after));
}

Answer go_outside(Bench& bench) {
    const auto table = bench.here();
    table->go(1);
    const Status status = bench.client().AdsGotoRecord(table->handle(), 2 * kRecords);
    return told(status == kInvalidRecordNumber, said(status) + "; then " + table->place());
}

Answer empty_table(Bench& bench) {
    const auto table = bench.here();
    const Status status = bench.client().AdsGotoTop(table->handle());
    return told(status == 0 && table->at_end() && table->at_begin(),
                "go to the top: " + said(status) + "; " + table->place());
}

Answer top_flags(Bench& bench) {
    const auto table = bench.here();
    table->go_top(table->handle());
    return told(!table->at_begin() && !table->at_end(), "at the top: " + table->place());
}

Answer no_current_record(Bench& bench) {
    const auto table = bench.here();
    table->go(kRecords);
    std::string image(table->image().size() + 1, '\0');
    require(table->skip(table->handle(), 1), "AdsSkip");
    U32 size = static_cast<U32>(image.size());
    const Status record = bench.client().AdsGetRecord(table->handle(), image.data(), &size);
    size = static_cast<U32>(image.size());
    const Status field = bench.client().AdsGetField(table->handle(), "CODE", image.data(), &size,
                                                    advantage::kNotTrimmed);
    return told(record == advantage::kNoCurrentRecord && field == advantage::kNoCurrentRecord,
                "at the end, a record: " + said(record) + "; a field: " + said(field));
}

Answer record_count(Bench& bench) {
    const auto reader = bench.here();
    const auto writer = bench.there();
    reader->count(advantage::kIgnoreFilters);
    require(bench.client().AdsAppendRecord(writer->handle()), "AdsAppendRecord");
    writer->set("CODE", "D1");
    writer->write();
    const U32 plain = reader->count(advantage::kIgnoreFilters);
    const U32 fresh = reader->count(advantage::kIgnoreFilters | advantage::kRefreshCount);
    return told(fresh == kRecords + 1, "after another's addition to " + std::to_string(kRecords) +
                                           " records: " + std::to_string(plain) +
                                           ", with option 4 " + std::to_string(fresh));
}

Answer read_ahead(Bench& bench) {
    const auto writer = bench.there();
    const auto walk_over = [&](U16 records, const char* text) {
        const auto reader = bench.here({.records_ahead = records});
        reader->go_top(reader->handle());
        require(reader->skip(reader->handle(), 1), "AdsSkip");
        writer->change(3, text);
        require(reader->skip(reader->handle(), 1), "AdsSkip");
        return reader->text("TEXT");
    };
    const std::string without = walk_over(1, "first");
    const std::string with = walk_over(10, "second");
    return told(without == "first",
                std::string("the next record, which another has changed, is ") +
                    (without == "first" ? "fresh" : "stale") + " with read-ahead off, " +
                    (with == "second" ? "fresh" : "stale") + " with ten records ahead");
}

// Stands on a record that another has changed after it was read here.
std::unique_ptr<ClientTable> record_changed_since(Bench& bench) {
    auto reader = bench.here();
    reader->go(1);
    reader->image();
    bench.there()->change(1, "changed");
    return reader;
}

Answer go_to_same_record(Bench& bench) {
    const auto reader = record_changed_since(bench);
    reader->go(1);
    const std::string same = reader->text("TEXT");
    return told(same != "changed",
                "after another's change a go to the same record reads " + quoted(same));
}

Answer leave_and_return(Bench& bench) {
    const auto reader = record_changed_since(bench);
    reader->leave();
    reader->go(1);
    const std::string back = reader->text("TEXT");
    return told(back == "changed",
                "after another's change the record that was left reads " + quoted(back));
}

Answer refresh(Bench& bench) {
    const auto reader = record_changed_since(bench);
    const Status status = bench.client().AdsRefreshRecord(reader->handle());
    const std::string after = reader->text("TEXT");
    return told(status == 0 && after == "changed",
                said(status) + "; the record that another has changed reads " + quoted(after));
}

std::unique_ptr<ClientTable> with_record_2_deleted(Bench& bench) {
    auto table = bench.here();
    table->go(2);
    table->lock(2);
    require(bench.client().AdsDeleteRecord(table->handle()), "AdsDeleteRecord");
    table->write();
    table->unlock(2);
    return table;
}

Answer deleted_setting(Bench& bench) {
    const auto table = with_record_2_deleted(bench);
    const auto second_record = [&](U16 setting) {
        require(bench.client().AdsShowDeleted(setting), "AdsShowDeleted");
        table->go_top(table->handle());
        require(table->skip(table->handle(), 1), "AdsSkip");
        return table->record();
    };
    const U32 shown = second_record(kVisible);
    const U32 hidden = second_record(kHidden);
    return told(shown == 2 && hidden == 3, "a step from record 1 leads to " +
                                               std::to_string(shown) + " with 1, to " +
                                               std::to_string(hidden) + " with 0");
}

Answer go_to_deleted(Bench& bench) {
    const auto table = with_record_2_deleted(bench);
    require(bench.client().AdsShowDeleted(kHidden), "AdsShowDeleted");
    table->go(1);
    const Status status = bench.client().AdsGotoRecord(table->handle(), 2);
    return told(status == 0 && table->record() == 2, said(status) + "; " + table->place());
}

Answer deleted_polarity(Bench& bench) {
    if (!bench.client().AdsGetDeleted) return unknown("the library has no AdsGetDeleted");
    U16 shown = 0;
    U16 hidden = 0;
    require(bench.client().AdsShowDeleted(kVisible), "AdsShowDeleted");
    require(bench.client().AdsGetDeleted(&shown), "AdsGetDeleted");
    require(bench.client().AdsShowDeleted(kHidden), "AdsShowDeleted");
    require(bench.client().AdsGetDeleted(&hidden), "AdsGetDeleted");
    return told(shown != 0 && hidden == 0, "it answers " + std::to_string(shown) +
                                               " while deleted records are shown, " +
                                               std::to_string(hidden) + " while they are hidden");
}

constexpr Probe kProbes[] = {
    {"skip-before-first", "A step before the first record leads to record 0.", skip_before_first},
    {"skip-past-last",
     "A step past the last record leads to the number after it; a step back to the last.",
     skip_past_last},
    {"skip-zero", "A skip by 0 reads nothing anew.", skip_zero},
    {"go-outside", "A go to a number past the last record is refused with 5022.", go_outside},
    {"empty-table", "An empty table is at the beginning and at the end.", empty_table, 0},
    {"top-flags", "The top sets no flag.", top_flags},
    {"no-current-record", "At the end a read answers 5068.", no_current_record},
    {"record-count", "Option 4 reads the number of records anew.", record_count},
    {"read-ahead", "With AdsCacheRecords 1, no record is read in advance.", read_ahead},
    {"go-to-same-record", "A go to the current record is answered from memory.", go_to_same_record},
    {"leave-and-return", "A record that was left is read anew.", leave_and_return},
    {"refresh", "AdsRefreshRecord reads an unlocked record anew.", refresh},
    {"deleted-setting", "AdsShowDeleted 0 hides deleted records, 1 shows them.", deleted_setting},
    {"go-to-deleted", "A go by number reaches a hidden record.", go_to_deleted},
    {"deleted-polarity", "AdsGetDeleted answers as AdsShowDeleted was set.", deleted_polarity},
};

}  // namespace

std::span<const Probe> position_probes() { return kProbes; }

}  // namespace brenik::probes
