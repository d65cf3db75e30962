#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/system/bundle.h"
#include "platform/system/deferred_signal.h"
#include "update_framework/sqrl_update.h"

namespace teravolant::platform {

/// What one cycle works on and asks its updater for.
struct UpdateCycle {
    std::string feedURL;
    std::filesystem::path bundlePath;  ///< The running bundle, which is to be replaced.
    std::string bundleIdentifier;
    std::string bundleVersion;
    std::vector<std::string> publicKeys;
    std::filesystem::path cacheFolder;
    std::function<RACSignal<SQRLUpdate>(std::string body)> updateFromJSONData;
    std::function<RACSignal<Bundle>(std::filesystem::path folder)> matchingBundle;
    std::function<void()> downloadBegins;
};

}  // namespace teravolant::platform
