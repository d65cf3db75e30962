#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace teravolant::testing {

/// A folder of one test's own, removed with all that is in it.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = std::filesystem::temp_directory_path() / "teravolant-XXXXXX";
        _path = mkdtemp(name.data());
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return _path; }

  private:
    std::filesystem::path _path;
};

}  // namespace teravolant::testing
