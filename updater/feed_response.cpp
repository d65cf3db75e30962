#include "updater/feed_response.h"

#include <string_view>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/values/json.h"
#include "support/logger.h"
#include "update_framework/updater_error.h"
#include "updater/version_numbers.h"

namespace teravolant {
namespace {

using platform::Error;
using platform::kMissingValueMark;
using platform::MTLJSONAdapter;
using platform::Result;
using platform::SQRLUpdate;
using platform::URLRequest;
using platform::Value;

constexpr const char* kUrl = "url";
constexpr const char* kName = "name";

Error checkFailed(platform::SQRLUpdaterErrorCode code, std::string_view recoverySuggestion) {
    const platform::Bundle& bundle = platform::Bundle::mainBundle();
    return Error{.domain = platform::SQRLUpdaterErrorDomain,
                 .code = code,
                 .localizedDescription = bundle.localizedStringForKey("Update check failed"),
                 .userInfo = {{platform::NSLocalizedRecoverySuggestionErrorKey,
                               bundle.localizedStringForKey(recoverySuggestion)}}};
}

void setUnderlyingError(Error& error, const Error& underlying) {
    error.userInfo.push_back({platform::NSUnderlyingErrorKey, underlying});
}

/// Entries of the parser's error come last: a look-up finds this error's own entry of the same key
/// first.
Error invalidServerBody(const std::string& body, const Error& parserError) {
    Error error = checkFailed(platform::SQRLUpdaterErrorInvalidServerBody,
                              "The server sent an invalid response. Try again later.");
    error.userInfo.push_back({platform::SQRLUpdaterServerDataErrorKey, body});
    setUnderlyingError(error, parserError);
    error.userInfo.insert(error.userInfo.end(), parserError.userInfo.begin(),
                          parserError.userInfo.end());
    return error;
}

Error invalidJson(const Value& document, const Error* adapterError) {
    Error error = checkFailed(platform::SQRLUpdaterErrorInvalidJSON,
                              "The server sent an invalid JSON response. Try again later.");
    error.userInfo.push_back({platform::SQRLUpdaterJSONObjectErrorKey, document});
    if (adapterError != nullptr) {
        setUnderlyingError(error, *adapterError);
    }
    return error;
}

/// Returns a text unchanged and any other value as JSON.
std::string textOf(const Value& value) {
    // Every parsed value can be serialised.
    return value.text() != nullptr ? *value.text() : *platform::serialiseJson(value);
}

/// A value that is not a text never parses as a version: only the JSON form of a number ends with a
/// digit, and that has at most one full stop.
std::string offeredVersion(const Value::Dictionary& offer) {
    const auto version = offer.find("version");
    return version == offer.end() ? kMissingValueMark : textOf(version->second);
}

std::string currentVersion(const URLRequest& request) {
    return request.url ? request.url->query().value_or(kMissingValueMark) : kMissingValueMark;
}

/// Returns the feed's URL with its query, truncated before the last slash.
std::string feedFolder(const URLRequest& request) {
    const std::string text = request.url ? request.url->absoluteString() : kMissingValueMark;
    return text.substr(0, text.rfind('/'));
}

/// Returns the offer. If it has a name but no address, adds the address in the feed's folder.
Value::Dictionary withAddress(const Value::Dictionary& offer, const URLRequest& request) {
    const auto name = offer.find(kName);
    if (offer.contains(kUrl) || name == offer.end()) {
        return offer;
    }
    Value::Dictionary copy = offer;
    copy[kUrl] = feedFolder(request) + "/" + textOf(name->second);
    return copy;
}

/// Returns the feed document, whose top level is an object.
Result<Value> readOffer(const std::string& body) {
    auto document = platform::parseJson(body);
    if (!document) {
        return invalidServerBody(body, document.error());
    }
    if (document->dictionary() == nullptr) {
        return invalidJson(*document, nullptr);
    }
    return document;
}

Result<SQRLUpdate> makeUpdate(const Value& offer, const URLRequest& request) {
    auto update =
        MTLJSONAdapter::modelOfClass<SQRLUpdate>(withAddress(*offer.dictionary(), request));
    if (!update) {
        return invalidJson(offer, &update.error());
    }
    return update;
}

/// `isVersionNewer` or `ClientUpdater::checkUpdaterVersionNewer`, which differ in the log line.
using VersionCheck = bool(const std::string& current, const std::string& updateTo,
                          platform::Status& error);

Result<SQRLUpdate> updateIn(const std::string& body, const URLRequest& request,
                            VersionCheck& isNewer) {
    const auto offer = readOffer(body);
    if (!offer) {
        return offer.error();
    }
    platform::Status error;
    if (!isNewer(currentVersion(request), offeredVersion(*offer->dictionary()), error)) {
        return error;
    }
    return makeUpdate(*offer, request);
}

}  // namespace

Result<SQRLUpdate> updateFromFeed(const std::string& body, const URLRequest& request) {
    return updateIn(body, request, isVersionNewer);
}

std::optional<std::string> versionInFeed(const std::string& body) {
    const auto offer = readOffer(body);
    return offer ? std::optional(offeredVersion(*offer->dictionary())) : std::nullopt;
}

platform::RACSignal<SQRLUpdate> ClientUpdater::updateFromJSONData(std::string body) const {
    Logger::sharedInstance().logMessage("[ClientUpdater::updateFromJSONData]");
    return platform::RACSignal<SQRLUpdate>::defer(
        platform::filled("%@ -updateFromJSONData:", {description()}),
        [body = std::move(body), request = updateRequest()] {
            return updateIn(body, request, checkUpdaterVersionNewer);
        });
}

}  // namespace teravolant
