#include "updater/feed_response.h"

#include <memory>
#include <string_view>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/values/json.h"
#include "support/logger.h"
#include "update_framework/updater_error.h"

namespace teravolant {
namespace {

using platform::Error;
using platform::kMissingValueMark;
using platform::MTLJSONAdapter;
using platform::Result;
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

/// An entry of the parser's error is kept unless this error has one with the same key, which is
/// found first.
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

/// A text as it is; anything else in its JSON form.
std::string textOf(const Value& value) {
    // What was parsed can be serialised.
    return value.text() != nullptr ? *value.text() : *platform::serialiseJson(value);
}

/// What is not a text never reads as a version: its JSON form does not end with a digit unless it
/// is a number, which has one full stop at the most.
std::string offeredVersion(const Value::Dictionary& offer) {
    const auto version = offer.find("version");
    return version == offer.end() ? kMissingValueMark : textOf(version->second);
}

std::string currentVersion(const URLRequest& request) {
    return request.url ? request.url->query().value_or(kMissingValueMark) : kMissingValueMark;
}

/// The feed's URL, query and all, cut before its last slash.
std::string feedFolder(const URLRequest& request) {
    const std::string text = request.url ? request.url->absoluteString() : kMissingValueMark;
    return text.substr(0, text.rfind('/'));
}

/// The offer with the address that its name stands for where it does not give one.
Value::Dictionary withAddress(const Value::Dictionary& offer, const URLRequest& request) {
    const auto name = offer.find(kName);
    if (offer.contains(kUrl) || name == offer.end()) {
        return offer;
    }
    Value::Dictionary copy = offer;
    copy[kUrl] = feedFolder(request) + "/" + textOf(name->second);
    return copy;
}

}  // namespace

Result<ClientUpdater::UpdateClass> updateFromFeed(
    const std::string& body, const URLRequest& request,
    bool (*isNewer)(const std::string&, const std::string&, ClientUpdater::ErrorSlot&)) {
    const auto document = platform::parseJson(body);
    if (!document) {
        return invalidServerBody(body, document.error());
    }
    const Value::Dictionary* const offer = document->dictionary();
    if (offer == nullptr) {
        return invalidJson(*document, nullptr);
    }
    ClientUpdater::ErrorSlot versionError;
    if (!isNewer(currentVersion(request), offeredVersion(*offer), versionError)) {
        return *std::move(versionError);
    }
    auto update =
        MTLJSONAdapter::modelOfClass<ClientUpdater::UpdateClass>(withAddress(*offer, request));
    if (!update) {
        return invalidJson(*document, &update.error());
    }
    return update;
}

platform::RACSignal<ClientUpdater::UpdateClass> ClientUpdater::updateFromJSONData(
    std::string body) const {
    Logger::sharedInstance().logMessage("[ClientUpdater::updateFromJSONData]");
    return platform::RACSignal<UpdateClass>::defer(
        platform::filled("%@ -updateFromJSONData:", {description()}),
        [body = std::move(body), request = updateRequest()] {
            return updateFromFeed(body, request, &ClientUpdater::checkUpdaterVersionNewer);
        });
}

}  // namespace teravolant
