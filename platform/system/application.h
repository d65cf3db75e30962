#pragma once

#include <chrono>
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

/// A parameter of an event: the type of its descriptor, and its type code if that type is "type".
struct AppleEventDescriptor {
    std::uint32_t descriptorType = 0;
    std::uint32_t typeCodeValue = 0;
};

/// The event that the application is handling.
struct AppleEvent {
    std::uint32_t eventID = 0;
    std::map<std::uint32_t, AppleEventDescriptor> parameters;  ///< By keyword.
};

/// The user information of the did-finish-launching notification.
struct LaunchNotification {
    /// `NSApplicationLaunchIsDefaultLaunchKey`: whether the user started the application.
    std::optional<bool> isDefaultLaunch;
};

/// Receives the application object's calls, on the main thread.
class ApplicationDelegate {
  public:
    virtual ~ApplicationDelegate() = default;

    /// Called once, when the loop begins, unless termination was requested before.
    virtual void applicationDidFinishLaunching(const LaunchNotification& notification) = 0;

    /// Called once per process, at termination. The process ends when it returns.
    virtual void applicationWillTerminate() = 0;
};

/// The process's one application object: delegate, main queue and main loop.
///
/// The first call of `sharedApplication` creates it. Make that call at the program's start, on the
/// main thread and before any other thread starts. The creation prepares the process:
/// - SIGTERM, SIGINT and SIGHUP request termination, which the loop carries out. Another signal of
///   the same kind has no effect within two seconds of the first, because service managers and
///   closing terminals send pairs; a later one kills the process. A signal that the process
///   inherits ignored, as with `nohup`, stays ignored. Child processes start with the default
///   actions.
/// - SIGPIPE and SIGXFSZ do not kill the process: the write fails instead.
/// - SIGCHLD has its default action, so that child processes can be waited for.
/// - The main bundle's Helpers folder comes first on `PATH`. Relative and empty entries, which
///   depend on the working directory, are removed. If no other entry remains, the system's default
///   ones follow.
/// - The superuser's umask is 022: no other user can write to what the process creates.
/// - `DESKTOP_AUTOSTART_ID`, with which a session manager marks a start at login, is read and
///   removed from the environment, so that child processes do not inherit the mark.
class Application {
  public:
    static Application& sharedApplication();

    /// Takes ownership of the delegate. Null removes the current one.
    void setDelegate(std::unique_ptr<ApplicationDelegate> delegate) {
        _delegate = std::move(delegate);
    }

    /// Whether a signal has requested termination. May be called from any thread.
    [[nodiscard]] static bool terminationIsRequested();

    /// Replaces the clock that tells a pair of signals from a later signal. For tests.
    using MonotonicClock = std::chrono::steady_clock::time_point (*)();
    static void setSignalClock(MonotonicClock clock);

    /// Returns the open-application event of this start, marked if it is a start at login.
    [[nodiscard]] const AppleEvent& currentAppleEvent() const { return _event; }

    /// Queues work for the loop, which runs it on the main thread in the order of the calls. May be
    /// called from any thread.
    void dispatchAsyncOnMainQueue(std::function<void()> work);

    /// Registers work to run at termination, before the delegate's `applicationWillTerminate`, on
    /// the main thread and in the order of the calls. Returns false if termination has begun. May
    /// be called from any thread.
    [[nodiscard]] bool atTermination(std::function<void()> work);

    /// Sets work to run as the last step of termination, after the delegate's
    /// `applicationWillTerminate`. Main thread only.
    static void setLastWork(void (*work)());

    /// Blocks termination signals until the shared application is created. Those that arrive in
    /// between are handled then. Main thread only.
    static void deferSignals();

    /// Sets an action that the handler of every termination signal runs first. It may only call
    /// functions that are safe in a signal handler. Main thread only.
    static void setSignalAction(void (*action)());

    /// Calls the delegate's `applicationDidFinishLaunching` and then runs the work of the main
    /// queue until a termination request ends the process. Main thread only.
    [[noreturn]] void run();

    /// Runs the work registered with `atTermination`, calls the delegate's
    /// `applicationWillTerminate`, runs the last work and ends the process with status 0. Runs no
    /// destructors of static objects and no exit handlers, because other threads may still be
    /// running. Main thread only.
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

/// Runs the shared application object's loop. Never returns.
int applicationMain(int argc, const char* const* argv);

}  // namespace teravolant::platform
