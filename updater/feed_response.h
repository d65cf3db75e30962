#pragma once

#include <optional>
#include <string>

#include "platform/core/url.h"
#include "updater/client_updater.h"

namespace teravolant {

/// Returns the update that `body`, the response to `request`, offers. Fails if the offered version
/// is not newer than the version in the request's query.
///
/// The same decision as `ClientUpdater::updateFromJSONData`, but writes no log line: for programs
/// other than the running updater.
platform::Result<ClientUpdater::UpdateClass> updateFromFeed(const std::string& body,
                                                            const platform::URLRequest& request);

/// Returns the offered version that the body names, "(null)" if it names none, or nothing if the
/// body is not a feed document.
[[nodiscard]] std::optional<std::string> versionInFeed(const std::string& body);

}  // namespace teravolant
