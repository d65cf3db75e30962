#include "updater/teravolant_app_delegate.h"

#include <gtest/gtest.h>

#include "launcher/teravolant_app.h"
#include "updater/client_updater.h"

namespace teravolant {
namespace {

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
