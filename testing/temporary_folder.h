#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace teravolant::fixtures {

/// A folder of one test's own, removed with all that is in it.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = std::filesystem::temp_directory_path() / "teravolant-XXXXXX";
        _path = mkdtemp(name.data());
    }
    ~TemporaryFolder() {
        using std::filesystem::perms;
        std::error_code ignored;
        // A test may have closed a folder to its owner.
        for (std::filesystem::recursive_directory_iterator walk(_path, ignored), end;
             !ignored && walk != end; walk.increment(ignored)) {
            if (walk->is_directory() && !walk->is_symlink()) {
                std::filesystem::permissions(walk->path(), perms::owner_all, ignored);
            }
        }
        std::filesystem::remove_all(_path, ignored);
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

}  // namespace teravolant::fixtures
