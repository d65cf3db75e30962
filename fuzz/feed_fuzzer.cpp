// The input is a feed document: the response to the request of version 4.30.1.17.

#include "updater/feed_response.h"

#include <string>

#include "fuzz/require.h"
#include "platform/core/error.h"
#include "platform/core/http_error.h"
#include "platform/http/curl_library.h"
#include "platform/http/http_address.h"
#include "platform/values/json.h"
#include "update_framework/offer_trust.h"
#include "updater/version_numbers.h"

namespace {

using namespace teravolant;
using fuzz::require;
using platform::SQRLUpdate;

// The private key was deleted: no other offer with a valid signature can exist.
const std::string kPublicKey = "/UIykRlh7EgWGlJjqJQGiqA25u+odv/UgI4LjvZw56E=";
const std::string kSignedVersion = "4.30.2.5";

void checkJson(std::string_view body) {
    const auto document = platform::parseJson(body);
    if (!document) {
        return;
    }
    const auto written = platform::serialiseJson(*document);
    require(static_cast<bool>(written), "a parsed document can be serialised");
    const auto again = platform::parseJson(*written);
    require(again && *again == *document, "a serialised document parses to the same value");
}

void checkUpdate(const SQRLUpdate& update) {
    ClientUpdater::ErrorSlot error;
    require(isVersionNewer("4.30.1.17", update.version, error), "an offer is newer");
    require(platform::isSecureOrLoopbackURL(update.updateURL), "the address is https or loopback");
    const auto address = platform::HttpAddress::parse(update.updateURL);
    require(address || address.error().code != platform::HttpError::unsupportedUrl,
            "the download accepts the scheme and host that the feed accepts");
}

void checkSignature(const std::string& body) {
    const platform::Installation installation{.bundleIdentifier = "com.zelto.teravolant.updater",
                                              .bundleVersion = "4.30.1.17",
                                              .publicKeys = {kPublicKey}};
    const auto document = platform::signedDocumentIn(body);
    const auto offer = document ? platform::authenticOfferIn(*document, installation)
                                : platform::Result<platform::AuthenticOffer>(document.error());
    require(!offer || (offer->offer.version == kSignedVersion && offer->offer.size == 11 &&
                       offer->signers.front() == kPublicKey),
            "only the signed offer is accepted");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const platform::URLRequest request{
        platform::URL("https://updates.teravolant.example/release/release.mac?version=4.30.1.17")};
    static const auto unusable = platform::loadCurl();
    require(!unusable, "libcurl, which reads addresses, can be loaded");
    const std::string body(reinterpret_cast<const char*>(data), size);
    checkJson(body);
    checkSignature(body);
    const auto offer = updateFromFeed(body, request);
    if (offer) {
        checkUpdate(*offer);
    } else {
        require(!printedForm(offer.error()).empty(), "a refusal has a description");
    }
    return 0;
}
