// What the tests run as a program of its own: says its process id, posts an event to a service, and
// says "sent".
//
// Usage: standby_driver HOST END
//
// END: "loop" runs the application's loop; "late-loop" does so once nothing of the request goes on
// but what it has left to the main thread, and says "loop" before; "exit" exits at a SIGTERM;
// "at-once" exits; "senders" exits as well, while other threads still post.

#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <thread>

#include "platform/application.h"
#include "support/amplitude_api.h"

namespace {

using namespace teravolant;

auto threadCount() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

/// With it come the threads that a sanitizer adds to a program of several threads.
void startAndEndAThread() {
    std::filesystem::path task;
    std::thread([&task] { task = "/proc/self/task/" + std::to_string(gettid()); }).join();
    while (std::filesystem::exists(task)) {
        std::this_thread::yield();
    }
}

void say(const std::string& word) { std::cout << word << std::endl; }

int send(const std::string& host, const std::string& end) {
    platform::Application::sharedApplication();
    sigset_t awaited;
    sigemptyset(&awaited);
    sigaddset(&awaited, SIGTERM);
    if (end == "exit") {
        pthread_sigmask(SIG_BLOCK, &awaited, nullptr);
    }
    say(std::to_string(getpid()));

    startAndEndAThread();
    const auto threadsBefore = threadCount();
    AmplitudeApi::sendEvent(nullptr, host);
    auto event = AmplitudeEvent::initWithEventType("sent");
    event.addEventPropertiesWithEventName("a", "é");
    for (int number = 0; number < 3 && end == "senders"; ++number) {
        std::thread([=] {
            while (true) {
                AmplitudeApi::sendEvent(&event, host);
            }
        }).detach();
    }
    AmplitudeApi::sendEvent(&event, host);
    say("sent");
    if (end == "late-loop") {
        while (threadCount() > threadsBefore) {
            std::this_thread::yield();
        }
        say("loop");
    }
    if (end.ends_with("loop")) {
        return platform::applicationMain(0, nullptr);
    }
    int signal = 0;
    return end == "exit" ? sigwait(&awaited, &signal) : 0;
}

}  // namespace

int main(int argc, char** argv) { return argc == 3 ? send(argv[1], argv[2]) : 2; }
