#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Walks through all that is in a folder, all levels deep, one item a call: each folder's items in
/// the order in which the file system gives them, what a folder holds right behind the folder.
///
/// Leaves out hidden items (a name that begins with a full stop, with all that is in them) and what
/// is inside a package. Follows no link. One thread at a time.
class DirectoryEnumerator {
  public:
    /// Told of what can't be read and is left out.
    using ErrorHandler = std::function<void(const std::filesystem::path& item, const Error& error)>;

    struct Item {
        std::string_view path;
        bool isDirectory = false;
        bool isPackage = false;           ///< An application bundle, by its name.
        Status typeError = std::nullopt;  ///< The two above could not be found out.
    };

    DirectoryEnumerator(const std::filesystem::path& folder, ErrorHandler errorHandler);
    ~DirectoryEnumerator();
    DirectoryEnumerator(const DirectoryEnumerator&) = delete;
    DirectoryEnumerator& operator=(const DirectoryEnumerator&) = delete;

    /// Valid until the next call; null at the end.
    [[nodiscard]] const Item* next();

  private:
    struct Level;

    void open(int parent, const char* name);
    bool readItem(Level& level);

    ErrorHandler _errorHandler;
    std::vector<Level> _levels;  ///< The open folders, the outermost first.
    std::string _path;           ///< Of the current item.
    Item _item;
};

}  // namespace teravolant::platform
