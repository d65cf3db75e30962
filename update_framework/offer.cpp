#include "update_framework/offer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <set>

#include "platform/core/text.h"
#include "platform/core/utc_time.h"
#include "platform/core/version.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

/// Decimal digits without leading zeros.
bool readNumber(std::string_view text, std::uint64_t& number) {
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    return read.ec == std::errc() && read.ptr == text.data() + text.size() &&
           (text.size() == 1 || text.front() != '0');
}

bool readSize(std::string_view text, std::uint64_t& size) {
    return readNumber(text, size) && size > 0;
}

bool readDigest(std::string_view text, std::string& digest) {
    constexpr std::size_t kDigits = 64;
    digest = text;
    return text.size() == kDigits && std::all_of(text.begin(), text.end(), [](char digit) {
               return (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f');
           });
}

bool readVersion(std::string_view text, std::string& version) {
    version = text;
    return versionIn(text).has_value();
}

bool readTime(std::string_view text, std::chrono::sys_seconds& time) {
    const auto read = utcTimeIn(text);
    time = read.value_or(time);
    return read.has_value();
}

/// Splits at each space: two spaces in a row give an empty word.
std::vector<std::string_view> wordsOf(std::string_view text) {
    std::vector<std::string_view> words;
    for (std::size_t end = 0; end != text.npos;
         text.remove_prefix(std::min(end + 1, text.size()))) {
        end = text.find(' ');
        words.push_back(text.substr(0, end));
    }
    return words;
}

bool readWithdrawn(std::string_view text, std::vector<std::string>& versions) {
    for (const std::string_view word : wordsOf(text)) {
        if (!readVersion(word, versions.emplace_back())) {
            return false;
        }
    }
    return true;
}

bool readRollout(std::string_view text, std::optional<unsigned>& share) {
    std::uint64_t percent = 0;
    const bool isPercentage = readNumber(text, percent) && percent <= 100;
    share = static_cast<unsigned>(percent);
    return isPercentage;
}

bool readPatch(std::string_view text, std::vector<OfferedPatch>& patches) {
    const auto words = wordsOf(text);
    OfferedPatch& patch = patches.emplace_back();
    if (words.size() != 4 || words[3].empty() || words[3].find('/') != words[3].npos) {
        return false;
    }
    patch.name = words[3];
    return readVersion(words[0], patch.fromVersion) && readSize(words[1], patch.size) &&
           readDigest(words[2], patch.digest);
}

/// A key that this version knows. `read` returns false for a malformed value.
struct Key {
    std::string_view name;
    bool isRequired;
    bool (*read)(std::string_view value, Offer& offer);
};

constexpr std::array kKeys = {
    Key{"identifier", true,
        [](std::string_view value, Offer& offer) { return !(offer.identifier = value).empty(); }},
    Key{"version", true,
        [](std::string_view value, Offer& offer) { return readVersion(value, offer.version); }},
    Key{"issued", true,
        [](std::string_view value, Offer& offer) { return readTime(value, offer.issued); }},
    Key{"expires", false,
        [](std::string_view value, Offer& offer) {
            return readTime(value, offer.expires.emplace());
        }},
    Key{"floor", false,
        [](std::string_view value, Offer& offer) {
            return readVersion(value, offer.floor.emplace());
        }},
    Key{"withdrawn", false,
        [](std::string_view value, Offer& offer) { return readWithdrawn(value, offer.withdrawn); }},
    Key{"rollout", false,
        [](std::string_view value, Offer& offer) { return readRollout(value, offer.rollout); }},
    Key{"size", true,
        [](std::string_view value, Offer& offer) { return readSize(value, offer.size); }},
    Key{"digest", true,
        [](std::string_view value, Offer& offer) { return readDigest(value, offer.digest); }},
    Key{"unpacked-size", true,
        [](std::string_view value, Offer& offer) { return readSize(value, offer.unpackedSize); }},
    Key{"tree", true,
        [](std::string_view value, Offer& offer) { return readDigest(value, offer.tree); }},
    Key{"patch", false,
        [](std::string_view value, Offer& offer) { return readPatch(value, offer.patches); }},
};

const Key* findKey(std::string_view name) { return std::ranges::find(kKeys, name, &Key::name); }

/// Returns a key for messages, without anything that a terminal or a log would interpret.
std::string named(std::string_view key) {
    constexpr std::size_t kMostShown = 40;
    return "“" + escaped(key, kMostShown) + "”";
}

Status readLine(std::string_view line, std::set<std::string_view>& seen, Offer& offer) {
    const std::size_t equals = line.find('=');
    if (equals == line.npos || equals == 0) {
        return refusedOffer("its line " + named(line) + " does not have the form KEY=VALUE.");
    }
    const std::string_view name = line.substr(0, equals);
    if (!seen.insert(name).second && name != "patch") {
        return refusedOffer("it has more than one " + named(name) + ".");
    }
    const auto* const key = findKey(name);
    return key == kKeys.end() || key->read(line.substr(equals + 1), offer)
               ? Status()
               : refusedOffer("its " + named(name) + " is malformed.");
}

}  // namespace

bool isKnownOfferKey(std::string_view key) { return findKey(key) != kKeys.end(); }

Status refusedOffer(std::string_view reason) {
    return updaterError(SQRLUpdaterErrorRefusedOffer,
                        "The update is refused: " + std::string(reason));
}

Result<Offer> parseOffer(std::string_view text) {
    if (!isValidUtf8(text) || text.find('\r') != text.npos || !text.ends_with('\n')) {
        return refusedOffer(
            "its offer is not UTF-8, contains a carriage return, or does not end with a line "
            "feed.");
    }
    Offer offer;
    std::set<std::string_view> seen;
    for (bool isFirst = true; !text.empty(); isFirst = false) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(line.size() + 1);
        if (isFirst && line != kOfferFirstLine) {
            return refusedOffer("its offer does not begin with “" + std::string(kOfferFirstLine) +
                                "”.");
        }
        auto error = isFirst ? Status() : readLine(line, seen, offer);
        if (error) {
            return error;
        }
    }
    for (const Key& key : kKeys) {
        if (key.isRequired && !seen.contains(key.name)) {
            return refusedOffer("it has no " + named(key.name) + ".");
        }
    }
    return offer;
}

}  // namespace teravolant::platform
