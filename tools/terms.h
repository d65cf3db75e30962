#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/core/result.h"
#include "platform/values/value.h"
#include "update_framework/offer.h"

namespace CLI {
class App;
}

namespace teravolant::release {

/// Which installations take an offer, and until when: what may change without a new archive.
struct TermOptions {
    std::optional<unsigned> rollout;
    std::optional<unsigned> expiresIn;  ///< Days after the time of signing.
    std::string floor;
    std::vector<std::string> withdrawn;
    bool dropsExpiry = false;
    bool dropsFloor = false;
    bool dropsWithdrawals = false;
};

/// Adds the options that set terms. Parsing sets `options`, which must outlive the command.
void addTermOptions(CLI::App& command, TermOptions& options);

/// Adds the options that remove the floor and the withdrawals of an earlier document.
void addDropOptions(CLI::App& command, TermOptions& options);

/// Changes the terms of the offer, which already has its version and its time of signing. Fails for
/// a malformed version and a floor above the offered version.
[[nodiscard]] platform::Status applyTerms(const TermOptions& options, platform::Offer& offer);

/// Returns one line for each term and for the time of signing, for people.
[[nodiscard]] std::string describedTerms(const platform::Offer& offer,
                                         std::chrono::sys_seconds now);

/// Returns the offer's version, archive, terms and time of signing, for programs.
[[nodiscard]] platform::Value::Dictionary membersOf(const platform::Offer& offer);

}  // namespace teravolant::release
