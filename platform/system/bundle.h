#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/values/property_list.h"

namespace teravolant::platform {

/// An application bundle: a folder with Contents/Info.plist, Contents/MacOS and Contents/Resources.
///
/// The information property list is read once, when the bundle is opened, so what it said stays
/// true for the program that opened it even when the tree is exchanged later.
class Bundle {
  public:
    /// The bundle that the running executable belongs to, found from the executable's real path on
    /// the first call, which belongs at the program's start. An executable outside of a bundle gets
    /// its own folder as one without information.
    static const Bundle& mainBundle();

    /// Nothing when the folder's Contents/Info.plist can't be read.
    static std::optional<Bundle> bundleWithPath(const std::filesystem::path& path);

    [[nodiscard]] const std::filesystem::path& bundlePath() const { return _path; }
    [[nodiscard]] std::optional<std::string> bundleIdentifier() const;
    /// "CFBundleShortVersionString", as in "1.0.0.1".
    [[nodiscard]] std::optional<std::string> shortVersion() const;

    /// Contents/MacOS and the name that "CFBundleExecutable" gives (the bundle's own name without
    /// its extension when it gives none); the main bundle's is the running executable.
    [[nodiscard]] const std::filesystem::path& executablePath() const { return _executablePath; }

    /// Whether that is a file inside of the bundle, also by its real path, which this user may run.
    [[nodiscard]] bool canRun() const;

    /// The programs that the bundle brings for its own use: Contents/Helpers.
    [[nodiscard]] std::filesystem::path helpersPath() const;

    /// The value in the information property list, or null.
    [[nodiscard]] const Value* objectForInfoDictionaryKey(std::string_view key) const;

    /// The same, if it is a text.
    [[nodiscard]] std::optional<std::string> textForInfoDictionaryKey(std::string_view key) const;

    /// The resource NAME.EXTENSION, if the bundle has it.
    [[nodiscard]] std::optional<std::filesystem::path> pathForResource(
        std::string_view name, std::string_view extension) const;

    /// The text for people that stands for the English text `key`: from Contents/Resources/
    /// LANGUAGE.lproj/Localizable.strings (a property list) for the user's language (`LC_ALL`,
    /// `LC_MESSAGES`, `LANG`), else for English, else the key itself.
    [[nodiscard]] std::string localizedStringForKey(std::string_view key) const;

  private:
    Bundle(std::filesystem::path path, std::filesystem::path executablePath,
           Value::Dictionary information)
        : _path(std::move(path)),
          _executablePath(std::move(executablePath)),
          _information(std::move(information)) {}

    static Bundle findMainBundle();

    std::filesystem::path _path;
    std::filesystem::path _executablePath;
    Value::Dictionary _information;
};

}  // namespace teravolant::platform
