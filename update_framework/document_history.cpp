#include "update_framework/document_history.h"

#include "platform/core/utc_time.h"
#include "platform/core/version.h"
#include "platform/crypto/random.h"

namespace teravolant::platform {
namespace {

/// Keys of the preferences.
constexpr const char* kIssued = "UpdateDocumentsIssued";  ///< Dates by channel and public key.
constexpr const char* kSeen = "UpdateDocumentSeen";       ///< A date.
constexpr const char* kLocalId = "UpdateLocalId";         ///< Data.

constexpr std::size_t kLocalIdSize = 16;

bool isLocalId(const Value& value) {
    return value.data() != nullptr && value.data()->size() == kLocalIdSize;
}

/// Documents of one channel do not age those of the other.
std::string orderOf(const std::string& version, const std::string& signer) {
    return (isPreRelease(version) ? "alpha " : "release ") + signer;
}

/// Fails if a later document of one of the signers is stored.
Status checkOrder(const AuthenticOffer& document, const Value& stored) {
    for (const std::string& signer : document.signers) {
        const Value* const latest = stored.find(orderOf(document.offer.version, signer));
        const Value::Date* const time = latest != nullptr ? latest->date() : nullptr;
        if (time != nullptr && document.offer.issued < *time) {
            return refusedOffer("it was issued at " + utcTimeText(document.offer.issued) +
                                ", before a document of " + utcTimeText(*time) +
                                " that this computer has seen.");
        }
    }
    return std::nullopt;
}

Value withDocument(const AuthenticOffer& document, const Value& stored) {
    auto latest = stored.dictionary() != nullptr ? *stored.dictionary() : Value::Dictionary();
    for (const std::string& signer : document.signers) {
        latest[orderOf(document.offer.version, signer)] = document.offer.issued;
    }
    return latest;
}

}  // namespace

Status DocumentHistory::accept(const AuthenticOffer& document) const {
    Status refusal;
    const auto updated = _preferences.updateObject(kIssued, [&](const Value& stored) {
        refusal = checkOrder(document, stored);
        return refusal ? stored : withDocument(document, stored);
    });
    if (updated || refusal) {
        return refusal;
    }
    // What can't be written may still be readable.
    refusal = checkOrder(document, _preferences.objectForKey(kIssued).value_or(Value()));
    return refusal ? refusal : Status(updated.error());
}

Status DocumentHistory::recordSeen(std::chrono::sys_seconds clock) const {
    const auto seen = lastSeen();
    const bool isRecent = seen && *seen <= clock && clock - *seen < std::chrono::days(1);
    return isRecent ? Status() : _preferences.setObject(clock, kSeen);
}

std::chrono::days DocumentHistory::daysUnseen(std::chrono::sys_seconds clock) const {
    const auto seen = lastSeen();
    if (!seen || *seen > clock) {
        (void)_preferences.setObject(clock, kSeen);  // If it fails, the next check tries again.
        return {};
    }
    return std::chrono::floor<std::chrono::days>(clock - *seen);
}

std::optional<std::chrono::sys_seconds> DocumentHistory::lastSeen() const {
    const auto seen = _preferences.objectForKey(kSeen);
    const Value::Date* const date = seen ? seen->date() : nullptr;
    return date != nullptr ? std::optional(*date) : std::nullopt;
}

std::optional<std::chrono::sys_seconds> DocumentHistory::latestIssued(
    const std::string& version) const {
    const auto stored = _preferences.objectForKey(kIssued);
    const auto* const times = stored ? stored->dictionary() : nullptr;
    std::optional<std::chrono::sys_seconds> latest;
    for (const auto& [order, time] : times != nullptr ? *times : Value::Dictionary()) {
        if (order.starts_with(orderOf(version, "")) && time.date() != nullptr) {
            latest = std::max(latest, std::optional(*time.date()));
        }
    }
    return latest;
}

Result<std::string> DocumentHistory::localId() const {
    auto stored = _preferences.objectForKey(kLocalId);
    if (!stored || !isLocalId(*stored)) {
        auto updated = _preferences.updateObject(kLocalId, [](const Value& other) {
            return isLocalId(other) ? other : Value(randomBytes(kLocalIdSize));
        });
        if (!updated) {
            return updated.error();
        }
        stored = *std::move(updated);
    }
    return std::string(stored->data()->begin(), stored->data()->end());
}

}  // namespace teravolant::platform
