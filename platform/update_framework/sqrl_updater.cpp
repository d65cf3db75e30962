#include "platform/update_framework/sqrl_updater.h"

#include <system_error>
#include <thread>

#include "platform/application.h"
#include "platform/text.h"
#include "platform/update_framework/update_module.h"

namespace teravolant::platform {
namespace {

constexpr std::string_view kVersionKey = "CFBundleShortVersionString";

Error checkNotPossible(std::string description) {
    return updaterError(SQRLUpdaterErrorCheckNotPossible, std::move(description));
}

std::filesystem::path cacheFolderOf(const Bundle& bundle) {
    return cachesDirectory() / bundle.bundleIdentifier().value_or("");
}

/// Nothing when the bundle at its place is still the one that runs.
std::optional<Error> checkPlace(const Bundle& running) {
    const auto version = running.textForInfoDictionaryKey(kVersionKey);
    if (!version || !running.bundleIdentifier()) {
        return checkNotPossible(
            "This program runs outside of a bundle with an identifier and a "
            "version, so it can't be updated.");
    }
    const auto inPlace = Bundle::bundleWithPath(running.bundlePath());
    const auto versionInPlace =
        inPlace ? inPlace->textForInfoDictionaryKey(kVersionKey) : std::nullopt;
    if (versionInPlace != version) {
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
    const auto staged = runLocked();
    if (staged && staged.value()) {
        Application::sharedApplication().atTermination(
            [self = shared_from_this(), update = *staged.value(), failed] {
                self->installAtTermination(update, failed);
            });
        _state = UpdaterState::awaitingRelaunch;
        return;
    }
    // Whoever sees the idle state may end the process: the error must have been told by then.
    if (!staged) {
        failed(staged.error());
    }
    _cycleLock.reset();
    _state = UpdaterState::idle;
}

Result<std::optional<StagedUpdate>> SQRLUpdater::runLocked() {
    const Bundle& bundle = Bundle::mainBundle();
    const std::filesystem::path folder = cacheFolderOf(bundle);
    if (auto error = createDirectory(folder)) {
        return *std::move(error);
    }
    auto lock = FileLock::tryAcquire(folder / "update.lock");
    if (!lock) {
        return lock.error();
    }
    if (!lock.value()) {
        return checkNotPossible("Another start of this program is updating it already.");
    }
    _cycleLock = std::move(lock).value();
    // Only under the lock: the one who had it before may have replaced the bundle.
    if (auto error = checkPlace(bundle)) {
        return *std::move(error);
    }
    return runCycle(makeCycle());
}

UpdateCycle SQRLUpdater::makeCycle() {
    const Bundle& bundle = Bundle::mainBundle();
    return {
        .feedURL = _updateRequest.url ? _updateRequest.url->absoluteString() : "",
        .bundlePath = bundle.bundlePath(),
        .bundleIdentifier = bundle.bundleIdentifier().value_or(""),
        .bundleVersion = bundle.textForInfoDictionaryKey(kVersionKey).value_or(""),
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

Result<std::optional<StagedUpdate>> SQRLUpdater::runCycle(const UpdateCycle& cycle) {
    return runUpdateCycleInModule(cycle);
}

void SQRLUpdater::installAtTermination(const StagedUpdate& update, const Failed& failed) {
    if (const auto error = installStagedUpdate(cacheFolderOf(Bundle::mainBundle()), update)) {
        // A client that was told to restart now would find the old launcher, and that the same
        // update, again and again.
        failed(*error);
        _state = UpdaterState::idle;
    }
}

}  // namespace teravolant::platform
