#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace teravolant::testing {

/// A folder for one test, removed with all that is in it.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "unit-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), name);
        }
        _path = name;
    }
    ~TemporaryFolder() {
        std::error_code left;
        std::filesystem::remove_all(_path, left);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return _path; }

    /// Writes a file below this folder, with the folders above it.
    void write(const std::filesystem::path& file, const std::string& contents) const {
        std::filesystem::create_directories((_path / file).parent_path());
        std::ofstream(_path / file) << contents;
    }

  private:
    std::filesystem::path _path;
};

}  // namespace teravolant::testing
