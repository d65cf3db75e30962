#include "platform/system/application.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

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
// termination. The handlers are installed with SA_RESETHAND, so that a second signal of the same
// kind has its default action and kills a process whose work does not return.
namespace teravolant::platform {
namespace {

std::atomic<bool> terminationRequested = false;
std::atomic<int> wakeUpDescriptor = -1;

void wakeUp() {
    const std::uint64_t one = 1;
    const int saved = errno;
    [[maybe_unused]] const ssize_t written = write(wakeUpDescriptor, &one, sizeof one);
    errno = saved;
}

void requestTermination(int /*signal*/) {
    terminationRequested = true;
    wakeUp();
}

void ignoreSignal(int /*signal*/) {}

/// Child processes inherit a signal mask and ignored signals, but no handlers.
void handle(int signal, void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART | flags;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

bool isIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

/// Prevents a file that is opened later from becoming standard input, output or error.
void openMissingStandardStreams() {
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
        descriptor = open("/dev/null", O_RDWR);
    }
    if (descriptor >= 0) {
        close(descriptor);
    }
}

void putHelpersFirstOnPath() {
    const std::string helpers = Bundle::mainBundle().helpersPath();
    std::string path;
    const char* current = std::getenv("PATH");
    std::istringstream entries(current == nullptr ? "" : current);
    for (std::string entry; std::getline(entries, entry, ':');) {
        if (!entry.empty() && entry != helpers) {
            path += ":" + entry;
        }
    }
    setenv("PATH", (helpers + (path.empty() ? ":/usr/local/bin:/usr/bin:/bin" : path)).c_str(), 1);
}

/// Sets the actions and the mask of signals, which the parent process may have left ignored or
/// blocked.
void readySignals() {
    handle(SIGCHLD, SIG_DFL, 0);
    // A closed console or a file at its size limit makes the write fail and must not kill the
    // process.
    handle(SIGPIPE, ignoreSignal, 0);
    handle(SIGXFSZ, ignoreSignal, 0);
    sigset_t wanted;
    sigemptyset(&wanted);
    sigaddset(&wanted, SIGCHLD);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaddset(&wanted, signal);
        if (!isIgnored(signal)) {
            handle(signal, requestTermination, SA_RESETHAND);
        }
    }
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
    const bool loginItem = takeLoginMark();
    _notification.isDefaultLaunch = !loginItem;
    _event.eventID = kOpenApplicationEvent;
    if (loginItem) {
        _event.parameters[kPropertyData] = {kTypeDescriptor, kLoginItem};
    }
}

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
