#include "updater/teravolant_app_delegate.h"

#include <gtest/gtest.h>

#include "launcher/teravolant_app.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

using platform::AppleEvent;

TEST(AppDelegate, TakesOnlyAWholeLoginMarkForALoginItem) {
    const auto event = [](std::uint32_t id, std::uint32_t keyword, std::uint32_t type,
                          std::uint32_t code) {
        return AppleEvent{.eventID = id, .parameters = {{keyword, {type, code}}}};
    };
    constexpr std::uint32_t oapp = 0x6F617070;
    constexpr std::uint32_t prdt = 0x70726474;
    constexpr std::uint32_t type = 0x74797065;
    constexpr std::uint32_t lgit = 0x6C676974;
    EXPECT_TRUE(opensAsLoginItem(event(oapp, prdt, type, lgit)));
    EXPECT_FALSE(opensAsLoginItem(event(0, prdt, type, lgit)));
    EXPECT_FALSE(opensAsLoginItem(event(oapp, type, type, lgit)));
    EXPECT_FALSE(opensAsLoginItem(event(oapp, prdt, prdt, lgit)));
    EXPECT_FALSE(opensAsLoginItem(event(oapp, prdt, type, 0)));
    EXPECT_FALSE(opensAsLoginItem({.eventID = oapp, .parameters = {}}));
}

class UpdaterInState : public ClientUpdater {
  public:
    explicit UpdaterInState(platform::UpdaterState state) : ClientUpdater(platform::URLRequest{}) {
        setState(state);
    }
};

TEST(AppDelegate, SendsTheClientTheRestartCommandOnlyWhenAnUpdateWaits) {
    TeravolantApp app;
    const auto delegate = TeravolantAppDelegate::initWith(&app);
    using platform::UpdaterState;
    for (const UpdaterState state : {UpdaterState::idle, UpdaterState::checking,
                                     UpdaterState::downloading, UpdaterState::awaitingRelaunch}) {
        delegate->setUpdater(std::make_shared<UpdaterInState>(state));
        ::testing::internal::CaptureStderr();
        delegate->applicationWillTerminate();
        const std::string console = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(console.find("] sendTeravolantCommand\n") != console.npos,
                  state == UpdaterState::awaitingRelaunch)
            << console;
    }
}

}  // namespace
}  // namespace teravolant
