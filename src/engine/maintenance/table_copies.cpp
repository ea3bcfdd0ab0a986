// Makes copies of files.

#include "engine/maintenance/table_copies.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

#include "engine/locks/open_file.h"
#include "engine/maintenance/open_table_files.h"
#include "engine/make/index_builder.h"
#include "platform/clock.h"

namespace brenik::maintenance {
namespace {

constexpr std::size_t kCopyBytes = 1 << 20;

std::string moment() {
    const platform::LocalDay day = platform::system_clock().today();
    const int seconds = static_cast<int>(platform::system_clock().seconds());
    char text[40];
    std::snprintf(text, sizeof text, "%04d%02d%02d-%02d%02d%02d", day.year, day.month, day.day,
                  seconds / 3600, seconds / 60 % 60, seconds % 60);
    return text;
}

// The path without its folder.
std::string name_of(const std::string& path) {
    const std::size_t separator = path.find_last_of("\\/");
    return separator == std::string::npos ? path : path.substr(separator + 1);
}

std::string backup_path(const std::string& path, const std::string& folder) {
    const std::string name = name_of(path);
    const std::string stem =
        (folder.empty() ? path.substr(0, path.size() - name.size()) : folder + "/") + name +
        ".bak-" + moment();
    std::string candidate = stem;
    for (int i = 2; platform::file_exists(candidate); ++i) {
        candidate = stem + "-" + std::to_string(i);
    }
    return candidate;
}

void copy_bytes(const platform::File& from, platform::File& to, const Progress& progress) {
    const std::string what = "copying " + name_of(from.path());
    std::vector<Byte> buffer(kCopyBytes);
    std::uint64_t done = 0;
    while (const std::size_t got = from.read_at(done, buffer)) {
        to.write_at(done, Bytes(buffer).first(got));
        done += got;
        if (progress) progress(what, done, std::max(done, from.size()));
    }
}

}  // namespace

std::string back_up_file(const platform::File& file, const std::string& folder,
                         const Progress& progress) {
    std::string path = backup_path(file.path(), folder);
    // A file with the final name is always a complete copy.
    const std::string unfinished = path + ".part";
    platform::File copy = locks::create_file(unfinished);
    try {
        copy_bytes(file, copy, progress);
        copy.sync();
        copy.close();
        platform::replace_file(unfinished, path);
    } catch (...) {
        copy.close();
        platform::remove_file(unfinished);
        throw;
    }
    return path;
}

void copy_table(const std::string& path, const std::string& folder, const Progress& progress) {
    OpenTableFiles files = OpenTableFiles::open(path, Access::kCheck);
    std::array<Byte, 1> version{};
    if (files.table.is_open()) files.table.read_at(0, version);
    files.open_memo(version[0], Access::kCheck);
    files.open_index(Access::kCheck);
    const auto [unfinished, runs] = make::leftover_paths(files.index.path());
    const auto open = [](const std::string& leftover) {
        return platform::File::open(leftover, platform::OpenMode::kReadOnly);
    };
    const platform::File unfinished_index = open(unfinished), left_runs = open(runs);
    const std::array<const platform::File*, 5> all{&files.table, &files.memo, &files.index,
                                                   &unfinished_index, &left_runs};
    for (const platform::File* file : all) {
        if (!file->is_open()) continue;
        platform::File copy = locks::create_file(folder + "/" + name_of(file->path()));
        copy_bytes(*file, copy, progress);
    }
}

}  // namespace brenik::maintenance
