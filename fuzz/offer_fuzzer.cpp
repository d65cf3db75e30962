// The input is the signed text of an offer.

#include "update_framework/offer.h"

#include <string_view>

#include "fuzz/require.h"
#include "platform/core/error.h"
#include "platform/core/version.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace teravolant;
    using fuzz::require;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto offer = platform::parseOffer(text);
    if (!offer) {
        require(!offer.error().localizedDescription.empty(), "a refusal has a reason");
        return 0;
    }
    require(text.starts_with("teravolant-offer 1\n") && text.ends_with('\n'), "the form is exact");
    require(text.find('\r') == text.npos, "no carriage return is accepted");
    require(platform::versionIn(offer->version).has_value(), "the version can be compared");
    require(offer->size > 0 && offer->unpackedSize > 0, "sizes are not 0");
    require(offer->digest.size() == 64 && offer->tree.size() == 64, "digests have 64 digits");
    require(offer->rollout.value_or(0) <= 100, "a share is a percentage");
    for (const auto& patch : offer->patches) {
        require(patch.name.find('/') == patch.name.npos && !patch.name.empty(), "a plain name");
    }
    return 0;
}
