#include <algorithm>
#include <memory>

#include <CLI/CLI.hpp>

#include "platform/core/build_version.h"
#include "platform/core/text.h"
#include "platform/core/url.h"
#include "platform/files/files.h"
#include "platform/http/http.h"
#include "platform/system/operating_system.h"
#include "tools/commands.h"
#include "tools/identity.h"
#include "tools/offer.h"
#include "tools/output.h"
#include "update_framework/update_cycle.h"
#include "update_framework/updater_error.h"

namespace teravolant::release {
namespace {

using platform::quoted;
using platform::Result;
using platform::SQRLUpdate;
using platform::Status;
using platform::updaterError;

struct Options {
    std::string feed;
    std::string bundle;
    std::string archive;
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

Result<Feed> fetch(const std::string& url, const std::stop_token& stop) {
    auto response = platform::sendHttpRequest(
        {.url = url,
         .headers = {{"User-Agent",
                      platform::userAgent("teravolant-release", platform::buildVersion())}}},
        {.maximumBodySize = platform::kLargestFeed, .stop = stop}, platform::transferOverHttp);
    if (!response) {
        return response.error();
    }
    auto body = platform::feedIn(*std::move(response));
    if (!body) {
        return body.error();
    }
    if (!*body) {
        return updaterError(platform::SQRLUpdaterErrorInvalidServerResponse,
                            "The server offers no update (status 204).");
    }
    return Feed{.url = url, .body = **std::move(body)};
}

Result<Feed> feedFrom(const std::string& source, const std::string& version,
                      const std::stop_token& stop) {
    if (isUrl(source)) {
        return fetch(withVersion(source, version), stop);
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

Status refusalOfArchive(const std::string& file, const SQRLUpdate& offer,
                        const std::stop_token& stop) {
    const auto archive = factsOf(file, stop);
    if (!archive) {
        return archive.error();
    }
    const auto& [size, sha256] = *archive;
    if (size != offer.size) {
        return updaterError(platform::SQRLUpdaterErrorRefusedArchive,
                            "“size”: the archive has " + std::to_string(size) +
                                " bytes, the offer states " + std::to_string(*offer.size) + ".");
    }
    if (!platform::equalIgnoringCase(sha256, *offer.sha256)) {
        return updaterError(
            platform::SQRLUpdaterErrorRefusedArchive,
            "“sha256”: the archive has " + sha256 + ", the offer states " + *offer.sha256 + ".");
    }
    return std::nullopt;
}

/// A feed document read from a file does not tell in which folder the archive is.
std::string placeOf(const std::string& url) {
    return url.starts_with(kUnknownFolder)
               ? url.substr(kUnknownFolder.size()) + " in the feed's own folder"
               : url;
}

std::string report(const SQRLUpdate& offer) {
    return "accepted: version " + offer.version + ", " + std::to_string(*offer.size) +
           " bytes, from " + placeOf(offer.updateURL) + "\n";
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
    const auto offer = acceptedOffer(feed->body, feed->url, bundle->bundleIdentifier().value_or(""),
                                     platform::updatePublicKeys(*bundle));
    if (!offer) {
        return offer.error();
    }
    if (!options.archive.empty()) {
        if (auto error = refusalOfArchive(options.archive, *offer, stop)) {
            return error;
        }
    }
    return print(report(*offer));
}

}  // namespace

void addCheck(CLI::App& program, Work& work) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand(
        "check",
        "Checks whether an installed bundle accepts the update that a feed offers. If not, prints "
        "the reason and exits with status 1.");
    command->add_option("feed", options->feed, "The feed's URL, or a feed document")
        ->required()
        ->type_name("URL|FILE");
    command->add_option("--bundle", options->bundle, "The installed bundle")
        ->required()
        ->type_name("BUNDLE");
    command->add_option("--archive", options->archive, "The archive to compare with the offer")
        ->type_name("ARCHIVE");
    command->callback([options, &work] {
        work = [options](const std::stop_token& stop) { return check(*options, stop); };
    });
}

}  // namespace teravolant::release
