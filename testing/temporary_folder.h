#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/files.h"

namespace teravolant::fixtures {

/// A folder of one test's own, removed with all that is in it.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = std::filesystem::temp_directory_path() / "teravolant-XXXXXX";
        _path = mkdtemp(name.data());
    }
    ~TemporaryFolder() { (void)platform::removeTree(_path); }
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

}  // namespace teravolant::fixtures
