#include "platform/system/application.h"
#include "platform/core/file_descriptor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "platform/system/bundle.h"

// How it works: the main thread waits in `poll` for one eventfd. Two sources write to it. Any
// thread appends work to the queue under the mutex and writes. The handler of a termination signal
// sets an atomic flag and writes, and both are safe in a signal handler. The loop then resets the
// eventfd, takes the whole queue under the mutex and runs it without the mutex, so that work can
// queue more work. It checks the flag after each round: the work of the round runs first, then the
// termination. The handler notes the time of the first signal of each kind. On a later signal it
// restores the default action and raises the signal again, which kills a process whose work does
// not return.
namespace teravolant::platform {
namespace {

constexpr std::array kTerminationSignals = {SIGTERM, SIGINT, SIGHUP};

std::atomic<bool> terminationRequested = false;
std::atomic<int> wakeUpDescriptor = -1;
std::atomic<void (*)()> signalAction = nullptr;
void (*lastWork)() = nullptr;
std::atomic<Application::MonotonicClock> signalClock = std::chrono::steady_clock::now;
/// The time of the first signal by its number, in the clock's units; 0 before it.
std::array<std::atomic<std::int64_t>, SIGTERM + 1> firstSignals{};

void wakeUp() {
    const std::uint64_t one = 1;
    const int saved = errno;
    [[maybe_unused]] const ssize_t written = write(wakeUpDescriptor, &one, sizeof one);
    errno = saved;
}

void ignoreSignal(int /*signal*/) {}

/// Child processes inherit a signal mask and ignored signals, but no handlers.
void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

/// Whether an earlier signal of the same kind requested termination more than two seconds ago.
bool isRepeated(int signal) {
    constexpr std::chrono::steady_clock::duration kPair = std::chrono::seconds(2);
    const std::int64_t now = signalClock.load()().time_since_epoch().count();
    std::int64_t first = 0;
    return !firstSignals[static_cast<std::size_t>(signal)].compare_exchange_strong(first, now) &&
           now - first > kPair.count();
}

void requestTermination(int signal) {
    if (void (*const action)() = signalAction) {
        action();
    }
    if (isRepeated(signal)) {
        handle(signal, SIG_DFL);
        (void)std::raise(signal);  // Takes effect when the handler returns.
        return;
    }
    terminationRequested = true;
    wakeUp();
}

bool isIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void putHelpersFirstOnPath() {
    const std::string helpers = Bundle::mainBundle().helpersPath();
    std::string path;
    const char* current = std::getenv("PATH");
    std::istringstream entries(current == nullptr ? "" : current);
    for (std::string entry; std::getline(entries, entry, ':');) {
        if (entry.starts_with('/') && entry != helpers) {
            path += ":" + entry;
        }
    }
    setenv("PATH", (helpers + (path.empty() ? ":/usr/local/bin:/usr/bin:/bin" : path)).c_str(), 1);
}

sigset_t terminationSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : kTerminationSignals) {
        sigaddset(&signals, signal);
    }
    return signals;
}

/// Sets the actions and the mask of signals, which the parent process may have left ignored or
/// blocked.
void readySignals() {
    handle(SIGCHLD, SIG_DFL);
    // A closed console or a file at its size limit makes the write fail and must not kill the
    // process.
    handle(SIGPIPE, ignoreSignal);
    handle(SIGXFSZ, ignoreSignal);
    for (const int signal : kTerminationSignals) {
        if (!isIgnored(signal)) {
            handle(signal, requestTermination);
        }
    }
    sigset_t wanted = terminationSignals();
    sigaddset(&wanted, SIGCHLD);
    pthread_sigmask(SIG_UNBLOCK, &wanted, nullptr);
}

bool takeLoginMark() {
    constexpr const char* kMark = "DESKTOP_AUTOSTART_ID";
    const bool marked = std::getenv(kMark) != nullptr;
    unsetenv(kMark);
    return marked;
}

}  // namespace

Application& Application::sharedApplication() {
    static Application& application = *new Application();
    return application;
}

Application::Application() {
    openMissingStandardStreams();
    _wakeUp = FileDescriptor(eventfd(0, EFD_CLOEXEC));
    wakeUpDescriptor = _wakeUp.get();
    readySignals();
    putHelpersFirstOnPath();
    if (geteuid() == 0) {
        umask(S_IWGRP | S_IWOTH);
    }
    const bool loginItem = takeLoginMark();
    _notification.isDefaultLaunch = !loginItem;
    _event.eventID = kOpenApplicationEvent;
    if (loginItem) {
        _event.parameters[kPropertyData] = {kTypeDescriptor, kLoginItem};
    }
}

bool Application::terminationIsRequested() { return terminationRequested; }

void Application::setLastWork(void (*work)()) { lastWork = work; }

void Application::deferSignals() {
    const sigset_t signals = terminationSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void Application::setSignalAction(void (*action)()) { signalAction = action; }

void Application::setSignalClock(MonotonicClock clock) { signalClock = clock; }

void Application::dispatchAsyncOnMainQueue(std::function<void()> work) {
    {
        const std::lock_guard lock(_queueMutex);
        _queue.push_back(std::move(work));
    }
    wakeUp();
}

bool Application::atTermination(std::function<void()> work) {
    const std::lock_guard lock(_queueMutex);
    if (!_terminating) {
        _atTermination.push_back(std::move(work));
    }
    return !_terminating;
}

void Application::run() {
    // Termination was requested before launch: do not start the client.
    if (!terminationRequested && _delegate) {
        _delegate->applicationDidFinishLaunching(_notification);
    }
    while (!terminationRequested) {
        waitForWork();
        for (const auto& work : take(_queue)) {
            work();
        }
    }
    terminate();
}

void Application::terminate() {
    {
        const std::lock_guard lock(_queueMutex);
        _terminating = true;
    }
    for (const auto& work : take(_atTermination)) {
        work();
    }
    if (_delegate) {
        _delegate->applicationWillTerminate();
    }
    if (lastWork != nullptr) {
        lastWork();
    }
    std::fflush(nullptr);
    std::_Exit(EXIT_SUCCESS);
}

void Application::waitForWork() {
    // The thread sanitizer delays a signal that arrives shortly before a blocking read, but not one
    // before poll.
    pollfd wakeUp{.fd = _wakeUp.get(), .events = POLLIN, .revents = 0};
    poll(&wakeUp, 1, -1);
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t size = read(_wakeUp.get(), &count, sizeof count);
}

Application::Works Application::take(Works& works) {
    const std::lock_guard lock(_queueMutex);
    return std::exchange(works, {});
}

int applicationMain(int /*argc*/, const char* const* /*argv*/) {
    Application::sharedApplication().run();
}

}  // namespace teravolant::platform
