#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "platform/system/application.h"

namespace teravolant {

class ClientUpdater;
class TeravolantApp;

/// Drives the program inside the application loop: launches the client, then terminates the
/// application or starts the update check. At termination, tells a running client about a waiting
/// update and stores the autorun agent.
///
/// Owned by the application object; its callbacks run on the main thread.
class TeravolantAppDelegate : public platform::ApplicationDelegate {
  public:
    using Version = std::optional<std::string>;

    /// Stores the launcher object as `clientApp`; the caller keeps its ownership.
    static std::unique_ptr<TeravolantAppDelegate> initWith(TeravolantApp* app);

    void applicationDidFinishLaunching(const platform::LaunchNotification& notification) override;
    void applicationWillTerminate() override;

    /// Returns true if there is nothing to record: this is not the installed program, or this user
    /// has already run its version.
    [[nodiscard]] static bool checkInitParameters(const Version& bundleVersion);

    /// Records the version and marks the start as the first run of a newly installed version.
    static void updateInitParameters(const Version& bundleVersion);

    /// Starts the update check. If that fails, terminates the application.
    void updateToLatestVersion(const Version& bundleVersion);

    /// The update checker, or null before the check starts. May be called from any thread.
    [[nodiscard]] std::shared_ptr<ClientUpdater> updater() const { return _updater; }
    void setUpdater(std::shared_ptr<ClientUpdater> updater) { _updater = std::move(updater); }

    /// The launcher object of this process, or null before the first delegate is made.
    [[nodiscard]] static TeravolantApp* clientApp();
    static void setClientApp(TeravolantApp* app);

  private:
    std::atomic<std::shared_ptr<ClientUpdater>> _updater;
};

}  // namespace teravolant
