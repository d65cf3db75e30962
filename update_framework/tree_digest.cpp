#include "update_framework/tree_digest.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/crypto/digests.h"
#include "platform/files/files.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

class TreeDigest {
  public:
    /// Adds the type, the permissions and the contents of an item, not its name.
    Status addItem(const fs::path& path) {
        std::error_code failure;
        const fs::file_status status = fs::symlink_status(path, failure);
        if (failure) {
            return readError(failure.value(), path.string());
        }
        addField(std::to_string(static_cast<int>(status.type())));
        addField(std::to_string(static_cast<unsigned>(status.permissions())));
        if (fs::is_directory(status)) {
            return addFolder(path);
        }
        if (fs::is_symlink(status)) {
            addField(fs::read_symlink(path, failure).string());
            return failure ? Status(readError(failure.value(), path.string())) : Status();
        }
        if (!fs::is_regular_file(status)) {
            return errorFromErrno(EINVAL, FileAccess::Read,
                                  quoted(path.string()) + " is not a file, a folder or a link");
        }
        return addContents(path);
    }

    std::string finish() { return _digest.finish(); }

  private:
    Status addFolder(const fs::path& folder) {
        std::vector<fs::path> items;
        std::error_code failure;
        for (fs::directory_iterator walk(folder, failure), end; !failure && walk != end;
             walk.increment(failure)) {
            items.push_back(walk->path());
        }
        if (failure) {
            return readError(failure.value(), folder.string());
        }
        std::sort(items.begin(), items.end());
        addField("items " + std::to_string(items.size()));
        for (const fs::path& item : items) {
            addField(item.filename().string());
            if (auto error = addItem(item)) {
                return error;
            }
        }
        return std::nullopt;
    }

    Status addContents(const fs::path& path) {
        const auto attributes = attributesOfItem(path);
        if (!attributes) {
            return attributes.error();
        }
        addField(std::to_string(attributes->fileSize));
        constexpr std::size_t kPieceSize = 65536;
        return readInPieces(
            path, kPieceSize,
            [this](std::string_view piece) {
                _digest.update(piece);
                return Status();
            },
            Links::Refuse);
    }

    /// Prefixes the length, so that different trees never give the same bytes.
    void addField(const std::string& text) {
        _digest.update(std::to_string(text.size()) + ":" + text);
    }

    Digest _digest;
};

}  // namespace

Result<std::string> digestOfTree(const fs::path& folder) {
    TreeDigest digest;
    if (auto error = digest.addItem(folder)) {
        return error;
    }
    return digest.finish();
}

}  // namespace teravolant::platform
