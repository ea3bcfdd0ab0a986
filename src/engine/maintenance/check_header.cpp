// Reads a header that may be damaged, and proves from the file's length what it should be.

#include "engine/maintenance/check_header.h"

#include <algorithm>
#include <array>
#include <set>

#include "engine/locks/short_lock.h"
#include "engine/record/field_codec.h"
#include "util/runtime.h"

namespace brenik::maintenance {
namespace {

constexpr int kAppendLockTimeout_ms = 1000;
constexpr RecordNumber kMarksLookedAt = 1000;

std::optional<record::TableLayout> parse(const std::vector<Byte>& header, const std::string& path) {
    try {
        return record::parse_layout(header, path);
    } catch (const EngineFault&) {
        return std::nullopt;
    }
}

// The width in the descriptor at this offset.
std::size_t width_at(const std::vector<Byte>& header, std::size_t at) {
    return record::width_in(Bytes(header).subspan(at));
}

std::size_t backlink_size(const std::vector<Byte>& header) {
    return record::is_later_generation(header[0]) ? record::kBacklinkSize : 0;
}

// Puts the end of the field list where the widths add up to the record's length.
bool correct_list_end(std::vector<Byte>& header) {
    const std::size_t record_length = load_le16(header.data() + record::kRecordLengthOffset);
    const std::size_t header_length = load_le16(header.data() + record::kHeaderLengthOffset);
    std::size_t length = 1;
    std::size_t at = record::kTableHeaderSize;
    while (length < record_length && at + record::kFieldDescriptorSize < header.size()) {
        length += width_at(header, at);
        at += record::kFieldDescriptorSize;
    }
    const std::size_t expected = at + 1 + backlink_size(header);
    if (length != record_length || at >= header.size()) return false;
    if (header_length != expected && header_length != expected + 1) return false;
    header[at] = record::kDescriptorsEnd;
    return true;
}

std::optional<std::size_t> list_end(const std::vector<Byte>& header) {
    for (std::size_t at = record::kTableHeaderSize; at < header.size();
         at += record::kFieldDescriptorSize) {
        if (header[at] == record::kDescriptorsEnd) return at;
    }
    return std::nullopt;
}

// Recomputes the record length from the widths, and the header length from the number of
// descriptors.
bool correct_lengths(std::vector<Byte>& header) {
    const std::optional<std::size_t> end = list_end(header);
    if (!end) return false;
    std::size_t length = 1;
    for (std::size_t at = record::kTableHeaderSize; at < *end; at += record::kFieldDescriptorSize) {
        length += width_at(header, at);
    }
    const std::size_t header_length = *end + 1 + backlink_size(header);
    if (length > record::kLongestRecord || header_length > record::kLargestHeader) return false;
    // Some writers put one more byte after the list; a header length that includes it is kept.
    if (load_le16(header.data() + record::kHeaderLengthOffset) != header_length + 1) {
        store_le16(header.data() + record::kHeaderLengthOffset,
                   static_cast<std::uint16_t>(header_length));
    }
    store_le16(header.data() + record::kRecordLengthOffset, static_cast<std::uint16_t>(length));
    return true;
}

bool is_byte(const platform::File& table, std::uint64_t at, Byte expected) {
    std::array<Byte, 1> byte{};
    return table.read_at(at, byte) == 1 && byte[0] == expected;
}

bool has_mark(const platform::File& table, std::uint64_t record_at) {
    return is_byte(table, record_at, ' ') || is_byte(table, record_at, '*');
}

// True when the counted records, with or without an end mark, make up the file's size. An end mark
// as the last byte of the last record shows that the header length is one too large.
bool explains_size(const platform::File& table, const record::TableLayout& layout,
                   RecordNumber counted, std::uint64_t size) {
    const std::uint64_t end = record::end_of_records(layout, counted);
    return size == end + 1 || (size == end && !is_byte(table, end - 1, record::kEndMark));
}

// How many of the first records do not begin with a deletion mark.
RecordNumber wrong_marks(const platform::File& table, const record::TableLayout& layout,
                         RecordNumber counted, std::uint64_t size) {
    RecordNumber wrong = 0;
    for (RecordNumber record = 1; record <= std::min(counted, kMarksLookedAt); ++record) {
        const std::uint64_t at = record::record_offset(layout, record);
        if (at < size && !has_mark(table, at)) ++wrong;
    }
    return wrong;
}

// Tries the corrections that the rest of the header and the file's length can prove.
void try_to_correct(HeaderFacts& facts, const std::vector<Byte>& header,
                    const platform::File& table) {
    if (header.size() <= record::kTableHeaderSize) return;
    const std::string& path = table.path();
    std::vector<Byte> with_end = header;
    if (correct_list_end(with_end) && (facts.layout = parse(with_end, path))) {
        facts.corrected = with_end;
        return;
    }
    std::vector<Byte> with_lengths = header;
    if (!correct_lengths(with_lengths)) return;
    facts.layout = parse(with_lengths, path);
    if (!facts.layout) return;
    if (explains_size(table, *facts.layout, record::counted_in(header), facts.size)) {
        facts.corrected = with_lengths;
    } else {
        facts.layout.reset();
    }
}

// Returns the header with the length that its field list needs, if its own length is greater and
// the records prove the shorter one: only with that length do all the records that are looked at
// begin with deletion marks, or does the record count agree with the file's size. Empty otherwise.
std::optional<std::vector<Byte>> with_exact_length(const HeaderFacts& facts,
                                                   const std::vector<Byte>& header,
                                                   const platform::File& table) {
    const RecordNumber counted = record::counted_in(header);
    std::vector<Byte> exact = header;
    store_le16(exact.data() + record::kHeaderLengthOffset, 0);
    if (!correct_lengths(exact) || exact == header) return std::nullopt;
    const std::optional<record::TableLayout> layout = parse(exact, table.path());
    if (!layout) return std::nullopt;
    const RecordNumber as_given = wrong_marks(table, *facts.layout, counted, facts.size);
    const RecordNumber as_exact = wrong_marks(table, *layout, counted, facts.size);
    const bool by_marks = as_given > 0 && as_exact == 0;
    const bool by_size = !explains_size(table, *facts.layout, counted, facts.size) &&
                         explains_size(table, *layout, counted, facts.size);
    if (!by_marks && !(by_size && as_exact <= as_given)) return std::nullopt;
    return exact;
}

void report_header(const HeaderFacts& facts, const std::vector<Byte>& header,
                   const std::string& path, const Reporter& report) {
    try {
        record::parse_layout(header, path);
    } catch (const EngineFault& fault) {
        std::string what = fault.what();
        if (what.starts_with(path + ": ")) what.erase(0, path.size() + 2);
        report.fault("header", facts.layout ? Remedy::kRepair : Remedy::kRestore, {},
                     facts.layout ? what +
                                        "; the rest of the header and the file's length show "
                                        "what it should be"
                                  : what);
    }
}

void check_descriptors(const record::TableLayout& layout, const std::vector<Byte>& header,
                       const Reporter& report) {
    std::set<std::string> names;
    for (const record::Field& field : layout.fields) {
        if (names.insert(field.name).second) continue;
        Finding place;
        place.field = field.name;
        report.fault("field-name", Remedy::kRestore, place,
                     "two fields have the name " + field.name);
    }
    const std::size_t end =
        record::kTableHeaderSize +
        record::kFieldDescriptorSize * (layout.fields.size() + (layout.null_flags ? 1 : 0));
    if (end < layout.header_length && header[end] == record::kDescriptorsEnd) return;
    report.fault("header", Remedy::kRestore, {},
                 "at " + std::to_string(end) + ": the field list does not end in 0D");
}

bool is_blank(const record::TableLayout& layout, std::vector<Byte> record) {
    std::vector<Byte> blank(layout.record_length);
    record::make_blank_record(blank, layout);
    for (const record::Field& field : layout.fields) {
        if (!field.is_autoincrement()) continue;
        std::copy_n(blank.begin() + field.offset, field.width, record.begin() + field.offset);
    }
    return record == blank;
}

// True when the bytes from `end` on are whole records, each with its deletion mark.
bool are_records(const platform::File& table, const HeaderFacts& facts, std::uint64_t end) {
    const std::uint64_t length = facts.layout->record_length;
    const std::uint64_t extra = facts.size - end;
    if (extra % length > 1) return false;
    if (extra % length == 1 && !is_byte(table, facts.size - 1, record::kEndMark)) return false;
    for (std::uint64_t at = end; at + length <= facts.size; at += length) {
        if (!has_mark(table, at)) return false;
    }
    return true;
}

Tail tail_of(const platform::File& table, const HeaderFacts& facts) {
    const std::uint64_t end = facts.end_of(facts.counted);
    const std::uint64_t length = facts.layout->record_length;
    if (facts.size < end) return Tail::kCutShort;
    if (facts.size == end) {
        return facts.layout->is_later_generation() ? Tail::kSound : Tail::kNoEndMark;
    }
    std::array<Byte, 1> first{};
    if (table.read_at(end, first) != 1) return Tail::kNoEndMark;
    if (first[0] == record::kEndMark) {
        return facts.size - end > length ? Tail::kRubbish : Tail::kSound;
    }
    if (facts.size - end < length || !are_records(table, facts, end)) return Tail::kNoEndMark;
    if (facts.size - end >= 2 * length) return Tail::kUncounted;
    std::vector<Byte> record(static_cast<std::size_t>(length));
    table.read_at(end, record);
    return is_blank(*facts.layout, record) ? Tail::kUnfinished : Tail::kUncounted;
}

void report_tail(const HeaderFacts& facts, const Reporter& report) {
    const std::string counts = "the header counts " + counted(facts.counted, "record") + ", ";
    switch (facts.tail) {
        case Tail::kSound:
            return;
        case Tail::kCutShort: {
            const std::uint64_t end = facts.end_of(facts.held);
            const std::uint64_t rest = facts.size > end ? facts.size - end : 0;
            report.fault(
                "cut-short", Remedy::kRepair, at_record(facts.held + 1),
                counts + "the file holds " + std::to_string(facts.held) +
                    (rest > 0 ? " and " + counted(rest, "byte") + " of the next" : std::string()) +
                    "; the others are lost unless there is a copy of the table");
            return;
        }
        case Tail::kUncounted:
            report.fault("uncounted-records", Remedy::kRepair, at_record(facts.counted + 1),
                         counts + "the file holds " + std::to_string(facts.held));
            return;
        case Tail::kUnfinished:
            report.fault("unfinished-append", Remedy::kRepair, at_record(facts.counted + 1),
                         counts + "an unfinished blank record follows them");
            return;
        case Tail::kNoEndMark:
            report.fault("end-mark", Remedy::kRepair, {},
                         "at " + std::to_string(facts.end_of(facts.counted)) +
                             ": no end mark 1A behind the last record");
            return;
        case Tail::kRubbish:
            report.fault("rubbish", Remedy::kRepair, {},
                         "at " + std::to_string(facts.end_of(facts.counted) + 1) + ": " +
                             counted(facts.size - facts.end_of(facts.counted) - 1, "byte") +
                             " after the end mark");
            return;
    }
}

void measure(platform::File& table, HeaderFacts& facts, const std::vector<Byte>& header) {
    const record::TableLayout& layout = *facts.layout;
    facts.size = table.size();
    facts.counted = record::counted_in(header);
    facts.held = record::records_in(layout, facts.size);
    facts.tail = tail_of(table, facts);
    facts.usable =
        facts.tail == Tail::kUncounted ? facts.held : std::min(facts.counted, facts.held);
}

}  // namespace

HeaderFacts check_header(platform::File& table, const Reporter& report) {
    HeaderFacts facts;
    std::vector<Byte> header = record::read_header(table);
    facts.size = table.size();
    facts.layout = parse(header, table.path());
    if (!facts.layout) {
        try_to_correct(facts, header, table);
        report_header(facts, header, table.path(), report);
    } else if (const auto corrected = with_exact_length(facts, header, table)) {
        report.fault(
            "header", Remedy::kRepair, {},
            "at 8: header length " + std::to_string(facts.layout->header_length) +
                "; the field list and the records show that it should be " +
                std::to_string(load_le16(corrected->data() + record::kHeaderLengthOffset)));
        facts.corrected = *corrected;
        facts.layout = parse(*corrected, table.path());
    }
    if (!facts.layout) return facts;
    if (facts.corrected.empty()) check_descriptors(*facts.layout, header, report);

    bool locked = false;
    {
        const locks::ShortLock lock =
            locks::ShortLock::on_append(table, *facts.layout, kAppendLockTimeout_ms);
        locked = lock.held();
        header = record::read_header(table);
        if (header.size() < record::kTableHeaderSize) {
            facts.layout.reset();
            return facts;
        }
        measure(table, facts, header);
    }
    if (locked || facts.tail == Tail::kSound) {
        report_tail(facts, report);
    } else {
        facts.tail = Tail::kSound;
        facts.usable = std::min(facts.counted, facts.held);
        report.unchecked(
            "table-locked", {},
            "another program keeps the whole table locked; its record count was not checked");
    }
    return facts;
}

}  // namespace brenik::maintenance
