#pragma once

#include <cstdint>
#include <filesystem>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"
#include "update_framework/sqrl_update.h"

namespace teravolant::release {

/// What an offer states about an archive.
struct ArchiveFacts {
    std::uint64_t size = 0;  ///< Bytes.
    std::string sha256;      ///< Lower-case hexadecimal digits.
};

/// Reads the archive. Fails if it is unreadable or a stop is requested.
platform::Result<ArchiveFacts> factsOf(const std::filesystem::path& archive,
                                       const std::stop_token& stop);

/// Returns the offer in the feed document `body` if an updater with this identifier and these keys
/// accepts it as the response to its request for `feedUrl`, whose query contains the running
/// version. The error states the reason and the member of the document.
platform::Result<platform::SQRLUpdate> acceptedOffer(const std::string& body,
                                                     const std::string& feedUrl,
                                                     const std::string& identifier,
                                                     const std::vector<std::string>& publicKeys);

/// The parent of a feed whose URL is unknown.
inline constexpr std::string_view kUnknownFolder = "https://feed.invalid/";

/// Returns the URL of a feed in `kUnknownFolder` as a build of `version` requests it.
[[nodiscard]] std::string unknownFeedUrl(std::string_view version);

}  // namespace teravolant::release
