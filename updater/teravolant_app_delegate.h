#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "platform/system/application.h"

namespace teravolant {

class ClientUpdater;
class TeravolantApp;

/// Drives the program inside the application loop: launches the client, then closes the application
/// or starts the update check, and does at termination what is due then.
///
/// Owned by the application object; its callbacks run on the main thread.
class TeravolantAppDelegate : public platform::ApplicationDelegate {
  public:
    using Version = std::optional<std::string>;

    /// Stores the launcher object, which stays the caller's, as `clientApp`.
    static std::unique_ptr<TeravolantAppDelegate> initWith(TeravolantApp* app);

    void applicationDidFinishLaunching(const platform::LaunchNotification& notification) override;
    void applicationWillTerminate() override;

    /// True when there is nothing to record: this is not the installed program, or its version has
    /// run for this user before.
    [[nodiscard]] static bool checkInitParameters(const Version& bundleVersion);

    /// Records the version and has the client told that it was newly installed.
    static void updateInitParameters(const Version& bundleVersion);

    /// Starts the update check; where that fails, the application ends.
    void updateToLatestVersion(const Version& bundleVersion);

    /// The update checker, null until the check starts. Any thread.
    [[nodiscard]] std::shared_ptr<ClientUpdater> updater() const { return _updater; }
    void setUpdater(std::shared_ptr<ClientUpdater> updater) { _updater = std::move(updater); }

    /// The launcher object of this process; null before the first delegate was made.
    [[nodiscard]] static TeravolantApp* clientApp();
    static void setClientApp(TeravolantApp* app);

  private:
    std::atomic<std::shared_ptr<ClientUpdater>> _updater;
};

/// Whether an event opens the application as a login item.
[[nodiscard]] bool opensAsLoginItem(const platform::AppleEvent& event);

}  // namespace teravolant
