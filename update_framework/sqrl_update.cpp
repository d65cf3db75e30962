#include "update_framework/sqrl_update.h"

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/url.h"

namespace teravolant::platform {
namespace {

Error memberError(MTLJSONAdapterErrorCode code, std::string_view member, std::string_view problem) {
    return Error{.domain = std::string(MTLJSONAdapterErrorDomain),
                 .code = code,
                 .localizedDescription = "The update's " + quoted(std::string(member)) + " " +
                                         std::string(problem) + "."};
}

Result<std::string> textIn(const Value::Dictionary& dictionary, std::string_view member) {
    const auto found = dictionary.find(member);
    if (found == dictionary.end()) {
        return memberError(MTLJSONAdapterErrorMissingMember, member, "is missing");
    }
    if (found->second.text() == nullptr) {
        return memberError(MTLJSONAdapterErrorInvalidMember, member, "is not a string");
    }
    return *found->second.text();
}

}  // namespace

template <>
Result<SQRLUpdate> MTLJSONAdapter::modelOfClass<SQRLUpdate>(const Value::Dictionary& dictionary) {
    auto version = textIn(dictionary, "version");
    if (!version) {
        return version.error();
    }
    // Checked before the URL, which may be derived from the name.
    const auto name = textIn(dictionary, "name");
    if (!name && name.error().code == MTLJSONAdapterErrorInvalidMember) {
        return name.error();
    }
    auto url = textIn(dictionary, "url");
    if (!url) {
        return url.error();
    }
    if (!isSecureOrLoopbackURL(*url)) {
        return memberError(MTLJSONAdapterErrorInvalidMember, "url",
                           "is not an absolute https URL (or http on loopback)");
    }
    return SQRLUpdate{.updateURL = *std::move(url), .version = *std::move(version)};
}

}  // namespace teravolant::platform
