#pragma once

#include <clocale>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/archives/archives.h"

// What packing and unpacking have in common: which entries an archive may hold.
namespace teravolant::platform {

inline constexpr unsigned kPermissionBits = 0777;

/// Bytes that are read at a time, of an archive or of a file that goes into one.
inline constexpr std::size_t kArchiveReadSize = std::size_t{1} << 18U;

using PathComponents = std::vector<std::string>;

/// Splits an entry's name, leaving out `.` and doubled slashes: empty for the folder itself.
/// The error's text is the end of a sentence that begins with the entry's name.
Result<PathComponents> componentsOfEntry(std::string_view name, const UnpackLimits& limits);

/// Why a symbolic link must not stand `depth` folders deep, as the end of a sentence that begins
/// with its name; nothing when it may.
///
/// A permitted target is relative and only begins with `..`, at most `depth` times. The folder that
/// holds the link is a real one, so those steps stay inside; after them every step leads downwards
/// or through another permitted link. A `..` further back would start from wherever such a link
/// leads and could climb out although it looks harmless.
[[nodiscard]] std::optional<std::string> refusalOfLink(std::string_view target, std::size_t depth,
                                                       const UnpackLimits& limits);

/// Why the mode's bits beyond the permissions are refused; nothing when there are none.
[[nodiscard]] std::optional<std::string> refusalOfMode(unsigned mode);

/// Lets the calling thread's names be UTF-8, whatever the environment says, as long as it lives.
class Utf8Names {
  public:
    Utf8Names();
    ~Utf8Names();
    Utf8Names(const Utf8Names&) = delete;
    Utf8Names& operator=(const Utf8Names&) = delete;

  private:
    locale_t _locale;
    locale_t _previous;
};

/// An error of `NSCocoaErrorDomain`.
Error archiveError(std::int64_t code, std::string description);

}  // namespace teravolant::platform
