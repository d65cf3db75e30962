#include "tools/offer_text.h"

#include <algorithm>

#include "platform/core/utc_time.h"
#include "tools/output.h"

namespace teravolant::release {
namespace {

using platform::Offer;
using platform::Result;

void addLine(std::string& text, std::string_view key, std::string_view value) {
    text.append(key).append("=").append(value).append("\n");
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

void addTerms(std::string& text, const Offer& offer) {
    if (offer.expires) {
        addLine(text, "expires", platform::utcTimeText(*offer.expires));
    }
    if (offer.floor) {
        addLine(text, "floor", *offer.floor);
    }
    if (!offer.withdrawn.empty()) {
        addLine(text, "withdrawn", joined(offer.withdrawn));
    }
    if (offer.rollout) {
        addLine(text, "rollout", std::to_string(*offer.rollout));
    }
}

}  // namespace

Result<std::string> offerText(const Offer& offer, const std::vector<std::string>& otherLines) {
    std::string text = std::string(platform::kOfferFirstLine) + "\n";
    addLine(text, "identifier", offer.identifier);
    addLine(text, "version", offer.version);
    addLine(text, "issued", platform::utcTimeText(offer.issued));
    addTerms(text, offer);
    addLine(text, "size", std::to_string(offer.size));
    addLine(text, "digest", offer.digest);
    addLine(text, "unpacked-size", std::to_string(offer.unpackedSize));
    addLine(text, "tree", offer.tree);
    for (const platform::OfferedPatch& patch : offer.patches) {
        addLine(text, "patch",
                joined({patch.fromVersion, std::to_string(patch.size), patch.digest, patch.name}));
    }
    for (const std::string& line : otherLines) {
        text += line + "\n";
    }
    const auto read = platform::parseOffer(text);
    if (!read) {
        return read.error();
    }
    return *read == offer
               ? Result<std::string>(std::move(text))
               : refused("The offer's identifier or a version contains a line feed or a space.");
}

std::vector<std::string> otherLinesIn(std::string_view text) {
    std::vector<std::string> lines;
    for (bool isFirst = true; !text.empty(); isFirst = false) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (!isFirst && !platform::isKnownOfferKey(line.substr(0, line.find('=')))) {
            lines.emplace_back(line);
        }
    }
    return lines;
}

}  // namespace teravolant::release
