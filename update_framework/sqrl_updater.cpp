#include "update_framework/sqrl_updater.h"

#include <system_error>
#include <thread>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/system/application.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

Error checkNotPossible(std::string description) {
    return updaterError(SQRLUpdaterErrorCheckNotPossible, std::move(description));
}

std::filesystem::path cacheFolderOf(const Bundle& bundle) {
    return cachesDirectory() / bundle.bundleIdentifier().value_or("");
}

/// Nothing when the bundle at its place is still the one that runs.
Status checkPlace(const Bundle& running) {
    const auto inPlace = Bundle::bundleWithPath(running.bundlePath());
    const auto versionInPlace = inPlace ? inPlace->shortVersion() : std::nullopt;
    if (versionInPlace != running.shortVersion()) {
        return checkNotPossible("The bundle was replaced by version " +
                                versionInPlace.value_or(kMissingValueMark) +
                                " after this program was started.");
    }
    return std::nullopt;
}

}  // namespace

void SQRLUpdater::checkForUpdates(const Failed& failed) {
    UpdaterState expected = UpdaterState::idle;
    if (!_state.compare_exchange_strong(expected, UpdaterState::checking)) {
        failed(checkNotPossible("An update check is under way or has found an update already."));
        return;
    }
    try {
        std::thread([self = shared_from_this(), failed] { self->checkAndStage(failed); }).detach();
    } catch (const std::system_error& exception) {
        failed(checkNotPossible(std::string("The update check could not be started: ") +
                                exception.what()));
        _state = UpdaterState::idle;
    }
}

void SQRLUpdater::checkAndStage(const Failed& failed) {
    const auto staged = runCycle();
    if (staged && *staged) {
        UpdaterState before = _state;
        const bool inTime = Application::sharedApplication().atTermination(
            [self = shared_from_this(), update = **staged, failed] {
                self->installAtTermination(update, failed);
            });
        // From here on a termination may have installed it, or failed to, and have said so. Where
        // one had begun before, the next start finds what is staged.
        if (inTime) {
            _state.compare_exchange_strong(before, UpdaterState::awaitingRelaunch);
        }
        return;
    }
    // Whoever sees the idle state may end the process: the error must have been told by then.
    if (!staged) {
        failed(staged.error());
    }
    _bundleLock.reset();
    _cacheLock.reset();
    _state = UpdaterState::idle;
}

Result<std::optional<StagedUpdate>> SQRLUpdater::runCycle() {
    const Bundle& bundle = Bundle::mainBundle();
    if (!bundle.bundleIdentifier() || !bundle.shortVersion()) {
        return checkNotPossible(
            "This program runs outside of a bundle with an identifier and a "
            "version, so it can't be updated.");
    }
    const std::filesystem::path folder = cacheFolderOf(bundle);
    if (auto error = createDirectory(folder)) {
        return error;
    }
    // Nobody else may change what was verified in there.
    std::error_code refused;
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all, refused);
    if (refused) {
        return checkNotPossible("The cache folder “" + folder.string() +
                                "” is not this user's own.");
    }
    auto cacheLock = FileLock::tryAcquire(folder / "update.lock");
    if (!cacheLock) {
        return cacheLock.error();
    }
    auto bundleLock = FileLock::tryAcquireFolder(bundle.bundlePath());
    if (!bundleLock) {
        return bundleLock.error();
    }
    if (!*cacheLock || !*bundleLock) {
        return checkNotPossible("Another start of this program is updating it already.");
    }
    _cacheLock = *std::move(cacheLock);
    _bundleLock = *std::move(bundleLock);
    // Only under the lock: the one who had it before may have replaced the bundle.
    if (auto error = checkPlace(bundle)) {
        return error;
    }
    return _runner(makeCycle());
}

UpdateCycle SQRLUpdater::makeCycle() {
    const Bundle& bundle = Bundle::mainBundle();
    return {
        .feedURL = _updateRequest.url ? _updateRequest.url->absoluteString() : "",
        .bundlePath = bundle.bundlePath(),
        .bundleIdentifier = bundle.bundleIdentifier().value_or(""),
        .bundleVersion = bundle.shortVersion().value_or(""),
        .publicKeys = updatePublicKeys(bundle),
        .cacheFolder = cacheFolderOf(bundle),
        .updateFromJSONData =
            [this](std::string body) { return updateFromJSONData(std::move(body)); },
        .matchingBundle =
            [this](std::filesystem::path folder) {
                return updateBundleMatchingCurrentApplicationInDirectory(std::move(folder));
            },
        .downloadBegins = [this] { _state = UpdaterState::downloading; },
    };
}

void SQRLUpdater::installAtTermination(const StagedUpdate& update, const Failed& failed) {
    const Bundle& bundle = Bundle::mainBundle();
    // Somebody else may have put another bundle there since the cycle began.
    auto error = checkPlace(bundle);
    if (!error) {
        error = installStagedUpdate(cacheFolderOf(bundle), update);
    }
    if (error) {
        failed(*error);
    }
    // A client that was told to restart after a failure would find the old launcher, and that the
    // same update, again and again.
    _state = error ? UpdaterState::idle : UpdaterState::awaitingRelaunch;
}

}  // namespace teravolant::platform
