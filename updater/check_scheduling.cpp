#include <atomic>

#include "platform/core/text.h"
#include "platform/system/application.h"
#include "support/logger.h"
#include "updater/client_updater.h"

// How it works: three threads take part. The scheduler's thread runs the ticks, one at a time. The
// first tick starts the check, which runs on a thread of the update framework and publishes its
// progress in the updater's atomic state. Every later tick logs that state. If the check is over,
// the tick queues the termination on the main queue, since only the main thread may terminate the
// application. A termination request can be queued more than once; the first one ends the process.
// The schedule holds the updater weakly, so it never outlives it.
namespace teravolant {
namespace {

using platform::Application;
using platform::UpdaterState;

constexpr std::chrono::seconds kTickInterval(3);

/// Set by the first tick in this process. Atomic: ticks of several updaters run on several threads.
std::atomic<bool> checkStarted = false;

void startCheck(ClientUpdater* updater) {
    Logger::sharedInstance().logMessage("[ClientUpdater::startChecksImmediately] do CheckUpdate");
    if (updater != nullptr) {
        updater->checkForUpdates([](const platform::Error& error) {
            // The error may quote a feed that is not signed.
            constexpr std::size_t kMost = 4000;
            Logger::sharedInstance().logMessage("Error checking for updates: " +
                                                platform::escaped(printedForm(error), kMost));
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
    // Read the state again: the check may have ended since the log line.
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
