#pragma once

#include "platform/core/result.h"
#include "update_framework/archive_download.h"
#include "update_framework/offer.h"
#include "update_framework/offer_trust.h"
#include "update_framework/staging.h"
#include "update_framework/update_cycle.h"

namespace teravolant::platform {

/// A verified archive, and the trusted document that offers it.
struct OfferedArchive {
    const Offer& offer;
    const SignedDocument& document;
    const DownloadedArchive& archive;
};

/// Unpacks the archive beside the installed bundle, selects and checks the offered bundle
/// in it, compares its tree with the signed digest, flushes it, and records it as the staged
/// update. Blocks.
///
/// An update that was staged before stays recorded until then, and is removed afterwards. A failure
/// removes what was unpacked. `isBadUpdate` tells whether the archive would fail again.
Result<StagedUpdate> stageBundle(const UpdateCycle& cycle, const OfferedArchive& offered);

/// Whether the error means that the same archive would probably fail again on this computer.
[[nodiscard]] bool isBadUpdate(const Error& error);

/// Returns the space that `stageBundle` needs.
[[nodiscard]] NeededSpace spaceForTree(const UpdateCycle& cycle, const Offer& offer);

}  // namespace teravolant::platform
