#include "update_framework/tree_digest.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <vector>

#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/crypto/digests.h"
#include "platform/files/files.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

/// Returns the paths of the folder and its items, relative to the folder, in byte order.
Result<std::vector<std::string>> sortedPaths(const fs::path& folder) {
    std::vector<std::string> paths = {""};
    const std::size_t prefix = folder.native().size() + (folder.has_filename() ? 1 : 0);
    std::error_code failure;
    for (fs::recursive_directory_iterator walk(folder, failure), end; !failure && walk != end;
         walk.increment(failure)) {
        paths.push_back(walk->path().native().substr(prefix));
    }
    if (failure) {
        return readError(failure.value(), folder.string());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::string permissionText(fs::perms permissions) {
    std::array<char, 12> digits{};
    std::snprintf(digits.data(), digits.size(), "%o",
                  static_cast<unsigned>(permissions & fs::perms::all));
    return digits.data();
}

Result<std::string> digestOfFile(const fs::path& path) {
    constexpr std::size_t kPieceSize = 65536;
    Digest digest;
    const auto add = [&digest](std::string_view piece) {
        digest.update(piece);
        return Status();
    };
    if (auto error = readInPieces(path, kPieceSize, add, Links::Refuse)) {
        return error;
    }
    return digest.finish();
}

/// Kind, permission bits and contents.
using Fields = std::array<std::string, 3>;

Result<Fields> fieldsOf(const fs::path& path) {
    std::error_code failure;
    const fs::file_status status = fs::symlink_status(path, failure);
    if (!failure && fs::is_symlink(status)) {
        std::string target = fs::read_symlink(path, failure).string();
        if (!failure) {
            return Fields{"l", "", std::move(target)};
        }
    }
    if (failure) {
        return readError(failure.value(), path.string());
    }
    const std::string permissions = permissionText(status.permissions());
    if (fs::is_directory(status)) {
        return Fields{"d", permissions, ""};
    }
    if (!fs::is_regular_file(status)) {
        return errorFromErrno(EINVAL, FileAccess::Read,
                              quoted(path.string()) + " is not a file, a folder or a link");
    }
    auto digest = digestOfFile(path);
    return digest ? Result<Fields>(Fields{"f", permissions, *std::move(digest)}) : digest.error();
}

}  // namespace

Result<std::string> digestOfTree(const fs::path& folder) {
    constexpr char kEnd = '\0';
    const auto paths = sortedPaths(folder);
    if (!paths) {
        return paths.error();
    }
    Digest digest;
    for (const std::string& path : *paths) {
        const auto fields = fieldsOf(path.empty() ? folder : folder / path);
        if (!fields) {
            return fields.error();
        }
        digest.update(path + kEnd);
        for (const std::string& field : *fields) {
            digest.update(field + kEnd);
        }
    }
    return digest.finish();
}

}  // namespace teravolant::platform
