#pragma once

#include <filesystem>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"
#include "update_framework/offer.h"

namespace teravolant::release {

/// What an archive contains.
struct Inspection {
    /// Identifier, version, sizes and digests. The other fields are those of an empty offer.
    platform::Offer offer;
    std::vector<std::string> publicKeys;  ///< Of the bundle.
};

/// Unpacks the archive in a confined process into a private temporary folder, and checks the bundle
/// in it. Blocks.
///
/// Reads the archive once, so size, digest and contents describe the same bytes. Fails for an
/// archive that an updater would refuse; unless it contains exactly one bundle, complete, with an
/// identifier, a version, and a build time that has passed; for a program that can't run on this
/// kind of machine; and if the bundle differs from `bundle`, unless that is empty. Fails soon after
/// a stop request.
platform::Result<Inspection> inspectArchive(const std::filesystem::path& archive,
                                            const std::filesystem::path& bundle,
                                            const std::stop_token& stop);

/// The first argument with which the tool runs as the confined process.
inline constexpr std::string_view kUnpackArgument = "--unpack-confined";

}  // namespace teravolant::release
