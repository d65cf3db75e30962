#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/system/bundle.h"
#include "platform/system/deferred_signal.h"
#include "update_framework/sqrl_update.h"

namespace teravolant::platform {

/// The input of one cycle and the operations of its updater that it calls, on the cycle's thread.
struct UpdateCycle {
    std::string feedURL;
    std::filesystem::path bundlePath;  ///< The running bundle, which the update replaces.
    std::string bundleIdentifier;
    std::string bundleVersion;
    std::vector<std::string> publicKeys;
    std::filesystem::path cacheFolder;
    std::function<RACSignal<SQRLUpdate>(std::string body)> updateFromJSONData;
    std::function<RACSignal<Bundle>(std::filesystem::path folder)> matchingBundle;
    std::function<void()> downloadBegins;  ///< Called before the archive is downloaded.
};

}  // namespace teravolant::platform
