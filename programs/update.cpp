// update [--quiet]: runs one update cycle at once for the bundle that contains this program, and
// installs the update. Takes an update that a roll-out does not yet give to this installation.
//
// Prints its steps to standard output, and the reason why no update was taken to standard error. On
// a terminal, it also shows the progress of the download in one line, which it rewrites. Writes the
// same log messages as the launcher. Signals have their default actions, because the next cycle
// continues after a kill; they are blocked while the update is installed.
//
// Exit status: see kUsage.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/text.h"
#include "platform/core/version.h"
#include "platform/files/private_directory.h"
#include "platform/system/console_log.h"
#include "platform/system/executable_path.h"
#include "platform/system/process.h"
#include "platform/system/terminal.h"
#include "platform/values/printed_form.h"
#include "programs/superuser.h"
#include "support/logger.h"
#include "update_framework/bundle_staging.h"
#include "update_framework/updater_error.h"
#include "updater/client_updater.h"
#include "updater/feed_location.h"
#include "updater/feed_response.h"

namespace teravolant {
namespace {

using platform::Bundle;
using platform::escaped;
using platform::quoted;

constexpr std::string_view kUsage =
    R"(usage: update [--quiet]

Looks for an update of the bundle that contains this program, now, and installs it.
The next start of the launcher runs the new version. A roll-out in stages and the
setting AUTO_UPDATE are for automatic updates: this command takes what is offered.
--quiet prints errors only.

Exit status:
  0  updated
  1  failed
  2  usage error
  3  refused: what is offered is newer, but can't be trusted or can't run here
  4  up to date, or nothing is offered
)";

enum ExitStatus : int { kUpdated = 0, kFailed = 1, kUsageError = 2, kRefused = 3, kUpToDate = 4 };

/// Writes messages to the standard streams, and the progress to a terminal.
class Display {
  public:
    explicit Display(bool quiet) : _isQuiet(quiet) {}

    void show(const std::string& text) {
        if (!_isQuiet) {
            clearProgress();
            write(STDOUT_FILENO, text + "\n");
            _last = text;
        }
    }

    void showError(const std::string& text) {
        clearProgress();
        write(STDERR_FILENO, "update: " + text + "\n");
    }

    /// The same with a reason, unless the last line shown ends with that reason.
    void showError(const std::string& what, const std::string& reason) {
        showError(_last.ends_with(reason) ? what + "." : what + ": " + reason);
    }

    void showProgress(std::uint64_t done, std::uint64_t size) {
        constexpr std::chrono::milliseconds kInterval(100);
        const auto now = std::chrono::steady_clock::now();
        const auto columns = _isQuiet ? std::nullopt : platform::columnsOfOutput();
        if (!columns || (done < size && now < _nextProgress)) {
            return;
        }
        _nextProgress = now + kInterval;
        std::string line = inMebibytes(done) + " of " + inMebibytes(size) + " MiB, " +
                           std::to_string(size == 0 ? 100 : done * 100 / size) + " %";
        // A line as wide as the terminal would wrap.
        line.resize(std::min<std::size_t>(line.size(), *columns - 1));
        const std::size_t shown = line.size();
        line.append(_progressWidth > shown ? _progressWidth - shown : 0, ' ');
        _progressWidth = shown;
        write(STDOUT_FILENO, "\r" + line);
    }

  private:
    static std::string inMebibytes(std::uint64_t bytes) {
        const std::uint64_t tenths = bytes / (1024 * 1024 / 10);
        return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10);
    }

    /// Ignores failures: they must not stop the update.
    static void write(int descriptor, const std::string& text) {
        (void)platform::writeAll(descriptor, text);
    }

    void clearProgress() {
        if (_progressWidth > 0) {
            write(STDOUT_FILENO, "\r" + std::string(_progressWidth, ' ') + "\r");
            _progressWidth = 0;
        }
    }

    bool _isQuiet;
    std::string _last;
    std::size_t _progressWidth = 0;
    std::chrono::steady_clock::time_point _nextProgress;
};

/// Runs the cycle, and shows its messages.
class Updater : public ClientUpdater {
  public:
    Updater(const platform::URLRequest& request, Display& display)
        : ClientUpdater(request), _display(display) {}

    /// Whether the feed names a version that is not newer than the running one.
    [[nodiscard]] bool isUpToDate() const {
        const auto running = Bundle::mainBundle().shortVersion();
        return _offered && running &&
               (platform::isHigherVersion(*running, *_offered) ||
                platform::isSameVersion(*running, *_offered));
    }

  private:
    platform::UpdateCycle makeCycle() override {
        auto cycle = ClientUpdater::makeCycle();
        cycle.ignoresRollout = true;
        cycle.progress = [this](std::uint64_t done, std::uint64_t size) {
            _display.showProgress(done, size);
        };
        cycle.updateFromJSONData = [this](std::string body) {
            _offered = versionInFeed(body);
            return updateFromJSONData(std::move(body));
        };
        cycle.log = [this, log = cycle.log](const std::string& message) {
            log(message);
            _display.show(message);
        };
        return cycle;
    }

    Display& _display;
    std::optional<std::string> _offered;
};

/// Whether an offered update was refused because of its document or its contents.
bool isRefusal(const platform::Error& error) {
    return platform::isUpdaterError(error, platform::SQRLUpdaterErrorRefusedOffer) ||
           platform::isUpdaterError(error, platform::SQRLUpdaterErrorRefusedArchive) ||
           platform::isBadUpdate(error);
}

ExitStatus endWithError(const platform::Error& error, Display& display) {
    constexpr std::size_t kMost = 4000;
    Logger::sharedInstance().logMessage("Error checking for updates: " +
                                        escaped(printedForm(error), kMost));
    const bool isRefused = isRefusal(error);
    const auto* const suggestion =
        error.userInformation<std::string>(platform::NSLocalizedRecoverySuggestionErrorKey);
    display.showError(isRefused ? "the update was refused" : "the update failed",
                      escaped(error.localizedDescription) +
                          (suggestion == nullptr ? "" : ". " + escaped(*suggestion)));
    return isRefused ? kRefused : kFailed;
}

ExitStatus install(const platform::StagedUpdate& update, Updater& updater, Display& display) {
    const platform::BlockedSignals blocked;
    display.show("installing version " + escaped(update.version));
    if (const auto error = updater.install(update)) {
        return endWithError(*error, display);
    }
    display.show("Updated to version " + escaped(update.version) +
                 ". The next start of Teravolant runs it.");
    return kUpdated;
}

ExitStatus runUpdate(const Bundle& bundle, Display& display) {
    const std::string version =
        bundle.shortVersion().value_or(std::string(platform::kMissingValueMark));
    const FeedLocation feed = feedLocationFor(bundle.shortVersion());
    const std::string address = feed.request.url ? feed.request.url->absoluteString() : "none";
    display.show("Teravolant " + escaped(version) + " in " + quoted(bundle.bundlePath().string()));
    display.show("Feed: " + escaped(address) + (feed.isBuiltIn ? "" : " (set by this user)"));
    Logger::sharedInstance().logMessage("update: version " + escaped(version) +
                                        ", feed: " + escaped(address));

    const auto updater = std::make_shared<Updater>(feed.request, display);
    if (!feed.isBuiltIn) {
        updater->acceptBothChannels();
    }
    const auto staged = updater->runCycle();
    if (staged && *staged) {
        return install(**staged, *updater, display);
    }
    if (!staged && !updater->isUpToDate()) {
        return endWithError(staged.error(), display);
    }
    display.show(staged ? "Nothing is offered: version " + escaped(version) + " stays."
                        : "Version " + escaped(version) + " is up to date.");
    return kUpToDate;
}

ExitStatus update(bool quiet) {
    const Bundle& bundle = Bundle::mainBundle();
    Display display(quiet);
    if (const auto error = prepareSuperuser(bundle.bundlePath())) {
        display.showError("root updates only what no other user can change: " +
                          error->localizedDescription);
        return kFailed;
    }
    if (const auto error = platform::checkReplaceable(bundle.bundlePath())) {
        display.showError(
            error->localizedDescription +
            whoCanReplace(bundle.bundlePath(), platform::executablePathOfThisProcess()));
        return kFailed;
    }
    try {
        return runUpdate(bundle, display);
    } catch (const std::exception& exception) {
        display.showError(std::string("the update failed: ") + exception.what());
        return kFailed;
    }
}

}  // namespace
}  // namespace teravolant

int main(int argc, char* argv[]) {
    using Arguments = std::vector<std::string_view>;
    teravolant::platform::openMissingStandardStreams();
    // A closed pipe or a file at its size limit makes a write fail and must not stop the update.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGCHLD, SIG_DFL);  // Else no program's exit status could be read.
    teravolant::platform::switchConsoleLogOff();
    const Arguments arguments(argv + 1, argv + argc);
    if (arguments == Arguments{"--help"}) {
        (void)teravolant::platform::writeAll(STDOUT_FILENO, teravolant::kUsage);
        return teravolant::kUpdated;
    }
    const bool quiet = arguments == Arguments{"--quiet"};
    if (!quiet && !arguments.empty()) {
        (void)teravolant::platform::writeAll(STDERR_FILENO, teravolant::kUsage);
        return teravolant::kUsageError;
    }
    return teravolant::update(quiet);
}
