#include "platform/files/directory_enumerator.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <memory>

#include "platform/core/deleter.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"

namespace teravolant::platform {
namespace {

using DirectoryStream = std::unique_ptr<DIR, Deleter<closedir>>;

bool isPackageName(std::string_view name) {
    constexpr std::string_view kExtension = ".app";
    return name.size() > kExtension.size() &&
           equalIgnoringCase(name.substr(name.size() - kExtension.size()), kExtension);
}

}  // namespace

struct DirectoryEnumerator::Level {
    DirectoryStream folder;
    std::size_t pathLength;  ///< The length of the directory's path with its final slash.
};

DirectoryEnumerator::DirectoryEnumerator(const std::filesystem::path& folder,
                                         ErrorHandler errorHandler)
    : _errorHandler(std::move(errorHandler)), _path(folder.string()) {
    // The final slash resolves a link, which O_NOFOLLOW refuses otherwise: the root may be a link.
    const std::string name = folder / "";
    open(AT_FDCWD, name.c_str());
}

DirectoryEnumerator::~DirectoryEnumerator() = default;

const DirectoryEnumerator::Item* DirectoryEnumerator::next() {
    if (_item.isDirectory && !_item.isPackage) {
        const std::size_t parentLength = _levels.back().pathLength;
        open(dirfd(_levels.back().folder.get()), _path.c_str() + parentLength);
    }
    while (!_levels.empty()) {
        if (readItem(_levels.back())) {
            return &_item;
        }
        _levels.pop_back();
    }
    _item = {};
    return nullptr;
}

/// Opens the directory at the current path, whose name in the directory `parent` is `name`.
void DirectoryEnumerator::open(int parent, const char* name) {
    FileDescriptor descriptor(
        openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    DIR* const folder = descriptor ? fdopendir(descriptor.get()) : nullptr;
    if (folder == nullptr) {
        _errorHandler(_path, *readError(errno, _path));
        return;
    }
    (void)descriptor.release();
    if (!_path.ends_with('/')) {
        _path += '/';
    }
    _levels.push_back({DirectoryStream(folder), _path.size()});
}

/// Makes the next item of the directory the current one. Returns false if there is none.
bool DirectoryEnumerator::readItem(Level& level) {
    _path.resize(level.pathLength);
    const dirent* entry = nullptr;
    do {
        errno = 0;
        entry = readdir(level.folder.get());
        if (entry == nullptr) {
            if (errno != 0) {
                _errorHandler(_path, *readError(errno, _path));
            }
            return false;
        }
    } while (entry->d_name[0] == '.');

    _path += entry->d_name;
    _item.path = _path;
    _item.isDirectory = entry->d_type == DT_DIR;
    _item.typeError = {};
    if (entry->d_type == DT_UNKNOWN) {
        struct stat status {};
        if (fstatat(dirfd(level.folder.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
            _item.isDirectory = S_ISDIR(status.st_mode);
        } else {
            _item.typeError = readError(errno, _path);
        }
    }
    _item.isPackage = _item.isDirectory && isPackageName(entry->d_name);
    return true;
}

}  // namespace teravolant::platform
