#pragma once

#include <atomic>

namespace teravolant::platform {

/// Where an updater's cycle stands. The numbers are what the log shows.
enum class UpdaterState : unsigned {
    idle = 0,
    checking = 1,
    downloading = 2,
    awaitingRelaunch = 3,
};

/// Runs the update cycle of the running bundle.
class SQRLUpdater {
  public:
    virtual ~SQRLUpdater() = default;

    /// May be read from any thread.
    [[nodiscard]] UpdaterState state() const { return _state; }

  protected:
    void setState(UpdaterState state) { _state = state; }

  private:
    std::atomic<UpdaterState> _state = UpdaterState::idle;
};

}  // namespace teravolant::platform
