#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace teravolant::platform {

/// The headers of the last response on a connection, without those of interim responses.
class ReceivedHeaders {
  public:
    /// Of all responses together, interim ones included.
    static constexpr std::size_t kMostBytes = std::size_t{256} * 1024;

    /// Adds a line; a status line begins a new response. Returns false beyond `kMostBytes`.
    [[nodiscard]] bool add(std::string_view line);

    /// Returns the value of the last header with the name, which is in lower case.
    [[nodiscard]] std::optional<std::string> find(const std::string& name) const;

  private:
    std::size_t _bytes = 0;
    std::map<std::string, std::string> _values;
};

/// Returns FIRST of "bytes FIRST-LAST/LENGTH" (RFC 9110, section 14.4), or nothing if the header is
/// malformed or has another unit.
[[nodiscard]] std::optional<std::uint64_t> startOfRange(std::string_view contentRange);

/// Returns LENGTH of the same form, or nothing if it is unknown ("*") or malformed.
[[nodiscard]] std::optional<std::uint64_t> completeLengthIn(std::string_view contentRange);

}  // namespace teravolant::platform
