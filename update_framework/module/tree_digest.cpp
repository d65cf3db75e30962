#include "update_framework/module/tree_digest.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

#include "platform/core/error.h"
#include "platform/crypto/digests.h"
#include "platform/crypto/encodings.h"
#include "platform/files/files.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

class TreeDigest {
  public:
    Status addRoot(const fs::path& folder) {
        struct stat status {};
        if (lstat(folder.c_str(), &status) != 0) {
            return unreadable(folder, errno);
        }
        addField(std::to_string(status.st_mode));
        return addFolder(folder);
    }

    Result<std::string> finish() {
        auto digest = _digest.finish();
        if (!digest) {
            return digest.error();
        }
        return hexText(*digest);
    }

  private:
    Status addFolder(const fs::path& folder) {
        std::vector<fs::path> items;
        std::error_code failure;
        for (fs::directory_iterator walk(folder, failure), end; !failure && walk != end;
             walk.increment(failure)) {
            items.push_back(walk->path());
        }
        if (failure) {
            return unreadable(folder, failure.value());
        }
        std::sort(items.begin(), items.end());
        addField("items " + std::to_string(items.size()));
        for (const fs::path& item : items) {
            if (auto error = addItem(item)) {
                return error;
            }
        }
        return std::nullopt;
    }

    Status addItem(const fs::path& path) {
        struct stat status {};
        if (lstat(path.c_str(), &status) != 0) {
            return unreadable(path, errno);
        }
        addField(path.filename().string());
        addField(std::to_string(status.st_mode));
        if (S_ISDIR(status.st_mode)) {
            return addFolder(path);
        }
        if (S_ISLNK(status.st_mode)) {
            std::error_code failure;
            addField(fs::read_symlink(path, failure).string());
            return failure ? Status(unreadable(path, failure.value())) : Status();
        }
        addField(std::to_string(status.st_size));
        return S_ISREG(status.st_mode) ? addContents(path) : Status();
    }

    Status addContents(const fs::path& path) {
        constexpr std::size_t kPieceSize = 65536;
        return readInPieces(
            path, kPieceSize,
            [this](std::string_view piece) {
                _digest.update(piece);
                return Status();
            },
            Links::Refuse);
    }

    /// Length first, so that no two trees give the same bytes.
    void addField(const std::string& text) {
        _digest.update(std::to_string(text.size()) + ":" + text);
    }

    static Error unreadable(const fs::path& path, int errorNumber) {
        return errorFromErrno(errorNumber, FileAccess::Read,
                              "“" + path.string() + "” could not be read");
    }

    Digest _digest{DigestAlgorithm::Sha256};
};

}  // namespace

Result<std::string> digestOfTree(const fs::path& folder) {
    TreeDigest digest;
    if (auto error = digest.addRoot(folder)) {
        return error;
    }
    return digest.finish();
}

}  // namespace teravolant::platform
