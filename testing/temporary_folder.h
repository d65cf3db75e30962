#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace teravolant::fixtures {

/// A private folder that is removed with all that it holds.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder: " + name);
        }
        _path = std::filesystem::canonical(name);
    }
    ~TemporaryFolder() {
        using std::filesystem::perms;
        std::error_code ignored;
        // An unpacked folder may be closed to its owner.
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

  private:
    std::filesystem::path _path;
};

}  // namespace teravolant::fixtures
