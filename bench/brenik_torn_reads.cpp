// Looks for records that a reader gets in two halves while another program writes them.
//
// The writer is not the library. It uses the file directly and knows only the lock positions that
// all programs for these tables share: it locks a record, fills it with one letter, and unlocks it.
// It takes the records that cross a page of the system, because the system copies these in two
// pieces. The reader uses the library without locks, with "go to" and in scans, and counts records
// with two letters in them. For comparison it also reads records directly, once each: a run proves
// something only if these come torn. Exit code 1 if the library has returned a torn record.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "engine/locks/lock_scheme.h"
#include "engine/make/create_table.h"
#include "engine/make/table_writer.h"
#include "engine/record/dbf_file.h"
#include "random.h"
#include "tables.h"
#include "util/bytes.h"

namespace brenik::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr RecordNumber kRecords = 1000;
constexpr std::uint32_t kKeyWidth = 8;
constexpr std::uint32_t kTextWidth = 243;  // three of them: a record has 738 bytes
constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kLeast = 16;  // bytes of the letters on either side of a page's border

// Of the record, after deletion mark and key.
struct Letters {
    std::uint64_t offset;  // in the file
    std::size_t size;
};

Letters letters_of(const record::TableLayout& layout, RecordNumber record) {
    return {record::record_offset(layout, record) + 1 + kKeyWidth,
            layout.record_length - 1 - kKeyWidth};
}

bool crosses_page(const Letters& letters) {
    const std::uint64_t before_border = kPage - letters.offset % kPage;
    return before_border >= kLeast && before_border + kLeast <= letters.size;
}

void make_table(const std::string& path) {
    record::TableLayout layout;
    for (const char* name : {"K", "A", "B", "C"}) {
        record::Field field;
        field.name = name;
        field.width = layout.fields.empty() ? kKeyWidth : kTextWidth;
        layout.fields.push_back(field);
    }
    make::TableWriter writer(path, layout);
    const std::string text(kTextWidth, 'A');
    for (RecordNumber i = 1; i <= kRecords; ++i) {
        writer.append({std::to_string(i), text, text, text});
    }
    writer.close();
    make::create_index(path, {{"K", "K"}});
}

int open_directly(const std::string& path) {
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    expect(file >= 0, "cannot open the table directly");
    return file;
}

bool set_lock(int file, const locks::LockRange& range, short type) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(range.offset);
    lock.l_len = static_cast<off_t>(range.length);
    return fcntl(file, F_OFD_SETLK, &lock) == 0;
}

// The foreign program. Returns the number of its writes.
std::uint64_t write_until(Clock::time_point end, const std::string& path,
                          const record::TableLayout& layout,
                          const std::vector<RecordNumber>& records) {
    const int file = open_directly(path);
    const locks::LockScheme scheme(layout);
    Random random;
    std::uint64_t writes = 0;
    while (Clock::now() < end) {
        const RecordNumber record = records[random.below(records.size())];
        const locks::LockRange lock = scheme.record(record);
        if (!set_lock(file, lock, F_WRLCK)) continue;
        const Letters letters = letters_of(layout, record);
        const std::string text(letters.size, static_cast<char>('A' + ++writes % 26));
        const auto put = pwrite(file, text.data(), text.size(), static_cast<off_t>(letters.offset));
        set_lock(file, lock, F_UNLCK);
        expect(put == static_cast<ssize_t>(text.size()), "a write of the foreign program failed");
    }
    return writes;
}

bool is_torn(std::string_view letters) {
    return letters.find_first_not_of(letters.front()) != std::string_view::npos;
}

struct Reads {
    std::uint64_t all = 0;
    std::uint64_t torn = 0;

    void note(std::string_view letters) {
        ++all;
        if (is_torn(letters)) ++torn;
    }
};

nlohmann::ordered_json to_json(const Reads& reads) {
    return {{"reads", reads.all}, {"torn", reads.torn}};
}

// Reads in three ways, in turn.
class Reader {
  public:
    Reader(const std::string& path, Table& table, const std::vector<RecordNumber>& records)
        : file_(open_directly(path)), table_(table), records_(records) {}

    void run_until(Clock::time_point end) {
        while (Clock::now() < end) {
            for (RecordNumber i = 0; i < kRecords; ++i) go_to(any());
            scan();
            for (RecordNumber i = 0; i < kRecords; ++i) read_directly(any());
        }
    }

    Reads gone_to, scanned, direct;

  private:
    RecordNumber any() { return records_[random_.below(records_.size())]; }

    std::string_view current() { return as_text(table_.record().bytes.subspan(1 + kKeyWidth)); }

    void go_to(RecordNumber record) {
        table_.go_to(record);
        gone_to.note(current());
    }

    void scan() {
        for (table_.go_top(); !table_.end_of_file(); table_.skip(1)) scanned.note(current());
    }

    void read_directly(RecordNumber record) {
        const Letters letters = letters_of(table_.layout(), record);
        text_.resize(letters.size);
        const auto got =
            pread(file_, text_.data(), text_.size(), static_cast<off_t>(letters.offset));
        expect(got == static_cast<ssize_t>(text_.size()), "cannot read the table directly");
        direct.note(text_);
    }

    int file_;
    Table& table_;
    const std::vector<RecordNumber>& records_;
    std::string text_;
    Random random_;
};

// Starts the writer; the number of its writes comes through the pipe when it ends.
int start_writer(Clock::time_point end, const std::string& path, const record::TableLayout& layout,
                 const std::vector<RecordNumber>& records) {
    int ends[2];
    expect(pipe(ends) == 0, "cannot make a pipe");
    const pid_t child = fork();
    expect(child >= 0, "cannot start another process");
    if (child == 0) {
        const std::uint64_t writes = write_until(end, path, layout, records);
        std::_Exit(write(ends[1], &writes, sizeof writes) == sizeof writes ? 0 : 1);
    }
    close(ends[1]);
    return ends[0];
}

nlohmann::ordered_json measure(const fs::path& folder, double seconds) {
    const std::string path = (folder / "TORN.DBF").string();
    make_table(path);
    const auto engine = new_engine();
    const auto table = open_table(*engine, path);
    std::vector<RecordNumber> records;
    for (RecordNumber i = 1; i <= kRecords; ++i) {
        if (crosses_page(letters_of(table->layout(), i))) records.push_back(i);
    }
    control(*table, "");
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                        std::chrono::duration<double>(seconds));
    const int writer = start_writer(end, path, table->layout(), records);
    Reader reader(path, *table, records);
    reader.run_until(end);
    std::uint64_t writes = 0;
    expect(read(writer, &writes, sizeof writes) == sizeof writes, "the writer has failed");
    int status = 0;
    expect(wait(&status) > 0 && status == 0, "the writer has failed");
    return {{"writes", writes},
            {"go_to", to_json(reader.gone_to)},
            {"scan", to_json(reader.scanned)},
            {"direct", to_json(reader.direct)}};
}

}  // namespace
}  // namespace brenik::bench

int main(int argc, char** argv) try {
    CLI::App app{"Looks for records that come in two halves beside a writer."};
    double seconds = 20;
    bool json = false;
    app.add_option("--seconds", seconds, "length of the run")->check(CLI::PositiveNumber);
    app.add_flag("--json", json, "print the figures as JSON");
    CLI11_PARSE(app, argc, argv);

    using namespace brenik::bench;
    std::string name = (fs::temp_directory_path() / "brenik-torn-XXXXXX").string();
    const fs::path folder = mkdtemp(name.data());
    const auto figures = measure(folder, seconds);
    fs::remove_all(folder);
    if (json) std::printf("%s\n", figures.dump(2).c_str());
    for (const char* way : {"go_to", "scan", "direct"}) {
        if (json) break;
        std::printf("%-8s %10llu reads   %llu torn\n", way,
                    figures[way]["reads"].get<unsigned long long>(),
                    figures[way]["torn"].get<unsigned long long>());
    }
    return figures["go_to"]["torn"] == 0 && figures["scan"]["torn"] == 0 ? 0 : 1;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
