#pragma once

#include <string>

#include "platform/core/url.h"
#include "updater/client_updater.h"

// What an updater decides about a feed's answer, for callers that are not the running updater.
namespace teravolant {

/// As `ClientUpdater::checkUpdaterVersionNewer`, which writes to the log as well.
[[nodiscard]] bool isVersionNewer(const std::string& current, const std::string& updateTo,
                                  ClientUpdater::ErrorSlot& error);

/// The update that the body of the answer to the request offers. Compares the version that the
/// request's query holds with the offered one by `isNewer`; writes nothing to the log itself.
platform::Result<ClientUpdater::UpdateClass> updateFromFeed(
    const std::string& body, const platform::URLRequest& request,
    bool (*isNewer)(const std::string& current, const std::string& updateTo,
                    ClientUpdater::ErrorSlot& error) = isVersionNewer);

}  // namespace teravolant
