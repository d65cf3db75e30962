#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Walks a directory tree depth first and returns one item per call. The items of a directory come
/// in the order of the file system, and the contents of a directory follow it immediately.
///
/// Skips hidden items (whose names begin with a full stop) and their contents, and the contents of
/// packages. Follows no links below the root. May be used from one thread at a time.
class DirectoryEnumerator {
  public:
    /// Receives each directory that cannot be read and is skipped.
    using ErrorHandler = std::function<void(const std::filesystem::path& item, const Error& error)>;

    struct Item {
        std::string_view path;
        bool isDirectory = false;
        bool isPackage = false;           ///< A directory whose name ends in ".app".
        Status typeError = std::nullopt;  ///< Why the type of the item is unknown.
    };

    DirectoryEnumerator(const std::filesystem::path& folder, ErrorHandler errorHandler);
    ~DirectoryEnumerator();
    DirectoryEnumerator(const DirectoryEnumerator&) = delete;
    DirectoryEnumerator& operator=(const DirectoryEnumerator&) = delete;

    /// Returns the next item, valid until the next call, or null at the end.
    [[nodiscard]] const Item* next();

  private:
    struct Level;

    void open(int parent, const char* name);
    bool readItem(Level& level);

    ErrorHandler _errorHandler;
    std::vector<Level> _levels;  ///< The open directories, outermost first.
    std::string _path;           ///< The path of the current item.
    Item _item;
};

}  // namespace teravolant::platform
