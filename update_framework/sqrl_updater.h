#pragma once

#include <atomic>
#include <cstdint>
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
#include "update_framework/update_module.h"

namespace teravolant::platform {

/// Where an updater's cycle stands. The numbers are what the log shows.
enum class UpdaterState : unsigned {
    idle = 0,
    checking = 1,
    downloading = 2,
    awaitingRelaunch = 3,
};

/// Runs the update cycle of the running bundle. A subclass says what a feed's answer offers and
/// which of the unpacked bundles is the update.
///
/// Owned by `std::shared_ptr`; a cycle under way is one of the owners.
class SQRLUpdater : public std::enable_shared_from_this<SQRLUpdater> {
  public:
    /// The model class that `updateFromJSONData` answers with.
    using UpdateClass = SQRLUpdate;

    using CycleRunner = std::function<Result<std::optional<StagedUpdate>>(const UpdateCycle&)>;

    explicit SQRLUpdater(URLRequest updateRequest, CycleRunner runner = runUpdateCycleInModule)
        : _updateRequest(std::move(updateRequest)), _runner(std::move(runner)) {}
    virtual ~SQRLUpdater() { _willDealloc.request_stop(); }

    SQRLUpdater(const SQRLUpdater&) = delete;
    SQRLUpdater& operator=(const SQRLUpdater&) = delete;

    /// The request for the feed.
    [[nodiscard]] const URLRequest& updateRequest() const { return _updateRequest; }

    /// May be read from any thread.
    [[nodiscard]] UpdaterState state() const { return _state; }

    /// Told to stop when this updater is destroyed.
    [[nodiscard]] std::stop_token willDeallocSignal() const { return _willDealloc.get_token(); }

    /// Starts one update cycle on a thread of its own and returns at once; the state is no longer
    /// idle then. `failed` is called with the error of a cycle that fails, on that thread and
    /// before the state is idle again; at once when no cycle can be started or one is under way.
    ///
    /// An update that was found is installed when the application terminates, before its delegate
    /// is told. Should that fail, `failed` is called then and the state becomes idle.
    void checkForUpdates(const std::function<void(const Error&)>& failed);

    /// Reads the body of the feed's answer: sends the update that it offers.
    [[nodiscard]] virtual RACSignal<UpdateClass> updateFromJSONData(std::string body) const = 0;

    /// Looks through the folder of an unpacked archive: sends the bundle that is the update.
    [[nodiscard]] virtual RACSignal<Bundle> updateBundleMatchingCurrentApplicationInDirectory(
        std::filesystem::path folder) const = 0;

    /// Runs one cycle on the calling thread and returns the update that it staged, if any. Fails if
    /// another process is updating this bundle or has replaced it. The locks of the cycle are held
    /// until this updater is destroyed.
    Result<std::optional<StagedUpdate>> runCycle();

  private:
    using Failed = std::function<void(const Error&)>;

    void checkAndStage(const Failed& failed);
    [[nodiscard]] UpdateCycle makeCycle();
    void installAtTermination(const StagedUpdate& update, const Failed& failed);

    URLRequest _updateRequest;
    CycleRunner _runner;
    /// Held while a cycle runs or its update waits: on what this user keeps in the cache, and on
    /// the bundle, which another cache may be used for as well.
    std::optional<FileLock> _cacheLock;
    std::optional<FileLock> _bundleLock;
    std::atomic<UpdaterState> _state = UpdaterState::idle;
    std::stop_source _willDealloc;
};

}  // namespace teravolant::platform
