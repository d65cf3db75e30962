// Test program: prints its process id, posts an event to the service at HOST and runs the
// application loop. With THREADS, ends at once while that many threads still post events.
//
// Usage: standby_driver HOST [THREADS]

#include <unistd.h>

#include <iostream>
#include <thread>

#include "platform/system/application.h"
#include "support/standby/amplitude_api.h"

int main(int argc, char** argv) {
    using namespace teravolant;
    platform::Application::sharedApplication();
    std::cout << getpid() << std::endl;

    const std::string host = argv[1];
    AmplitudeApi::sendEvent(nullptr, host);
    auto event = AmplitudeEvent::initWithEventType("sent");
    event.addEventPropertiesWithEventName("a", "é");
    for (int threads = argc > 2 ? std::stoi(argv[2]) : 0; threads > 0; --threads) {
        std::thread([=] {
            while (true) {
                AmplitudeApi::sendEvent(&event, host);
            }
        }).detach();
    }
    AmplitudeApi::sendEvent(&event, host);
    return argc > 2 ? 0 : platform::applicationMain(0, nullptr);
}
