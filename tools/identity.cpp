#include "tools/identity.h"

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/url.h"
#include "update_framework/updater_error.h"
#include "updater/client_updater.h"

namespace teravolant::release {
namespace {

using platform::Bundle;
using platform::quoted;
using platform::Result;
using platform::Status;

Status refusedBundle(std::string reason) {
    return platform::updaterError(platform::SQRLUpdaterErrorRefusedBundle, std::move(reason));
}

}  // namespace

Result<Bundle> openBundle(const std::filesystem::path& path) {
    auto bundle = Bundle::bundleWithPath(path);
    if (!bundle) {
        return refusedBundle(quoted(path.string()) +
                             " is not a bundle: its Contents/Info.plist can't be read.");
    }
    return *std::move(bundle);
}

Result<Identity> identityOf(const Bundle& bundle) {
    const auto identifier = bundle.bundleIdentifier();
    const auto version = bundle.shortVersion();
    if (!identifier || !version) {
        return refusedBundle(quoted(bundle.bundlePath().string()) + " has no " +
                             (identifier ? "CFBundleShortVersionString" : "CFBundleIdentifier") +
                             " in its Info.plist.");
    }
    Identity identity = {.identifier = *identifier, .version = *version};
    if (auto error = refusalOf(identity)) {
        return error;
    }
    return identity;
}

Status refusalOf(const Identity& identity) {
    if (identity.identifier.empty() || identity.identifier.find('\n') != std::string::npos) {
        return refusedBundle("The identifier is empty or contains a line feed.");
    }
    ClientUpdater::ErrorSlot error;
    const auto offered = ClientUpdater::parseVersion(identity.version, error);
    if (!offered) {
        return refusedBundle("“version”: " + error->localizedDescription);
    }
    // A running build parses its own version from the query of its feed's URL.
    const auto running = ClientUpdater::parseVersion(
        platform::percentEncodedForQuery("version=" + identity.version), error);
    if (running != offered) {
        return refusedBundle("“version”: in its feed's URL the build would read its version " +
                             quoted(identity.version) + " as another version.");
    }
    return std::nullopt;
}

}  // namespace teravolant::release
