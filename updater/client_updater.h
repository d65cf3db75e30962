#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/system/scheduler.h"
#include "update_framework/sqrl_updater.h"
#include "updater/version_numbers.h"

namespace teravolant {

/// The updater of this product: schedules the update check of a start, reads the feed response,
/// compares versions and picks the downloaded bundle. Owned by the application delegate. A running
/// schedule holds it weakly.
class ClientUpdater : public platform::SQRLUpdater {
  public:
    using ErrorSlot = platform::Status;

    using SQRLUpdater::SQRLUpdater;

    /// Starts the check after 3 seconds, once per process. Then polls its state every 3 seconds and
    /// terminates the application, on the main thread, when the check is over.
    ///
    /// The schedule ends when this updater is destroyed or `dispose` is called on the handle;
    /// dropping the handle does not end it. Throws `std::system_error` if no thread can be started.
    platform::RACDisposable startChecksImmediately(
        std::shared_ptr<platform::Clock> clock = platform::systemClock());

    [[nodiscard]] platform::RACSignal<UpdateClass> updateFromJSONData(
        std::string body) const override;
    [[nodiscard]] platform::RACSignal<platform::Bundle>
    updateBundleMatchingCurrentApplicationInDirectory(std::filesystem::path folder) const override;

    /// Reads the version at the end of the text: three runs of digits separated by single full
    /// stops, one or more characters other than digits, and a final run of digits. Ignores the text
    /// before them. `error` must be empty; on failure it holds the error.
    [[nodiscard]] static std::optional<ParsedVersion> parseVersion(const std::string& version,
                                                                   ErrorSlot& error);

    /// Whether `updateTo` is strictly newer than `current`; if so, logs both versions. `error` must
    /// be empty; if the result is false, it holds the reason.
    [[nodiscard]] static bool checkUpdaterVersionNewer(const std::string& current,
                                                       const std::string& updateTo,
                                                       ErrorSlot& error);

    /// The printed form of the object, for names of signals.
    [[nodiscard]] static std::string description() { return "<ClientUpdater>"; }
};

}  // namespace teravolant
