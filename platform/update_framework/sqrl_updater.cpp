#include "platform/update_framework/sqrl_updater.h"

#include <system_error>
#include <thread>

namespace teravolant::platform {
namespace {

Error checkNotPossible(std::string description) {
    return Error{.domain = SQRLUpdaterErrorDomain,
                 .code = SQRLUpdaterErrorCheckNotPossible,
                 .localizedDescription = std::move(description)};
}

}  // namespace

void SQRLUpdater::checkForUpdates(const std::function<void(const Error&)>& failed) {
    UpdaterState expected = UpdaterState::idle;
    if (!_state.compare_exchange_strong(expected, UpdaterState::checking)) {
        failed(checkNotPossible("An update check is under way or has found an update already."));
        return;
    }
    try {
        std::thread([self = shared_from_this(), failed] {
            self->finishCycle(self->runCycle(), failed);
        }).detach();
    } catch (const std::system_error& exception) {
        finishCycle(checkNotPossible(std::string("The update check could not be started: ") +
                                     exception.what()),
                    failed);
    }
}

void SQRLUpdater::finishCycle(const std::optional<Error>& error,
                              const std::function<void(const Error&)>& failed) {
    // Whoever sees the idle state may end the process: the error must have been told by then.
    if (error) {
        failed(*error);
    }
    if (error || _state != UpdaterState::awaitingRelaunch) {
        _state = UpdaterState::idle;
    }
}

std::optional<Error> SQRLUpdater::runCycle() {
    return checkNotPossible("This build can not fetch updates.");
}

}  // namespace teravolant::platform
