#pragma once

#include <clocale>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/archives/archives.h"

// Which entries an archive may contain: the rules that packing and unpacking share.
namespace teravolant::platform {

/// Bytes per read of an archive or of a file that is packed.
inline constexpr std::size_t kArchiveReadSize = std::size_t{1} << 18U;

using PathComponents = std::vector<std::string>;

/// Splits the name of an entry at its slashes and drops `.` and empty components. Returns no
/// component for the root folder itself. The error's text ends a sentence that begins with the
/// name.
Result<PathComponents> componentsOfEntry(std::string_view name, const UnpackLimits& limits);

/// Returns why a symbolic link in a folder `depth` levels below the root is refused, as the end of
/// a sentence that begins with the link's name, or nothing if it is permitted.
///
/// A permitted target is relative and contains `..` only at its beginning, at most `depth` times.
/// The parent of the link is a real folder, so these steps stay inside the root; every later step
/// descends or follows another permitted link. A `..` after another component would start at the
/// target of such a link and could leave the root.
[[nodiscard]] std::optional<std::string> refusalOfLink(std::string_view target, std::size_t depth,
                                                       const UnpackLimits& limits);

/// Returns why the mode is refused, in the same form, or nothing if it has permission bits only.
[[nodiscard]] std::optional<std::string> refusalOfMode(unsigned mode);

/// Sets LC_CTYPE of the calling thread to UTF-8 while it lives: libarchive converts names with it.
class Utf8Names {
  public:
    Utf8Names();
    ~Utf8Names();
    Utf8Names(const Utf8Names&) = delete;
    Utf8Names& operator=(const Utf8Names&) = delete;

  private:
    locale_t _locale;
    locale_t _previous{};
};

/// Returns an error of `NSCocoaErrorDomain`.
Status archiveError(std::int64_t code, std::string description);

}  // namespace teravolant::platform
