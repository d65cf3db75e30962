#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>

#include "platform/core/result.h"
#include "platform/core/url.h"
#include "platform/files/file_lock.h"
#include "platform/system/bundle.h"
#include "platform/system/deferred_signal.h"
#include "update_framework/sqrl_update.h"
#include "update_framework/staging.h"
#include "update_framework/update_cycle.h"

namespace teravolant::platform {

/// The state of an updater. The log shows its number.
enum class UpdaterState : unsigned {
    idle = 0,
    checking = 1,
    downloading = 2,
    awaitingRelaunch = 3,
};

/// Runs the update cycle of the running bundle. A subclass reads the feed document and selects the
/// update among the unpacked bundles.
///
/// Must be owned by a `std::shared_ptr`; a running cycle is one of the owners.
class SQRLUpdater : public std::enable_shared_from_this<SQRLUpdater> {
  public:
    /// The model class that `updateFromJSONData` sends.
    using UpdateClass = SQRLUpdate;

    /// The clock times the pauses between two attempts of a request.
    explicit SQRLUpdater(URLRequest updateRequest, std::shared_ptr<Clock> clock = systemClock())
        : _updateRequest(std::move(updateRequest)), _clock(std::move(clock)) {}
    virtual ~SQRLUpdater() { _willDealloc.request_stop(); }

    SQRLUpdater(const SQRLUpdater&) = delete;
    SQRLUpdater& operator=(const SQRLUpdater&) = delete;

    [[nodiscard]] const URLRequest& updateRequest() const { return _updateRequest; }

    /// For a feed that the user has set: permits offers of the channel that is not the running
    /// bundle's. Called before a check is started.
    void acceptBothChannels() { _acceptsBothChannels = true; }

    /// May be called from any thread.
    [[nodiscard]] UpdaterState state() const { return _state; }

    /// A stop is requested when this updater is destroyed.
    [[nodiscard]] std::stop_token willDeallocSignal() const { return _willDealloc.get_token(); }

    /// Starts one update cycle on a new thread and returns; the state is then no longer idle. If
    /// the cycle fails, calls `failed` on that thread, before the state becomes idle. If no cycle
    /// can be started or a cycle is running, calls `failed` before it returns.
    ///
    /// A staged update is installed when the application terminates, on the main thread, before the
    /// delegate is told. If the installation fails, `failed` is called there and the state becomes
    /// idle.
    void checkForUpdates(const std::function<void(const Error&)>& failed);

    /// Sends the update that the feed document `body` offers.
    [[nodiscard]] virtual RACSignal<UpdateClass> updateFromJSONData(std::string body) const = 0;

    /// Sends the bundle in the folder of an unpacked archive that is the update.
    [[nodiscard]] virtual RACSignal<Bundle> updateBundleMatchingCurrentApplicationInDirectory(
        std::filesystem::path folder) const = 0;

    /// Runs one cycle on the calling thread and returns the staged update, or nothing if none is
    /// offered. Fails if this user can't replace the bundle, and if another process is updating it
    /// or has replaced it. Holds the locks of the cycle until this updater is destroyed.
    virtual Result<std::optional<StagedUpdate>> runCycle();

    /// Installs the staged update at once, as at termination, on the calling thread. Call it after
    /// `runCycle`, which acquired the locks. Returns why the old bundle is still in place.
    [[nodiscard]] Status install(const StagedUpdate& update);

  protected:
    /// Returns the input of a cycle, whose operations use this updater.
    [[nodiscard]] virtual UpdateCycle makeCycle();

  private:
    using Failed = std::function<void(const Error&)>;

    void checkAndStage(const Failed& failed);
    void installAtTermination(const StagedUpdate& update, const Failed& failed);

    /// Fails if another process has one of the locks, or has replaced the bundle.
    Status acquireLocks();
    void releaseLocks();
    Status pauseUntil(Clock::Time time);

    URLRequest _updateRequest;
    std::shared_ptr<Clock> _clock;
    bool _acceptsBothChannels = false;
    /// Held during a cycle, except while it pauses, and until its update is installed. Both are
    /// needed: another bundle may use the same cache folder, and a process with another cache
    /// folder may update the same bundle.
    std::optional<FileLock> _cacheLock;
    std::optional<FileLock> _bundleLock;
    std::atomic<UpdaterState> _state = UpdaterState::idle;
    std::stop_source _willDealloc;
};

}  // namespace teravolant::platform
