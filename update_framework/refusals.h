#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/core/result.h"

namespace teravolant::platform {

/// Why a downloaded archive was refused.
enum class Refusal : std::uint8_t {
    Bad,           ///< It has the offered digest but can't be unpacked or installed.
    OtherBytes,    ///< Its size or digest is not the offered one: a stale or incomplete copy.
    FailedStarts,  ///< Its bundle was installed, but three starts of it failed.
};

/// The archives that were refused on this computer, by their offered digest, in a file of the cache
/// folder.
///
/// A bad archive is not downloaded again for 7 days, and one whose starts failed not at all; an
/// archive with other bytes is tried again after 1, then 4, then every 24 hours. A repaired archive
/// has another digest. All times are the computer's clock; a time in the future, as after a clock
/// that was set back, counts as past.
class Refusals {
  public:
    using Time = std::chrono::sys_seconds;

    explicit Refusals(const std::filesystem::path& cacheFolder);

    /// Returns an error that says when and why the archive was refused, if it must not be
    /// downloaded at `now`.
    [[nodiscard]] Status check(const std::string& digest, Time now) const;

    /// Returns a description of each refusal that is in force at `now`: its time, end and reason.
    [[nodiscard]] std::vector<std::string> all(Time now) const;

    /// Durably remembers that the archive was refused with `reason`. After a failure, the next
    /// cycle downloads the archive again.
    Status add(const std::string& digest, Refusal refusal, const std::string& reason,
               Time now) const;

    void remove(const std::string& digest) const;

  private:
    std::filesystem::path _file;
};

}  // namespace teravolant::platform
