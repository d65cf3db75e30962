#include "tools/archive_request.h"

#include "platform/core/build_version.h"
#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/crypto/digests.h"
#include "platform/files/files.h"
#include "platform/http/http.h"
#include "platform/system/operating_system.h"
#include "tools/output.h"
#include "update_framework/feed_download.h"
#include "update_framework/updater_error.h"

namespace teravolant::release {
namespace {

using platform::HttpResponse;
using platform::Result;
using platform::Status;
using platform::updaterError;

platform::HttpHeader agent() {
    return {"User-Agent", platform::userAgent("teravolant-release", platform::buildVersion())};
}

Status badStatus(const HttpResponse& response) {
    return updaterError(platform::SQRLUpdaterErrorInvalidServerResponse,
                        "The server responded to the request for the archive with status " +
                            std::to_string(response.status) + ": " +
                            platform::escaped(response.url));
}

}  // namespace

Result<std::string> requestFeed(const std::string& url, const std::stop_token& stop) {
    auto response = platform::sendHttpRequest(
        {.url = url, .headers = {agent()}},
        {.maximumBodySize = platform::kLargestFeed, .stop = stop}, platform::transferOverHttp);
    auto body = response ? platform::feedIn(*std::move(response)) : response.error();
    if (!body) {
        return body.error();
    }
    if (!*body) {
        return updaterError(platform::SQRLUpdaterErrorInvalidServerResponse,
                            "The server offers no update (status 204).");
    }
    return **std::move(body);
}

Result<std::optional<std::uint64_t>> requestSize(const std::string& url,
                                                 const std::stop_token& stop) {
    std::optional<HttpResponse> head;
    // The head is enough: the error ends the transfer before the body, also that of a server that
    // ignores the range.
    const auto begin = [&head](const HttpResponse& response) {
        head = response;
        return badStatus(response);
    };
    const auto response = platform::transferOverHttp(
        {.url = url, .headers = {agent(), {"Range", "bytes=0-0"}}},
        {.begin = begin, .receive = [](std::string_view) { return Status(); }}, {.stop = stop});
    if (!head) {
        return response ? badStatus(*response) : Status(response.error());
    }
    if (head->status != 200 && head->status != 206) {
        return badStatus(*head);
    }
    return head->status == 206 ? head->completeLength : head->contentLength;
}

Result<ArchiveBytes> downloadBytes(const std::string& url, std::uint64_t most,
                                   const std::stop_token& stop) {
    platform::Digest digest;
    ArchiveBytes bytes;
    const auto add = [&](std::string_view piece) {
        digest.update(piece);
        bytes.size += piece.size();
        return Status();
    };
    const auto response = platform::transferOverHttp(
        {.url = url, .headers = {agent()}, .wanted = platform::WantedBodies::Contents},
        {.receive = add}, {.maximumBodySize = most, .stop = stop});
    if (!response || response->status != 200) {
        return response ? badStatus(*response) : Status(response.error());
    }
    bytes.digest = digest.finish();
    return bytes;
}

Result<ArchiveBytes> readBytes(const std::string& file, const std::stop_token& stop) {
    constexpr std::size_t kPieceSize = std::size_t{1} << 18U;
    platform::Digest digest;
    ArchiveBytes bytes;
    const auto add = [&](std::string_view piece) -> Status {
        if (stop.stop_requested()) {
            return cancelled();
        }
        digest.update(piece);
        bytes.size += piece.size();
        return std::nullopt;
    };
    if (auto error = platform::readInPieces(file, kPieceSize, add)) {
        return error;
    }
    bytes.digest = digest.finish();
    return bytes;
}

}  // namespace teravolant::release
