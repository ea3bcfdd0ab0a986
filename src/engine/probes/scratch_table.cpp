// The files are named brenik_probe_NUMBER, which no practice uses.

#include "engine/probes/scratch_table.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <random>
#include <system_error>

#include "engine/make/create_table.h"
#include "engine/make/table_writer.h"
#include "engine/record/dbf_file.h"
#include "engine/record/table_path.h"
#include "platform/file.h"

namespace brenik::probes {
namespace {

namespace fs = std::filesystem;

constexpr const char* kPrefix = "brenik_probe_";
constexpr std::chrono::hours kLeftoverAge(1);  // longer than any run of the probes
constexpr std::uint8_t kPage437 = 0x01;
constexpr std::uint8_t kPage1252 = 0x03;

constexpr const char* kCodes[kRecords] = {"A1", "A2", "A3", "B1", "B2",
                                          "B3", "B4", "C1", "C2", "C3"};

record::Field field(const char* name, char type, std::uint32_t width, std::uint32_t decimals = 0) {
    record::Field field;
    field.name = name;
    field.type = type;
    field.width = width;
    field.decimals = decimals;
    return field;
}

std::string random_name() {
    char name[32];
    std::snprintf(name, sizeof name, "%s%08x", kPrefix, std::random_device{}());
    return name;
}

void remove_leftovers(const std::string& folder) {
    std::error_code error;
    const auto now = fs::file_time_type::clock::now();
    for (fs::directory_iterator entry(platform::system_path(folder), error), end;
         !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (!name.starts_with(kPrefix)) continue;
        std::error_code unreadable;
        const auto then = fs::last_write_time(entry->path(), unreadable);
        if (!unreadable && now - then > kLeftoverAge) platform::remove_file(entry->path().string());
    }
}

}  // namespace

ScratchTable::ScratchTable(const std::string& folder)
    : path_(folder + "/" + random_name() + ".DBF") {
    remove_leftovers(folder);
}

void ScratchTable::make(unsigned records, TextOf text) {
    remove();
    layout_ = {};
    layout_.version = record::kFptMemos;
    layout_.code_page = text == TextOf::kDos ? kPage437 : kPage1252;
    layout_.fields = {field("CODE", 'C', 6), field("AMOUNT", 'N', 8, 2), field("DAY", 'D', 8),
                      field("FLAG", 'L', 1), field("TEXT", 'C', 20),     field("NOTE", 'M', 10)};
    record::make_header(layout_, {2020, 1, 1});  // sets the offsets
    make::TableWriter writer(path_, layout_);
    for (unsigned number = 1; number <= records; ++number) {
        writer.append({kCodes[number - 1], Number{10.0 * number, 8, 2},
                       Date::from_civil(2020, 1, static_cast<int>(number)), number % 2 == 1,
                       "text " + std::to_string(number), Memo{"note " + std::to_string(number)}});
    }
    writer.close();
    make::create_index(path_, {{"CODE", "CODE"},
                               {"AMOUNT", "AMOUNT"},
                               {"DAY", "DAY"},
                               {.name = "BACK", .key = "CODE", .descending = true},
                               {.name = "SOME", .key = "CODE", .condition = "AMOUNT>50"}});
}

void ScratchTable::remove() noexcept {
    for (const char* extension : {"DBF", "FPT", "CDX"}) {
        platform::remove_file(record::sibling_path(path_, extension));
    }
}

}  // namespace brenik::probes
