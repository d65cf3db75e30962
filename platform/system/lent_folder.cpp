#include "platform/system/lent_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/files/files.h"
#include "platform/files/private_directory.h"
#include "platform/system/unprivileged_user.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLentFolder = ".teravolant-unpacking";

Status notTakenBack(int errorNumber, const fs::path& item) {
    return errorFromErrno(errorNumber, FileAccess::Write,
                          "Root could not take back " + quoted(item.native()));
}

/// The hard links of files, to find out whether there are more than those in one tree.
class HardLinks {
  public:
    void add(const struct stat& status) {
        if (!S_ISDIR(status.st_mode) && status.st_nlink > 1) {
            auto& missing = _missing.try_emplace(status.st_ino, status.st_nlink).first->second;
            --missing;
        }
    }
    [[nodiscard]] bool areComplete() const {
        return std::all_of(_missing.begin(), _missing.end(),
                           [](const auto& file) { return file.second == 0; });
    }

  private:
    std::map<ino_t, nlink_t> _missing;
};

/// Makes the caller the owner of the folder and of everything in it. Follows no links.
Status own(const fs::path& folder) {
    HardLinks links;
    const auto ownItem = [&links](const fs::path& item) {
        struct stat status {};
        if (lstat(item.c_str(), &status) != 0 || lchown(item.c_str(), geteuid(), getegid()) != 0) {
            return notTakenBack(errno, item);
        }
        links.add(status);
        return Status();
    };
    auto error = ownItem(folder);
    std::error_code failure;
    // An item is owned before the walk enters it: root without capabilities can't read it before.
    for (fs::recursive_directory_iterator items(folder, failure), end;
         !error && !failure && items != end; items.increment(failure)) {
        error = ownItem(items->path());
    }
    if (error || failure) {
        return error ? error : notTakenBack(failure.value(), folder);
    }
    return links.areComplete() ? Status() : notTakenBack(EMLINK, folder);
}

}  // namespace

Result<fs::path> lendFolder(const fs::path& folder) {
    if (geteuid() != 0) {
        return folder;
    }
    struct stat status {};
    if (lstat(folder.c_str(), &status) != 0) {
        return writeError(errno, folder.native());
    }
    if (!isPrivateDirectory(folder) || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        return writeError(EACCES, folder.native());
    }
    const auto [user, group] = unprivilegedUser();
    fs::path lent = folder / kLentFolder;
    int failure = createPrivateDirectory(lent);
    if (failure == 0 && lchown(lent.c_str(), user, group) != 0) {
        failure = errno;
        rmdir(lent.c_str());
    }
    return failure == 0 ? Result<fs::path>(std::move(lent))
                        : errorFromErrno(failure, FileAccess::Write,
                                         "Root could not give the folder " + quoted(lent.native()) +
                                             " to the user " + std::to_string(user) +
                                             ", as which its programs unpack (a container must "
                                             "have this user, and root "
                                             "needs CAP_CHOWN)");
}

Status takeFolderBack(const fs::path& lent, const fs::path& folder) {
    if (auto error = own(lent)) {
        return error;
    }
    std::error_code failure;
    std::vector<fs::path> items;
    for (fs::directory_iterator walk(lent, failure), end; !failure && walk != end;
         walk.increment(failure)) {
        items.push_back(walk->path());
    }
    for (const fs::path& item : items) {
        if (!failure) {
            fs::rename(item, folder / item.filename(), failure);
        }
    }
    if (!failure) {
        fs::remove(lent, failure);
    }
    return failure ? notTakenBack(failure.value(), lent) : Status();
}

}  // namespace teravolant::platform
