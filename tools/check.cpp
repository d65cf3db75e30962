#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/url.h"
#include "platform/core/utc_time.h"
#include "platform/core/version.h"
#include "platform/files/files.h"
#include "tools/acceptance.h"
#include "tools/archive_request.h"
#include "tools/commands.h"
#include "tools/document.h"
#include "tools/identity.h"
#include "tools/output.h"
#include "tools/terms.h"
#include "update_framework/feed_download.h"
#include "update_framework/updater_error.h"

namespace teravolant::release {
namespace {

using platform::quoted;
using platform::Result;
using platform::Status;
using platform::updaterError;
using platform::Value;

struct Options {
    std::string feed;
    std::string bundle;
    std::string archive;
    bool downloads = false;
    bool isJson = false;
};

struct Feed {
    std::string url;  ///< Its query contains the running version.
    std::string body;
};

bool isUrl(std::string_view feed) { return feed.find("://") != std::string_view::npos; }

std::string withVersion(std::string url, const std::string& version) {
    if (!platform::URL(url).query()) {
        url.insert(std::min(url.find('#'), url.size()),
                   "?" + platform::percentEncodedForQuery("version=" + version));
    }
    return url;
}

Result<Feed> feedFrom(const std::string& source, const std::string& version,
                      const std::stop_token& stop) {
    if (isUrl(source)) {
        const std::string url = withVersion(source, version);
        auto body = requestFeed(url, stop);
        return body ? Result<Feed>(Feed{.url = url, .body = *std::move(body)}) : body.error();
    }
    Feed feed{.url = unknownFeedUrl(version), .body = {}};
    const auto add = [&](std::string_view piece) {
        feed.body += piece;
        return feed.body.size() <= platform::kLargestFeed
                   ? Status()
                   : updaterError(platform::SQRLUpdaterErrorInvalidServerBody,
                                  quoted(source) + " is larger than the limit for feeds (1 MiB).");
    };
    if (auto error = platform::readInPieces(source, platform::kLargestFeed, add)) {
        return error;
    }
    return feed;
}

Status refusedArchive(std::string_view member, const std::string& found,
                      const std::string& stated) {
    return updaterError(platform::SQRLUpdaterErrorRefusedArchive,
                        "“" + std::string(member) + "”: the archive has " + found +
                            ", the offer states " + stated + ".");
}

Status checkSize(std::uint64_t size, const platform::Offer& offer) {
    return size == offer.size ? Status()
                              : refusedArchive("size", std::to_string(size) + " bytes",
                                               std::to_string(offer.size));
}

Status checkBytes(const Result<ArchiveBytes>& archive, const platform::Offer& offer) {
    if (!archive) {
        return archive.error();
    }
    if (auto error = checkSize(archive->size, offer)) {
        return error;
    }
    return archive->digest == offer.digest
               ? Status()
               : refusedArchive("digest", archive->digest, offer.digest);
}

/// Compares the archive, as far as the options ask for it. Returns what was compared.
Result<std::string> checkedArchive(const Options& options, const AcceptedOffer& accepted,
                                   const std::stop_token& stop) {
    if (!options.archive.empty()) {
        auto error = checkBytes(readBytes(options.archive, stop), accepted.offer);
        if (error) {
            return error;
        }
    }
    if (options.downloads) {
        auto error = checkBytes(downloadBytes(accepted.archiveUrl, accepted.offer.size, stop),
                                accepted.offer);
        return error ? Result<std::string>(std::move(error))
                     : std::string("downloaded, with the signed digest");
    }
    if (!isUrl(options.feed)) {
        return std::string(options.archive.empty() ? "not compared"
                                                   : "compared, with the signed digest");
    }
    const auto size = requestSize(accepted.archiveUrl, stop);
    if (!size) {
        return size.error();
    }
    if (!*size) {
        return std::string("on the server, which does not state its size");
    }
    auto error = checkSize(**size, accepted.offer);
    return error ? Result<std::string>(std::move(error))
                 : std::string("on the server, with the signed size");
}

/// A feed document read from a file does not tell in which folder the archive is.
std::string placeOf(const std::string& url) {
    return url.starts_with(kUnknownFolder)
               ? url.substr(kUnknownFolder.size()) + " in the feed's own folder"
               : url;
}

std::string channelOf(const platform::Offer& offer) {
    return platform::isPreRelease(offer.version) ? "pre-release" : "release";
}

std::string report(const AcceptedOffer& accepted, const std::string& archive) {
    const platform::Offer& offer = accepted.offer;
    return describedTerms(offer, now()) + "valid for: installed " + channelOf(offer) +
           " versions below " + offer.version + "\n" + "archive:   " + archive + "\n" +
           "accepted: version " + offer.version + ", " + std::to_string(offer.size) +
           " bytes, from " + placeOf(accepted.archiveUrl) + "\n";
}

Value::Dictionary jsonReport(const AcceptedOffer& accepted, const std::string& archive) {
    auto members = membersOf(accepted.offer);
    members["accepted"] = true;
    members["channel"] = channelOf(accepted.offer);
    members["validBelow"] = accepted.offer.version;
    members["age"] = (now() - accepted.offer.issued).count();
    members["archive"] = placeOf(accepted.archiveUrl);
    members["archiveState"] = archive;
    return members;
}

Status check(const Options& options, const std::stop_token& stop) {
    const auto bundle = openBundle(options.bundle);
    if (!bundle) {
        return bundle.error();
    }
    const auto version = bundle->shortVersion();
    const auto feed = feedFrom(options.feed, version.value_or(platform::kMissingValueMark), stop);
    if (!feed) {
        return feed.error();
    }
    const auto accepted =
        acceptedOffer(feed->body, feed->url, platform::installationOf(*bundle), now());
    if (!accepted) {
        return accepted.error();
    }
    if (options.downloads && accepted->archiveUrl.starts_with(kUnknownFolder)) {
        return updaterError(platform::SQRLUpdaterErrorCheckNotPossible,
                            "The document has no “url”: give the feed's URL to download the "
                            "archive.");
    }
    const auto archive = checkedArchive(options, *accepted, stop);
    if (!archive) {
        return archive.error();
    }
    return options.isJson ? printJson(jsonReport(*accepted, *archive))
                          : print(report(*accepted, *archive));
}

Status checkAndReport(const Options& options, const std::stop_token& stop) {
    auto refusal = check(options, stop);
    if (refusal && options.isJson) {
        if (auto error =
                printJson({{"accepted", false}, {"reason", refusal->localizedDescription}})) {
            return error;
        }
    }
    return refusal;
}

}  // namespace

void addCheck(CLI::App& program, Work& work) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand(
        "check",
        "Checks whether an installed bundle accepts the update that a feed offers. If not, prints "
        "the reason and exits with status 1. Applies neither the roll-out nor the order of "
        "documents, which depend on the computer.");
    command->add_option("feed", options->feed, "The feed's URL, or a feed document")
        ->required()
        ->type_name("URL|FILE");
    command->add_option("--bundle", options->bundle, "The installed bundle")
        ->required()
        ->type_name("BUNDLE");
    command->add_option("--archive", options->archive, "The archive to compare with the offer")
        ->type_name("ARCHIVE");
    command->add_flag("--download", options->downloads,
                      "Downloads the archive and compares its digest. Without it, a feed's URL "
                      "compares only the size that the server states");
    command->add_flag("--json", options->isJson, "Prints the result as one JSON object");
    command->callback([options, &work] {
        work = [options](const std::stop_token& stop) { return checkAndReport(*options, stop); };
    });
}

}  // namespace teravolant::release
