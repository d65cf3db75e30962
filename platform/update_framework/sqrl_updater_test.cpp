#include "platform/update_framework/sqrl_updater.h"

#include <gtest/gtest.h>

#include <future>
#include <mutex>

namespace teravolant::platform {
namespace {

class FakeUpdater : public SQRLUpdater {
  public:
    using Cycle = std::function<std::optional<Error>(FakeUpdater&)>;

    explicit FakeUpdater(Cycle cycle) : SQRLUpdater({}), _cycle(std::move(cycle)) {}

    using SQRLUpdater::setState;

    RACSignal<SQRLUpdate> updateFromJSONData(std::string /*body*/) const override {
        return RACSignal<SQRLUpdate>::defer("", [] { return SQRLUpdate(); });
    }
    RACSignal<Bundle> updateBundleMatchingCurrentApplicationInDirectory(
        std::filesystem::path /*folder*/) const override {
        return RACSignal<Bundle>::defer("", [] { return Bundle::mainBundle(); });
    }

  protected:
    std::optional<Error> runCycle() override { return _cycle(*this); }

  private:
    Cycle _cycle;
};

/// The state in which a cycle leaves an updater, once nobody but the test owns it.
UpdaterState stateAfter(const std::shared_ptr<FakeUpdater>& updater) {
    while (updater.use_count() > 1) {
        std::this_thread::yield();
    }
    return updater->state();
}

TEST(Updater, OnlyACycleThatFoundAnUpdateLeavesItAwaitingTheRelaunch) {
    const Error error{.domain = "Test", .code = 1, .localizedDescription = "It failed"};
    struct Case {
        UpdaterState last;
        std::optional<Error> error;
        UpdaterState expected;
    };
    for (const Case& test : {Case{UpdaterState::checking, {}, UpdaterState::idle},
                             {UpdaterState::downloading, {}, UpdaterState::idle},
                             {UpdaterState::awaitingRelaunch, {}, UpdaterState::awaitingRelaunch},
                             {UpdaterState::downloading, error, UpdaterState::idle},
                             {UpdaterState::awaitingRelaunch, error, UpdaterState::idle}}) {
        UpdaterState begunIn = UpdaterState::idle;
        const auto updater = std::make_shared<FakeUpdater>([&](FakeUpdater& self) {
            begunIn = self.state();
            self.setState(test.last);
            return test.error;
        });
        UpdaterState toldIn = UpdaterState::idle;
        updater->checkForUpdates([&](const Error&) { toldIn = updater->state(); });
        EXPECT_EQ(stateAfter(updater), test.expected);
        EXPECT_EQ(begunIn, UpdaterState::checking);
        // The error is told before anybody can see that the cycle is over.
        EXPECT_EQ(toldIn, test.error ? test.last : UpdaterState::idle);
    }
}

TEST(Updater, RunsOneCycleAtATime) {
    std::promise<void> gate;
    std::atomic<int> cycles = 0;
    const auto updater = std::make_shared<FakeUpdater>([&](FakeUpdater&) -> std::optional<Error> {
        ++cycles;
        gate.get_future().wait();
        return std::nullopt;
    });
    std::vector<std::int64_t> codes;
    const auto collect = [&codes](const Error& error) { codes.push_back(error.code); };
    updater->checkForUpdates(collect);
    EXPECT_NE(updater->state(), UpdaterState::idle);
    updater->checkForUpdates(collect);
    gate.set_value();
    EXPECT_EQ(stateAfter(updater), UpdaterState::idle);
    EXPECT_EQ(cycles, 1);
    EXPECT_EQ(codes, std::vector<std::int64_t>{SQRLUpdaterErrorCheckNotPossible});
}

}  // namespace
}  // namespace teravolant::platform
