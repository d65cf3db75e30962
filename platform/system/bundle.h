#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/values/property_list.h"

namespace teravolant::platform {

/// An application bundle: a folder with Contents/Info.plist, Contents/MacOS and Contents/Resources.
///
/// Reads the information property list once, when the bundle is opened: the values stay the same
/// when the tree is exchanged later.
class Bundle {
  public:
    /// Returns the bundle with the running executable in Contents/MacOS or Contents/Helpers, which
    /// the first call determines from the executable's real path. Make that call at the program's
    /// start. For an executable outside a bundle, the bundle is the executable's directory, without
    /// information.
    static const Bundle& mainBundle();

    /// Returns nothing if the directory's Contents/Info.plist cannot be read.
    static std::optional<Bundle> bundleWithPath(const std::filesystem::path& path);

    [[nodiscard]] const std::filesystem::path& bundlePath() const { return _path; }
    [[nodiscard]] std::optional<std::string> bundleIdentifier() const;
    /// Returns "CFBundleShortVersionString", for example "1.0.0.1"; the printed form of a value
    /// that is not a text.
    [[nodiscard]] std::optional<std::string> shortVersion() const;

    /// Returns Contents/MacOS with the name in "CFBundleExecutable", or with the bundle's name
    /// without its extension if there is no such entry. For the main bundle, returns the running
    /// executable, unless that is in Contents/Helpers.
    [[nodiscard]] const std::filesystem::path& executablePath() const { return _executablePath; }

    /// Whether the executable is a regular file that the user may execute, and whose real path is
    /// inside the bundle.
    [[nodiscard]] bool canRun() const;

    /// Returns Contents/Helpers, the directory of the bundle's own programs.
    [[nodiscard]] std::filesystem::path helpersPath() const;

    /// Returns the value in the information property list, or null.
    [[nodiscard]] const Value* objectForInfoDictionaryKey(std::string_view key) const;

    /// Returns the path of the resource NAME.EXTENSION, if the bundle has it.
    [[nodiscard]] std::optional<std::filesystem::path> pathForResource(
        std::string_view name, std::string_view extension) const;

    /// Returns the translation of the English text `key` into the user's language (`LC_ALL`,
    /// `LC_MESSAGES`, `LANG`), else its English form, else the key itself. Translations are
    /// property lists at Contents/Resources/LANGUAGE.lproj/Localizable.strings.
    [[nodiscard]] std::string localizedStringForKey(std::string_view key) const;

  private:
    Bundle(std::filesystem::path path, std::filesystem::path executablePath, Value information)
        : _path(std::move(path)),
          _executablePath(std::move(executablePath)),
          _information(std::move(information)) {}

    static Bundle findMainBundle();

    std::filesystem::path _path;
    std::filesystem::path _executablePath;
    Value _information;  ///< A dictionary.
};

}  // namespace teravolant::platform
