// The input is a feed document: the response to the request of version 4.30.1.17.

#include "updater/feed_response.h"

#include <string>

#include "fuzz/require.h"
#include "platform/core/error.h"
#include "platform/core/http_error.h"
#include "platform/core/text.h"
#include "platform/http/curl_library.h"
#include "platform/http/http_address.h"
#include "platform/values/json.h"
#include "update_framework/offer_verification.h"
#include "updater/version_numbers.h"

namespace {

using namespace teravolant;
using fuzz::require;
using platform::SQRLUpdate;

// The private key was deleted: no other offer with a valid signature can exist.
const std::string kPublicKey = "mGqNlfZnemBjpafDzb8llTCgZQBps+Pr2rpdb33VDYw=";
const std::string kSignedVersion = "4.30.2.5";
constexpr std::uint64_t kSignedSize = 11;
constexpr std::string_view kSignedSha256 =
    "d4000be018bcb748f770b4249d4f670a16141989a47f8ac4741c6aa29f6808ee";

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

void checkOffer(const SQRLUpdate& offer) {
    ClientUpdater::ErrorSlot error;
    require(isVersionNewer("4.30.1.17", offer.version, error), "an offer is newer");
    require(!offer.size || *offer.size > 0, "the size of an archive is not 0");
    require(platform::isSecureOrLoopbackURL(offer.updateURL), "the address is https or loopback");
    const auto address = platform::HttpAddress::parse(offer.updateURL);
    require(address || address.error().code != platform::HttpError::unsupportedUrl,
            "the download accepts the scheme and host that the feed accepts");
    const auto refusal = platform::verifyOffer(offer, "http://localhost/",
                                               "com.zelto.teravolant.updater", {kPublicKey});
    require(refusal || (offer.version == kSignedVersion && offer.size == kSignedSize &&
                        platform::equalIgnoringCase(*offer.sha256, kSignedSha256)),
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
    const auto offer = updateFromFeed(body, request);
    if (offer) {
        checkOffer(*offer);
    } else {
        require(!printedForm(offer.error()).empty(), "a refusal has a description");
    }
    return 0;
}
