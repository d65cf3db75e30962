// Feed documents, as the answer to the request of version 4.30.1.17.

#include "updater/feed_response.h"

#include <string>

#include "fuzz/require.h"
#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/http/http.h"
#include "platform/http/http_address.h"
#include "platform/http/http_error.h"
#include "platform/values/json.h"
#include "update_framework/module/offer_verification.h"
#include "updater/version_numbers.h"

namespace {

using namespace teravolant;
using fuzz::require;
using platform::SQRLUpdate;

// The private key is gone: the one offer that it signed is the only one there can be.
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
    require(static_cast<bool>(written), "what was read can be written");
    const auto again = platform::parseJson(*written);
    require(again && *again == *document, "what was written reads as it was");
}

void checkOffer(const SQRLUpdate& offer) {
    ClientUpdater::ErrorSlot error;
    require(isVersionNewer("4.30.1.17", offer.version, error), "an offer is newer");
    require(!offer.size || *offer.size > 0, "an archive is not empty");
    require(platform::isSecureOrLoopbackURL(offer.updateURL), "an address is safe");
    const auto address = platform::HttpAddress::parse(offer.updateURL);
    require(address || address.error().code != platform::HttpError::unsupportedUrl,
            "the address is as safe for who fetches as for who read it");
    const auto refusal = platform::verifyOffer(offer, "com.zelto.teravolant.updater", {kPublicKey});
    require(refusal || (offer.version == kSignedVersion && offer.size == kSignedSize &&
                        platform::equalIgnoringCase(*offer.sha256, kSignedSha256)),
            "only what was signed is taken");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const platform::URLRequest request{
        platform::URL("https://updates.teravolant.example/release/release.mac?version=4.30.1.17")};
    const std::string body(reinterpret_cast<const char*>(data), size);
    checkJson(body);
    const auto offer = updateFromFeed(body, request);
    if (offer) {
        checkOffer(*offer);
    } else {
        require(!printedForm(offer.error()).empty(), "a refusal says why");
    }
    return 0;
}
