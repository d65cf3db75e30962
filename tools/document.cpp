#include "tools/document.h"

#include <algorithm>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/utc_time.h"
#include "platform/core/version.h"
#include "platform/files/durable_file.h"
#include "platform/files/files.h"
#include "platform/values/json.h"
#include "tools/output.h"
#include "update_framework/offer_trust.h"

namespace teravolant::release {
namespace {

namespace fs = std::filesystem;
using platform::isPreRelease;
using platform::Offer;
using platform::quoted;
using platform::Result;
using platform::Status;
using platform::Value;

}  // namespace

Result<FeedDocument> documentIn(const std::string& body, const std::string& name) {
    const auto signedPart = platform::signedDocumentIn(body);
    auto offer = signedPart ? platform::parseOffer(signedPart->offer) : signedPart.error();
    if (!offer) {
        return refused(quoted(name) +
                       " is not a feed document: " + offer.error().localizedDescription);
    }
    const auto document = platform::parseJson(body);
    const Value* const fileName = document->find("name");
    if (fileName != nullptr && fileName->text() != nullptr) {
        if (auto error = refusalOfName(*fileName->text())) {
            return error;
        }
    }
    return FeedDocument{.members = *document->dictionary(),
                        .text = signedPart->offer,
                        .offer = *std::move(offer),
                        .signatures = signedPart->signatures};
}

Result<std::string> documentBody(const FeedDocument& document) {
    Value::Dictionary members = document.members;
    members["version"] = document.offer.version;
    members["offer"] = document.text;
    members["signatures"] = Value::Array(document.signatures.begin(), document.signatures.end());
    auto body = platform::serialiseJson(members);
    return body ? Result<std::string>(*std::move(body) + "\n") : body.error();
}

Result<DocumentPlace> DocumentPlace::open(const fs::path& path) {
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    if (std::error_code missing; !fs::is_directory(folder, missing)) {
        return refused("There is no folder " + quoted(folder.string()) + " for the document.");
    }
    const fs::path lockFile = folder / ".teravolant-release.lock";
    auto lock = platform::FileLock::tryAcquireTemporary(lockFile);
    if (!lock) {
        return lock.error();
    }
    if (!*lock) {
        return refused("Another process publishes in the folder of " + quoted(path.string()) + ".");
    }
    DocumentPlace place(path, **std::move(lock));
    std::error_code missing;
    if (fs::file_size(path, missing) == 0 || missing) {
        return place;
    }
    const auto body = platform::contentsOfFile(path);
    auto previous = body ? documentIn(*body, path.string()) : body.error();
    if (!previous) {
        return previous.error();
    }
    place._previous = *std::move(previous);
    return place;
}

Status DocumentPlace::checkSuccession(const Offer& offer, SameArchive same) const {
    if (!_previous) {
        return std::nullopt;
    }
    const Offer& previous = _previous->offer;
    const std::string place = quoted(_path.string());
    if (previous.identifier != offer.identifier) {
        return refused(place + " is for " + platform::escaped(previous.identifier) + ", not for " +
                       offer.identifier + ": choose another place.");
    }
    if (isPreRelease(previous.version) != isPreRelease(offer.version)) {
        return refused(place + " offers version " + platform::escaped(previous.version) +
                       ", and version " + offer.version +
                       " is of the other channel (pre-release versions begin with 99.99.99): "
                       "choose another place.");
    }
    const bool isSameArchive = same == SameArchive::Accept && previous.version == offer.version &&
                               previous.digest == offer.digest && previous.tree == offer.tree;
    if (!isSameArchive && !platform::isHigherVersion(offer.version, previous.version)) {
        return refused(
            place + " offers version " + platform::escaped(previous.version) + ", and version " +
            offer.version +
            " is not higher. Build it with a higher version; to change the terms of a published "
            "version, use the command renew.");
    }
    return std::nullopt;
}

Status DocumentPlace::replace(const FeedDocument& document) const {
    constexpr unsigned kReadableByAll = 0644;
    const auto body = documentBody(document);
    return body ? platform::replaceFileDurably(_path, *body, kReadableByAll) : Status(body.error());
}

Result<std::chrono::sys_seconds> nextIssue(const std::optional<FeedDocument>& previous,
                                           std::chrono::sys_seconds now) {
    constexpr std::chrono::minutes kLead(1);
    if (!previous || previous->offer.issued < now) {
        return now;
    }
    if (previous->offer.issued - now < kLead) {
        return previous->offer.issued + std::chrono::seconds(1);
    }
    return refused("The clock shows " + platform::utcTimeText(now) +
                   ", but the document that is replaced was issued at " +
                   platform::utcTimeText(previous->offer.issued) +
                   ". Installations refuse an older document: set the clock.");
}

void addSignature(FeedDocument& document, const std::string& signature) {
    if (std::ranges::find(document.signatures, signature) == document.signatures.end()) {
        document.signatures.push_back(signature);
    }
}

std::chrono::sys_seconds now() { return platform::currentUtcTime(); }

}  // namespace teravolant::release
