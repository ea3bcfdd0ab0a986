// Copies and reports.

#include "engine/local/mending.h"

#include <cstdio>
#include <vector>

#include "platform/clock.h"

namespace brenik::local {
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

std::string backup_path(const std::string& path, const std::string& folder) {
    const std::size_t separator = path.find_last_of("\\/");
    const std::size_t name = separator == std::string::npos ? 0 : separator + 1;
    const std::string stem = (folder.empty() ? path.substr(0, name) : folder + "/") +
                             path.substr(name) + ".bak-" + moment();
    std::string candidate = stem;
    for (int i = 2; platform::file_exists(candidate); ++i) {
        candidate = stem + "-" + std::to_string(i);
    }
    return candidate;
}

void copy_bytes(const platform::File& from, platform::File& to) {
    std::vector<Byte> buffer(kCopyBytes);
    std::uint64_t done = 0;
    while (const std::size_t got = from.read_at(done, buffer)) {
        to.write_at(done, Bytes(buffer).first(got));
        done += got;
    }
    to.sync();
}

}  // namespace

std::string back_up_file(const platform::File& file, const std::string& folder) {
    const std::string path = backup_path(file.path(), folder);
    // Whatever ends this, a file of the final name is a whole copy.
    const std::string unfinished = path + ".part";
    platform::File copy = platform::File::open(unfinished, platform::OpenMode::kCreate,
                                               platform::Sharing::kExclusive);
    if (!copy.is_open()) {
        throw EngineFault(FaultCode::kInputOutput, "back up", path + ": cannot be made");
    }
    try {
        copy_bytes(file, copy);
        copy.close();
        platform::replace_file(unfinished, path);
    } catch (...) {
        copy.close();
        platform::remove_file(unfinished);
        throw;
    }
    return path;
}

void Mending::back_up(const platform::File& file) {
    if (options_.dry_run || !backed_up_.insert(file.path()).second) return;
    const std::string copy = back_up_file(file, options_.backup_folder);
    report_({true, file.path(), "copied to " + copy});
}

void Mending::act(const platform::File& file, const std::string& what,
                  const std::function<void()>& deed, std::optional<RecordNumber> record) {
    back_up(file);
    if (!options_.dry_run) deed();
    done(file.path(), what, record);
}

void Mending::done(const std::string& file, const std::string& what,
                   std::optional<RecordNumber> record) {
    report_({true, file, what, record});
}

void Mending::refuse(const std::string& file, const std::string& what,
                     std::optional<RecordNumber> record) {
    refused_ = true;
    report_({false, file, what, record});
}

}  // namespace brenik::local
