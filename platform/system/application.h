#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/core/file_descriptor.h"

namespace teravolant::platform {

/// Four-character codes, the first character in the highest byte.
inline constexpr std::uint32_t kOpenApplicationEvent = 0x6F617070;  ///< oapp, an event's id
inline constexpr std::uint32_t kPropertyData = 0x70726474;          ///< prdt, a keyword
inline constexpr std::uint32_t kTypeDescriptor = 0x74797065;        ///< type, a descriptor's type
inline constexpr std::uint32_t kLoginItem = 0x6C676974;             ///< lgit, a type code

/// A parameter of an event: a descriptor of some type, and what it says if that type is "type".
struct AppleEventDescriptor {
    std::uint32_t descriptorType = 0;
    std::uint32_t typeCodeValue = 0;
};

/// The event that the application is handling.
struct AppleEvent {
    std::uint32_t eventID = 0;
    std::map<std::uint32_t, AppleEventDescriptor> parameters;  ///< By keyword.
};

/// What the did-finish-launching notification tells.
struct LaunchNotification {
    /// `NSApplicationLaunchIsDefaultLaunchKey`: whether a person started the application.
    std::optional<bool> isDefaultLaunch;
};

/// What the application object calls, on the main thread.
class ApplicationDelegate {
  public:
    virtual ~ApplicationDelegate() = default;

    /// Once, when the loop begins.
    virtual void applicationDidFinishLaunching(const LaunchNotification& notification) = 0;

    /// Once, for every termination of the application; the process ends when it returns.
    virtual void applicationWillTerminate() = 0;
};

/// The process's one application object: delegate, main queue and main loop.
///
/// Its creation, on the first call of `sharedApplication`, belongs at the program's start, on the
/// main thread, while that is the only one. It readies the process:
/// - SIGTERM, SIGINT and SIGHUP become requests to terminate, which the loop carries out; the same
///   signal a second time ends the process at once. One that comes in ignored, as `nohup` does it,
///   stays so. Programs started from here have the default again.
/// - A write that fails with a signal, for want of a reader or for the file's size, just fails.
/// - Programs started from here can be waited for, whatever the caller did with SIGCHLD.
/// - The main bundle's Helpers folder comes first on `PATH`, which has no empty entries, that would
///   stand for the working directory, and is a default one where nothing else is left.
/// - `DESKTOP_AUTOSTART_ID`, by which a session manager marks a start at login, is read and taken
///   out of the environment, so that a program started from here is not taken for one.
class Application {
  public:
    static Application& sharedApplication();

    /// Owns the delegate from now on; null for none.
    void setDelegate(std::unique_ptr<ApplicationDelegate> delegate) {
        _delegate = std::move(delegate);
    }

    /// The open-application event of this start, with the login-item mark if it was one.
    [[nodiscard]] const AppleEvent& currentAppleEvent() const { return _event; }

    /// Has the work done on the main thread, by the loop, in the order of the calls. Any thread.
    void dispatchAsyncOnMainQueue(std::function<void()> work);

    /// Has the work done when a termination begins, before the delegate is told, on the main thread
    /// and in the order of the calls. False when it is too late for that. Any thread.
    [[nodiscard]] bool atTermination(std::function<void()> work);

    /// Tells the delegate that the launch has finished and then carries out what comes to the main
    /// queue, until a termination ends the process. Main thread only.
    [[noreturn]] void run();

    /// Does what is due at termination, runs the delegate's `applicationWillTerminate` and ends the
    /// process with status 0, without running destructors or exit handlers: other threads may still
    /// be at work. Main thread only.
    [[noreturn]] void terminate();

  private:
    Application();

    void waitForWork();
    using Works = std::vector<std::function<void()>>;
    Works take(Works& works);

    std::unique_ptr<ApplicationDelegate> _delegate;
    LaunchNotification _notification;
    AppleEvent _event;
    FileDescriptor _wakeUp;
    std::mutex _queueMutex;
    Works _queue;
    Works _atTermination;
    bool _terminating = false;
};

/// Runs the shared application object's loop. Does not return; the process ends inside.
int applicationMain(int argc, const char* const* argv);

}  // namespace teravolant::platform
