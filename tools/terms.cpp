#include "tools/terms.h"

#include <cctype>
#include <chrono>

#include <CLI/CLI.hpp>

#include "platform/core/text.h"
#include "platform/core/utc_time.h"
#include "platform/core/version.h"
#include "tools/output.h"
#include "update_framework/offer_trust.h"

namespace teravolant::release {
namespace {

using platform::Offer;
using platform::Status;

constexpr std::string_view kVersionCharacters =
    "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ.-+";
constexpr unsigned kAll = 100;       // per cent
constexpr unsigned kLongest = 3650;  // days

Status checkVersion(std::string_view option, const std::string& version) {
    // An offer may contain any text that ends with a version. A version in an option is only that.
    const bool isPlain = !version.empty() && std::isdigit(static_cast<unsigned char>(version[0])) &&
                         version.find_first_not_of(kVersionCharacters) == version.npos;
    return isPlain && platform::versionIn(version)
               ? Status()
               : refused(std::string(option) + " " + platform::escaped(version) +
                         " is not a version.");
}

/// The parser of options would read 010 and 0x10 as octal and hexadecimal numbers.
std::string isDecimal(const std::string& number) {
    const bool isPlain = !number.empty() && number.find_first_not_of("0123456789") == number.npos &&
                         (number.size() == 1 || number[0] != '0');
    return isPlain ? "" : number + " is not a decimal number";
}

/// Returns the largest of days, hours, minutes and seconds that is not zero: "3 days".
std::string roughly(std::chrono::seconds time) {
    const auto text = [](auto count, const std::string& unit) {
        return std::to_string(count) + " " + unit + (count == 1 ? "" : "s");
    };
    if (const auto days = std::chrono::floor<std::chrono::days>(time); days.count() > 0) {
        return text(days.count(), "day");
    }
    if (const auto hours = std::chrono::floor<std::chrono::hours>(time); hours.count() > 0) {
        return text(hours.count(), "hour");
    }
    const auto minutes = std::chrono::floor<std::chrono::minutes>(time);
    return minutes.count() > 0 ? text(minutes.count(), "minute") : text(time.count(), "second");
}

std::string relative(std::chrono::sys_seconds time, std::chrono::sys_seconds now) {
    return platform::utcTimeText(time) + (time > now ? " (in " + roughly(time - now) + ")"
                                                     : " (" + roughly(now - time) + " ago)");
}

}  // namespace

void addTermOptions(CLI::App& command, TermOptions& options) {
    command
        .add_option(
            "--rollout", options.rollout,
            "The percentage of installations that take the update now (0 to 100, which means all)")
        ->type_name("PERCENT")
        ->check(isDecimal, "")
        ->check(CLI::Range(0U, kAll).description(""));
    command
        .add_option("--expires-in", options.expiresIn,
                    "The number of days after which no installation takes the update any more")
        ->type_name("DAYS")
        ->check(isDecimal, "")
        ->check(CLI::Range(1U, kLongest).description(""));
    command
        .add_option("--floor", options.floor,
                    "The version below which installations take the update regardless of the "
                    "roll-out")
        ->type_name("VERSION");
    command
        .add_option("--withdraw", options.withdrawn,
                    "A version that must not run: discarded where it is staged, and replaced "
                    "regardless of the roll-out where it runs. May be repeated")
        ->type_name("VERSION")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void addDropOptions(CLI::App& command, TermOptions& options) {
    command.add_flag("--no-floor", options.dropsFloor, "Removes the floor")->excludes("--floor");
    command.add_flag("--no-withdrawals", options.dropsWithdrawals,
                     "Removes earlier withdrawals, before those of --withdraw are added");
}

Status applyTerms(const TermOptions& options, Offer& offer) {
    if (options.rollout) {
        offer.rollout = options.rollout == kAll ? std::nullopt : options.rollout;
    }
    if (options.dropsExpiry) {
        offer.expires.reset();
    }
    if (options.expiresIn) {
        offer.expires = offer.issued + std::chrono::days(*options.expiresIn);
    }
    if (options.dropsFloor) {
        offer.floor.reset();
    }
    if (!options.floor.empty()) {
        if (auto error = checkVersion("--floor", options.floor)) {
            return error;
        }
        offer.floor = options.floor;
    }
    if (options.dropsWithdrawals) {
        offer.withdrawn.clear();
    }
    for (const std::string& version : options.withdrawn) {
        if (auto error = checkVersion("--withdraw", version)) {
            return error;
        }
        if (!platform::withdraws(offer, version)) {
            offer.withdrawn.push_back(version);
        }
    }
    return offer.floor && platform::isHigherVersion(*offer.floor, offer.version)
               ? refused("The floor " + platform::escaped(*offer.floor) +
                         " is higher than the offered version " + offer.version + ".")
               : Status();
}

std::string describedTerms(const Offer& offer, std::chrono::sys_seconds now) {
    std::string text = "issued:    " + relative(offer.issued, now) + "\n";
    text += "expires:   " + (offer.expires ? relative(*offer.expires, now) : "never") + "\n";
    text +=
        "roll-out:  " + std::to_string(offer.rollout.value_or(kAll)) + " % of the installations\n";
    if (offer.floor) {
        text += "floor:     versions below " + platform::escaped(*offer.floor) +
                " take it regardless of the roll-out\n";
    }
    for (const std::string& version : offer.withdrawn) {
        text += "withdrawn: " + platform::escaped(version) + "\n";
    }
    return text;
}

platform::Value::Dictionary membersOf(const Offer& offer) {
    using platform::Value;
    Value::Dictionary members{{"identifier", offer.identifier},
                              {"version", offer.version},
                              {"issued", platform::utcTimeText(offer.issued)},
                              {"rollout", static_cast<int>(offer.rollout.value_or(kAll))},
                              {"size", static_cast<std::int64_t>(offer.size)},
                              {"digest", offer.digest},
                              {"tree", offer.tree}};
    members["withdrawn"] = Value::Array(offer.withdrawn.begin(), offer.withdrawn.end());
    members["expires"] = offer.expires ? Value(platform::utcTimeText(*offer.expires)) : Value();
    members["floor"] = offer.floor ? Value(*offer.floor) : Value();
    return members;
}

}  // namespace teravolant::release
