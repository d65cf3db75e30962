#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "platform/core/result.h"
#include "platform/system/preferences.h"
#include "update_framework/offer_trust.h"

namespace teravolant::platform {

/// What the user's preferences remember of signed documents, whatever bundle is installed. May be
/// used from any thread.
class DocumentHistory {
  public:
    explicit DocumentHistory(UserDefaults preferences) : _preferences(std::move(preferences)) {}

    /// Durably records the document as the latest of its signers. Other processes' records in the
    /// meantime count.
    ///
    /// Fails with `SQRLUpdaterErrorRefusedOffer` if it is older than the latest document under one
    /// of its signers. The order is kept per key and channel: a new key starts a new order, and
    /// the documents of one channel do not age those of the other. Fails with an error of another
    /// domain if the preferences can't be written.
    [[nodiscard]] Status accept(const AuthenticOffer& document) const;

    /// Records that a document was accepted that had not expired. Writes once a day at most.
    [[nodiscard]] Status recordSeen(std::chrono::sys_seconds clock) const;

    /// Returns for how many days no such document was seen. Begins to count at the first call, and
    /// again if the clock was set back.
    [[nodiscard]] std::chrono::days daysUnseen(std::chrono::sys_seconds clock) const;

    /// Returns the stored time from which `daysUnseen` counts, or nothing if none is stored.
    [[nodiscard]] std::optional<std::chrono::sys_seconds> lastSeen() const;

    /// Returns the latest time at which an accepted document in the channel of `version` was
    /// issued, with any key. Returns nothing if none was accepted.
    [[nodiscard]] std::optional<std::chrono::sys_seconds> latestIssued(
        const std::string& version) const;

    /// Returns the 16 random bytes that place this installation in a roll-out. They never leave the
    /// computer. Generates and stores them at the first call.
    Result<std::string> localId() const;

  private:
    UserDefaults _preferences;
};

}  // namespace teravolant::platform
