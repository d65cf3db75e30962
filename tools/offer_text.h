#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/core/result.h"
#include "update_framework/offer.h"

namespace teravolant::release {

/// Returns the text to sign: the lines of the offer in a fixed order, then `otherLines`. Fails if
/// the text would not be read as the same offer, for example for a version that contains a space.
platform::Result<std::string> offerText(const platform::Offer& offer,
                                        const std::vector<std::string>& otherLines = {});

/// Returns the lines of an offer's text whose keys this version does not know, in their order.
[[nodiscard]] std::vector<std::string> otherLinesIn(std::string_view text);

}  // namespace teravolant::release
