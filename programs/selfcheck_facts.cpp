#include <array>
#include <chrono>
#include <filesystem>
#include <string>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/utc_time.h"
#include "platform/core/version.h"
#include "platform/files/private_directory.h"
#include "platform/system/preferences.h"
#include "platform/values/printed_form.h"
#include "programs/selfcheck.h"
#include "support/logger.h"
#include "support/settings_manager.h"
#include "update_framework/document_history.h"
#include "update_framework/first_starts.h"
#include "update_framework/refusals.h"
#include "update_framework/staging.h"
#include "updater/feed_location.h"

// What this computer knows about updates of the bundle. Reads the user's data and changes nothing.
namespace teravolant::selfcheck {
namespace {

using platform::Bundle;
using std::chrono::sys_seconds;

/// Returns for example "2026-03-01T10:00:00Z, 3 days ago".
std::string timeAndAge(sys_seconds time) {
    struct Unit {
        std::chrono::seconds length;
        const char* name;
    };
    constexpr std::array kUnits = {Unit{std::chrono::days(1), "day"},
                                   Unit{std::chrono::hours(1), "hour"},
                                   Unit{std::chrono::minutes(1), "minute"}};
    const auto age = platform::currentUtcTime() - time;
    for (const auto& [length, name] : kUnits) {
        if (age >= length) {
            const auto count = age / length;
            return platform::utcTimeText(time) + ", " + std::to_string(count) + " " + name +
                   (count == 1 ? "" : "s") + " ago";
        }
    }
    return platform::utcTimeText(time) +
           (age.count() < 0 ? ", in the future" : ", less than a minute ago");
}

std::string feedText(const std::string& version) {
    const auto location = feedLocationFor(version);
    const auto& url = location.request.url;
    return (url ? url->absoluteString() : "no address") +
           (location.isBuiltIn ? " (built in)" : " (set by the user: updateserver)");
}

std::string documentText(const std::string& version) {
    const platform::DocumentHistory history(platform::UserDefaults::standardUserDefaults());
    const auto issued = history.latestIssued(version);
    return issued ? "issued " + timeAndAge(*issued) : "none seen";
}

std::string stagedText(const Bundle& bundle) {
    const auto staged = platform::readStagedUpdate(platform::cacheFolderOf(bundle));
    return !staged
               ? "nothing"
               : "version " + staged->version + " in " + platform::quoted(staged->staged.string());
}

std::string confirmationText(const Bundle& bundle) {
    const auto unconfirmed = platform::unconfirmedVersion(bundle.bundlePath());
    if (!unconfirmed) {
        return "unknown: " + unconfirmed.error().localizedDescription;
    }
    return *unconfirmed ? "not yet, no start has ended cleanly; version " +
                              (*unconfirmed)->previousVersion + " is kept"
                        : "yes";
}

std::string policyText() {
    const auto value =
        SettingsManager::sharedInstance().getSettingForKey("AutoUpdateEnable", std::nullopt);
    if (!value) {
        return "none: updates are on";
    }
    const bool isOn = *value == SettingsManager::Value("YES");
    return std::string(isOn ? "updates are on" : "updates are OFF") + " (AutoUpdateEnable is " +
           platform::printedForm(*value) + ")";
}

}  // namespace

void addFacts(const Bundle& bundle) {
    const std::string version = bundle.shortVersion().value_or("");
    const auto fact = Report::addFact;
    fact("installed", version + " in " + platform::quoted(bundle.bundlePath().string()));
    fact("channel", platform::isPreRelease(version) ? "pre-release" : "release");
    fact("feed", feedText(version));
    fact("last signed document", documentText(version));
    fact("staged", stagedText(bundle));
    fact("confirmed", confirmationText(bundle));
    const auto refusals =
        platform::Refusals(platform::cacheFolderOf(bundle)).all(platform::currentUtcTime());
    for (const std::string& refusal : refusals) {
        fact("refused", refusal);
    }
    if (refusals.empty()) {
        fact("refused", "nothing");
    }
    const auto obstacle = platform::checkReplaceable(bundle.bundlePath());
    fact("replaceable by this user", obstacle ? "NO: " + obstacle->localizedDescription : "yes");
    fact("policy for all users", policyText());
    fact("log", Logger::filePath().string());
}

}  // namespace teravolant::selfcheck
