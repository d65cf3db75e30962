// The thread, the states, the locks and the installation of an update cycle.
//
// `checkForUpdates` moves the state from idle to checking with a compare-and-exchange, so that only
// one caller starts a cycle, which runs on a detached thread that owns the updater. The cycle sets
// the state to downloading. A cycle without an update reports its error, if any, releases its locks
// and sets the state to idle. A cycle that staged an update registers the installation with the
// application and sets the state to awaitingRelaunch; it keeps the locks, so that no other process
// changes the staged update.
//
// The cycle runs under two locks of this user, on a file in the cache folder and on one beside the
// bundle. Neither is waited for: if another process holds one, it is updating the bundle, and the
// cycle fails. The cycle releases them while it waits for the next attempt of a request.
//
// The registered installation runs on the main thread when the application terminates, possibly
// before this cycle's thread sets the state. Whichever is first, the state after a failed
// installation is idle. If the application is already terminating, the installation is not
// registered, and the cycle of the next start finds the staged update.
#include "update_framework/sqrl_updater.h"

#include <unistd.h>

#include <system_error>
#include <thread>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/utc_time.h"
#include "platform/files/private_directory.h"
#include "platform/system/application.h"
#include "platform/system/confined_program.h"
#include "update_framework/installing.h"
#include "update_framework/updater_error.h"
#include "update_framework/updater_log.h"

namespace teravolant::platform {
namespace {

Status checkNotPossible(std::string description) {
    return updaterError(SQRLUpdaterErrorCheckNotPossible, std::move(description));
}

/// The starts of other users do not confirm what root has installed.
Confirmation confirmationHere() {
    return geteuid() == 0 ? Confirmation::SelfCheck : Confirmation::FirstStarts;
}

/// Returns an error if the bundle at the path of the running one has another version.
Status checkNotReplaced(const Bundle& running) {
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
        failed(*checkNotPossible("An update check is running or has already found an update."));
        return;
    }
    try {
        std::thread([self = shared_from_this(), failed] { self->checkAndStage(failed); }).detach();
    } catch (const std::system_error& exception) {
        failed(*checkNotPossible(std::string("The update check could not be started: ") +
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
        // The installation may already have run and have set the state: do not overwrite it.
        if (inTime) {
            _state.compare_exchange_strong(before, UpdaterState::awaitingRelaunch);
        }
        return;
    }
    // Report the error before going idle: the next tick may terminate the process.
    if (!staged) {
        failed(staged.error());
    }
    releaseLocks();
    _state = UpdaterState::idle;
}

Result<std::optional<StagedUpdate>> SQRLUpdater::runCycle() {
    const Bundle& bundle = Bundle::mainBundle();
    if (!bundle.bundleIdentifier() || !bundle.shortVersion()) {
        return checkNotPossible(
            "This program is not in a bundle with an identifier and a version, so it can't be "
            "updated.");
    }
    // Check before any request: an update could not be installed.
    if (auto error = checkReplaceable(bundle.bundlePath())) {
        return error;
    }
    // Other users must not be able to change the files after they are verified.
    if (auto error = prepareCacheFolder(cacheFolderOf(bundle))) {
        return error;
    }
    if (auto error = acquireLocks()) {
        return error;
    }
    if (confirmationHere() == Confirmation::SelfCheck) {
        if (auto error = completeInstallation(cacheFolderOf(bundle), bundle.bundlePath())) {
            return error;
        }
    }
    auto staged = runUpdateCycle(makeCycle());
    static std::atomic<bool> isLogged = false;
    if (ConfinedProgram::anyRanUnconfined() && !isLogged.exchange(true)) {
        logUpdater(
            "this kernel lacks seccomp or Landlock: programs that read untrusted bytes are "
            "confined in part only");
    }
    return staged;
}

Status SQRLUpdater::acquireLocks() {
    const Bundle& bundle = Bundle::mainBundle();
    auto cacheLock = FileLock::tryAcquire(cacheFolderOf(bundle) / "update.lock");
    if (!cacheLock) {
        return cacheLock.error();
    }
    auto bundleLock =
        FileLock::tryAcquireTemporary(stagingFolderFor(bundle.bundlePath()).string() + ".lock");
    if (!bundleLock) {
        return bundleLock.error();
    }
    if (!*cacheLock || !*bundleLock) {
        return checkNotPossible("Another process is already updating this bundle.");
    }
    _cacheLock = *std::move(cacheLock);
    _bundleLock = *std::move(bundleLock);
    // Checked under the lock: the process that held it before may have replaced the bundle.
    return checkNotReplaced(bundle);
}

void SQRLUpdater::releaseLocks() {
    _bundleLock.reset();
    _cacheLock.reset();
}

Status SQRLUpdater::pauseUntil(Clock::Time time) {
    releaseLocks();
    if (!_clock->waitUntil(time, willDeallocSignal())) {
        return checkNotPossible("The update check was stopped.");
    }
    // Whatever prevents the locks, the cycle must not touch the staged update without them.
    const auto error = acquireLocks();
    return error ? checkNotPossible(error->localizedDescription) : Status();
}

UpdateCycle SQRLUpdater::makeCycle() {
    const Bundle& bundle = Bundle::mainBundle();
    Installation installation = installationOf(bundle);
    installation.acceptsBothChannels = _acceptsBothChannels;
    return {
        .feedURL = _updateRequest.url ? _updateRequest.url->absoluteString() : "",
        .bundlePath = bundle.bundlePath(),
        .installation = std::move(installation),
        .cacheFolder = cacheFolderOf(bundle),
        .history = DocumentHistory(UserDefaults::standardUserDefaults()),
        .updateFromJSONData =
            [this](std::string body) { return updateFromJSONData(std::move(body)); },
        .matchingBundle =
            [this](std::filesystem::path folder) {
                return updateBundleMatchingCurrentApplicationInDirectory(std::move(folder));
            },
        .downloadBegins = [this] { _state = UpdaterState::downloading; },
        .now = [this] { return _clock->now(); },
        .pauseUntil = [this](Clock::Time time) { return pauseUntil(time); },
        .log = logUpdater,
        .wallTime = currentUtcTime,
    };
}

Status SQRLUpdater::install(const StagedUpdate& update) {
    const Bundle& bundle = Bundle::mainBundle();
    // The user may have replaced the bundle since the cycle began.
    auto error = checkNotReplaced(bundle);
    if (!error) {
        error = installStagedUpdate(cacheFolderOf(bundle), update, confirmationHere());
    }
    if (!error) {
        logUpdater("installed version " + escaped(update.version) + " at " +
                   quoted(update.target.string()));
    }
    return error;
}

void SQRLUpdater::installAtTermination(const StagedUpdate& update, const Failed& failed) {
    const auto error = install(update);
    if (error) {
        failed(*error);
    }
    // The process ends without the destructor of this object.
    releaseLocks();
    // After a failed installation the client must not be told to restart: the old launcher would
    // find the same update again, in an endless loop.
    _state = error ? UpdaterState::idle : UpdaterState::awaitingRelaunch;
}

}  // namespace teravolant::platform
