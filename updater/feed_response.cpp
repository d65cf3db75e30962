#include "updater/feed_response.h"

#include <memory>
#include <string_view>

#include "platform/json.h"
#include "platform/text.h"
#include "support/logger.h"

namespace teravolant {
namespace {

using platform::Error;
using platform::JsonValue;
using platform::kMissingValueMark;
using platform::MTLJSONAdapter;
using platform::Result;
using platform::URLRequest;

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
    error.userInfo[platform::NSUnderlyingErrorKey] = std::make_shared<const Error>(underlying);
}

/// The parser's own entries stay unless one of the error's has their key.
Error invalidServerBody(const std::string& body, const Error& parserError) {
    Error error = checkFailed(platform::SQRLUpdaterErrorInvalidServerBody,
                              "The server sent an invalid response. Try again later.");
    error.userInfo[platform::SQRLUpdaterServerDataErrorKey] = body;
    setUnderlyingError(error, parserError);
    error.userInfo.insert(parserError.userInfo.begin(), parserError.userInfo.end());
    return error;
}

Error invalidJson(const JsonValue& document, const Error* adapterError) {
    Error error = checkFailed(platform::SQRLUpdaterErrorInvalidJSON,
                              "The server sent an invalid JSON response. Try again later.");
    error.userInfo[platform::SQRLUpdaterJSONObjectErrorKey] =
        std::make_shared<const JsonValue>(document);
    if (adapterError != nullptr) {
        setUnderlyingError(error, *adapterError);
    }
    return error;
}

/// A text as it is; anything else in its JSON form.
std::string textOf(const JsonValue& value) {
    // What was parsed can be serialised.
    return value.text() != nullptr ? *value.text() : platform::serialiseJson(value).value();
}

/// What is not a text never reads as a version: its JSON form does not end with a digit unless it
/// is a number, which has one full stop at the most.
std::string offeredVersion(const JsonValue::Object& offer) {
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
JsonValue::Object withAddress(const JsonValue::Object& offer, const URLRequest& request) {
    const auto name = offer.find(kName);
    if (offer.contains(kUrl) || name == offer.end()) {
        return offer;
    }
    JsonValue::Object copy = offer;
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
    const JsonValue::Object* const offer = document.value().object();
    if (offer == nullptr) {
        return invalidJson(document.value(), nullptr);
    }
    ClientUpdater::ErrorSlot versionError;
    if (!isNewer(currentVersion(request), offeredVersion(*offer), versionError)) {
        return *std::move(versionError);
    }
    auto update =
        MTLJSONAdapter::modelOfClass<ClientUpdater::UpdateClass>(withAddress(*offer, request));
    if (!update) {
        return invalidJson(document.value(), &update.error());
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
