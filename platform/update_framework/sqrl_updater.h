#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "platform/bundle.h"
#include "platform/error.h"
#include "platform/files.h"
#include "platform/signal.h"
#include "platform/update_framework/sqrl_update.h"
#include "platform/update_framework/update_cycle.h"
#include "platform/update_framework/updater_error.h"
#include "platform/url.h"

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

    explicit SQRLUpdater(URLRequest updateRequest) : _updateRequest(std::move(updateRequest)) {}
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

  protected:
    void setState(UpdaterState state) { _state = state; }

    /// Runs the cycle, begun in state `checking`: in the bundle's update module.
    [[nodiscard]] virtual Result<std::optional<StagedUpdate>> runCycle(const UpdateCycle& cycle);

    /// Runs one cycle on the calling thread, unless another start is at it or has replaced the
    /// bundle. Others are kept out until this updater is destroyed.
    Result<std::optional<StagedUpdate>> runLocked();

  private:
    using Failed = std::function<void(const Error&)>;

    void checkAndStage(const Failed& failed);
    [[nodiscard]] Result<std::optional<StagedUpdate>> runToItsEnd();
    [[nodiscard]] UpdateCycle makeCycle();
    void installAtTermination(const StagedUpdate& update, const Failed& failed);

    URLRequest _updateRequest;
    /// Held while a cycle runs or its update waits: on what this user keeps in the cache, and on
    /// the bundle, which another cache may be used for as well.
    std::optional<FileLock> _cacheLock;
    std::optional<FileLock> _bundleLock;
    std::atomic<UpdaterState> _state = UpdaterState::idle;
    std::stop_source _willDealloc;
};

}  // namespace teravolant::platform
