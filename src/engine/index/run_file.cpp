// Makes, fills and removes the file of runs.

#include "engine/index/run_file.h"

namespace brenik::index {

std::string run_file_path(const std::string& index_path) { return index_path + ".run"; }

RunFile::~RunFile() {
    if (!file_.is_open()) return;
    file_.close();
    platform::remove_file(path_);
}

void RunFile::append(Bytes bytes) {
    if (!file_.is_open()) {
        file_ =
            platform::File::open(path_, platform::OpenMode::kCreate, platform::Sharing::kExclusive);
        if (!file_.is_open()) {
            throw EngineFault(
                FaultCode::kInputOutput, "sort keys",
                path_ + ": the file for sorting cannot be created: " + file_.why_not_open());
        }
    }
    file_.write_at(size_, bytes);
    size_ += bytes.size();
}

void RunFile::read(std::uint64_t offset, MutableBytes into) const {
    if (file_.read_at(offset, into) == into.size()) return;
    throw EngineFault(FaultCode::kInputOutput, "sort keys",
                      path_ + ": at " + std::to_string(offset) + ": another program shortened it");
}

}  // namespace brenik::index
