// What the tests run as a program of its own. Says its process id and sends an event to a service.
//
// Usage: standby_driver HOST END
//
// END: "loop" runs the application's loop, "exit" exits at a SIGTERM, "at-once" exits; "nothing"
// sends no event.

#include <csignal>
#include <iostream>

#include <unistd.h>

#include "platform/application.h"
#include "support/amplitude_api.h"

namespace {

using namespace teravolant;

int send(const std::string& host, const std::string& end) {
    platform::Application::sharedApplication();
    sigset_t awaited;
    sigemptyset(&awaited);
    sigaddset(&awaited, SIGTERM);
    if (end == "exit") {
        pthread_sigmask(SIG_BLOCK, &awaited, nullptr);
    }
    std::cout << getpid() << std::endl;

    auto event = AmplitudeEvent::initWithEventType("sent");
    event.addEventPropertiesWithEventName("a", "é");
    AmplitudeApi::sendEvent(end == "nothing" ? nullptr : &event, host);
    if (end == "loop") {
        return platform::applicationMain(0, nullptr);
    }
    int signal = 0;
    return end == "exit" ? sigwait(&awaited, &signal) : 0;
}

}  // namespace

int main(int argc, char** argv) { return argc == 3 ? send(argv[1], argv[2]) : 2; }
