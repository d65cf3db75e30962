#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/system/scheduler.h"
#include "update_framework/sqrl_updater.h"

namespace teravolant {

/// The numbers of a version as their digits stand in it, leading zeros included.
struct ParsedVersion {
    std::string major;
    std::string minor;
    std::string patch;
    std::string build;

    friend bool operator==(const ParsedVersion&, const ParsedVersion&) = default;
};

/// The updater of this product: schedules the one check of a start, reads the feed's answer,
/// compares versions and picks the downloaded bundle. Owned by the application delegate.
class ClientUpdater : public platform::SQRLUpdater {
  public:
    using ErrorSlot = platform::Status;

    using SQRLUpdater::SQRLUpdater;

    /// Starts the check after 3 seconds, once per process, and from then on looks every 3 seconds
    /// whether it is over; when it is, the application is asked to terminate, on the main thread.
    ///
    /// Goes on until this updater is destroyed or the handle, which may be dropped, is disposed of.
    /// Throws `std::system_error` when there can be no thread for it.
    platform::RACDisposable startChecksImmediately(
        std::shared_ptr<platform::Clock> clock = platform::systemClock());

    [[nodiscard]] platform::RACSignal<UpdateClass> updateFromJSONData(
        std::string body) const override;
    [[nodiscard]] platform::RACSignal<platform::Bundle>
    updateBundleMatchingCurrentApplicationInDirectory(std::filesystem::path folder) const override;

    /// Reads the version at the end of the text: three runs of digits with single full stops
    /// between them, one or more characters that are no digits, and a run of digits that ends the
    /// text. What stands in front is ignored. The slot must be empty; with no answer it holds the
    /// error.
    [[nodiscard]] static std::optional<ParsedVersion> parseVersion(const std::string& version,
                                                                   ErrorSlot& error);

    /// Whether the version `updateTo` is strictly newer than the current one. The slot must be
    /// empty; with false it holds the reason.
    [[nodiscard]] static bool checkUpdaterVersionNewer(const std::string& current,
                                                       const std::string& updateTo,
                                                       ErrorSlot& error);

    /// The printed form.
    [[nodiscard]] static std::string description() { return "<ClientUpdater>"; }
};

}  // namespace teravolant
