#include <atomic>

#include "platform/core/error.h"
#include "platform/system/application.h"
#include "support/logger.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using platform::Application;
using platform::UpdaterState;

constexpr std::chrono::seconds kTickInterval(3);

/// Set by the first tick of this process; the ticks of several updaters may meet here.
std::atomic<bool> checkStarted = false;

void startCheck(ClientUpdater* updater) {
    Logger::sharedInstance().logMessage("[ClientUpdater::startChecksImmediately] do CheckUpdate");
    if (updater != nullptr) {
        updater->checkForUpdates([](const platform::Error& error) {
            Logger::sharedInstance().logMessage("Error checking for updates: " +
                                                printedForm(error));
        });
    }
}

UpdaterState stateOf(const ClientUpdater* updater) {
    return updater == nullptr ? UpdaterState::idle : updater->state();
}

void closeApplicationWhenOver(const ClientUpdater* updater) {
    Logger::sharedInstance().logMessage(
        "[ClientUpdater::startChecksImmediately] wait CheckUpdate result " +
        std::to_string(static_cast<unsigned>(stateOf(updater))));
    // Read once more: a check that ended since is over as well.
    const UpdaterState state = stateOf(updater);
    if (state == UpdaterState::idle || state == UpdaterState::awaitingRelaunch) {
        Application& application = Application::sharedApplication();
        application.dispatchAsyncOnMainQueue([&application] { application.terminate(); });
    }
}

}  // namespace

platform::RACDisposable ClientUpdater::startChecksImmediately(
    std::shared_ptr<platform::Clock> clock) {
    const auto weakly = std::weak_ptr(std::static_pointer_cast<ClientUpdater>(shared_from_this()));
    const platform::RACScheduler scheduler(platform::RACSchedulerPriority::background,
                                           std::move(clock));
    return scheduler.interval(
        kTickInterval,
        [weakly] {
            const auto updater = weakly.lock();
            if (!checkStarted.exchange(true)) {
                startCheck(updater.get());
            } else {
                closeApplicationWhenOver(updater.get());
            }
        },
        willDeallocSignal());
}

}  // namespace teravolant
