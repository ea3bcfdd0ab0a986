// A folder of its own for every test, gone with the test.

#pragma once

#include <filesystem>
#include <random>
#include <string>

namespace brenik {

class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::random_device random;
        do {
            path_ = std::filesystem::temp_directory_path() / ("brenik-" + std::to_string(random()));
        } while (!std::filesystem::create_directory(path_));
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    operator const std::filesystem::path&() const { return path_; }
    std::filesystem::path operator/(const std::filesystem::path& name) const {
        return path_ / name;
    }
    std::string string() const { return path_.string(); }

  private:
    std::filesystem::path path_;
};

}  // namespace brenik
