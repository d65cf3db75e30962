// Downloads the archive of an offer, with retries and resumption.
//
// The cache folder contains the downloaded bytes (archive.part) and a record (archive.plist) of the
// version and the digest of the archive that they belong to and of the server's validator (ETag or
// Last-Modified). The record is written when the response begins, before its first byte, so that a
// killed process leaves no part of an unknown archive.
//
// A new download removes a part whose recorded digest is not the offered one, and a file that
// another user could open. Otherwise it hashes the part, and requests the bytes behind it on
// condition that the validator still matches. A server whose content has changed, or that ignores
// the range, sends the whole body, and the part is truncated. Size and digest are checked over all
// bytes, so a wrong part can fail a download but never pass; it is then removed.
//
// During the pause before another attempt, another process may take the locks. So the part is
// opened and hashed again unless it is the same file with the same size and times.
#include "update_framework/archive_download.h"

#include <system_error>
#include <utility>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/http_error.h"
#include "platform/core/text.h"
#include "platform/crypto/digests.h"
#include "platform/files/private_file.h"
#include "platform/system/fetch_program.h"
#include "platform/system/operating_system.h"
#include "update_framework/feed_download.h"
#include "update_framework/record.h"
#include "update_framework/retry_schedule.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;

fs::path archivePath(const fs::path& folder) { return folder / "archive.part"; }
fs::path originPath(const fs::path& folder) { return folder / "archive.plist"; }

Status refused(std::string reason) {
    return updaterError(SQRLUpdaterErrorRefusedArchive,
                        "The update's archive is refused: " + std::move(reason));
}

/// Entries of the record. Without a validator the download can't be resumed.
constexpr const char* kVersion = "version";
constexpr const char* kDigest = "digest";
constexpr const char* kValidator = "validator";

/// The download of one archive.
class Download {
  public:
    Download(const UpdateCycle& cycle, const OfferedFile& offer)
        : _cycle(cycle), _offer(offer), _folder(cycle.cacheFolder), _schedule(cycle.now()) {}

    Result<DownloadedArchive> run(std::vector<NeededSpace> needs) {
        auto error = openPart();
        _furthest = _have;
        needs.push_back({.folder = _folder, .bytes = _offer.size - _have});
        if (!error) {
            error = checkFreeSpace(needs);
        }
        while (!error && (_have < _offer.size || !isOffered())) {
            error = _have < _offer.size ? attempt() : startAgain();
        }
        if (error) {
            return error;
        }
        return DownloadedArchive{.file = _file.release(), .fetched = _fetched};
    }

  private:
    /// Opens the part and hashes its bytes.
    Status openPart() {
        Record origin = readRecord(originPath(_folder));
        const bool usable = origin[kDigest] == _offer.digest;
        if (!usable) {
            removeDownloads(_folder);
        }
        _validator = usable ? origin[kValidator] : "";
        auto file = PrivateFile::open(archivePath(_folder));
        if (!file) {
            return file.error();
        }
        _file = *std::move(file);
        restartDigests();
        auto error = _file.read([this](std::string_view piece) {
            addToDigests(piece);
            return Status();
        });
        if (!error && (_have > _offer.size || (_have < _offer.size && _validator.empty()))) {
            error = truncatePart();
        }
        return error;
    }

    void restartDigests() {
        _have = 0;
        _isFromOneResponse = false;
        _digest = Digest();
    }

    void addToDigests(std::string_view bytes) {
        _digest.update(bytes);
        _have += bytes.size();
    }

    Status truncatePart() {
        restartDigests();
        return _file.truncate();
    }

    /// Requests the missing bytes. After a failure that can pass, waits for the next attempt.
    Status attempt() {
        HttpRequest request{
            .url = _offer.url,
            .headers = {{"User-Agent", userAgent("Teravolant", _cycle.installation.bundleVersion)}},
            .wanted = WantedBodies::Contents};
        if (_have > 0) {
            request.resumption = HttpResumption{.offset = _have, .validator = _validator};
        }
        const HttpBodyReceiver receiver{
            .begin = [this](const HttpResponse& response) { return begin(response); },
            .receive = [this](std::string_view bytes) { return receive(bytes); }};
        const auto response = transferInProgram(request, receiver, _cycle.transfer);
        const auto error = response ? errorOfResponse(*response) : Status(response.error());
        if (!error) {
            return error;
        }
        const bool wholeIsNeeded = response ? response->status == 416
                                            : error->domain == kHttpErrorDomain &&
                                                  error->code == HttpError::unexpectedRange;
        if (wholeIsNeeded) {
            // The same request would get the same response.
            if (auto failure = truncatePart()) {
                return failure;
            }
        }
        const bool canPass = isTransient(*error) || (response && isTransient(response->status));
        if (!wholeIsNeeded && !canPass) {
            return error->code == NSFileWriteOutOfSpaceError
                       ? outOfSpaceError(_folder, _offer.size - _have)
                       : error;
        }
        return pause(*error, response ? response->retryAfter : std::nullopt);
    }

    /// Returns `error` if the attempt was the last.
    Status pause(const Error& error, std::optional<std::chrono::seconds> retryAfter) {
        if (_have > _furthest) {
            _furthest = _have;
            _schedule.restart(_cycle.now());
        }
        const auto next = _schedule.next(_cycle.now(), retryAfter);
        if (!next) {
            return error;
        }
        if (auto failure = _file.recordState()) {
            return failure;
        }
        if (auto failure = pauseBeforeRetry(_cycle, *next, error)) {
            return failure;
        }
        return _file.isUnchanged() ? Status() : openPart();
    }

    Status errorOfResponse(const HttpResponse& response) {
        if (response.status != 200 && response.status != 206) {
            return unexpectedStatus("the update's archive", response);
        }
        if (_have < _offer.size && !response.contentLength) {
            return httpError(HttpError::connectionLost,
                             "The connection was lost: the archive's end did not arrive.");
        }
        if (_have < _offer.size) {
            removeDownloads(_folder);
            return refused("it ends after " + std::to_string(_have) + " of " +
                           std::to_string(_offer.size) + " bytes.");
        }
        return std::nullopt;
    }

    Status begin(const HttpResponse& response) {
        if (response.bodyOffset != _have) {
            if (auto error = truncatePart()) {
                return error;
            }
        }
        _isFromOneResponse = _have == 0;
        if (response.contentLength && *response.contentLength > _offer.size - _have) {
            return refused("the server has more than the " + std::to_string(_offer.size) +
                           " offered bytes.");
        }
        // A response with a part may omit the validator that the request named.
        const std::string validator = resumptionValidator(response);
        if (response.bodyOffset == 0 || !validator.empty()) {
            _validator = validator;
        }
        return writeRecord(
            originPath(_folder),
            {{kVersion, _offer.version}, {kDigest, _offer.digest}, {kValidator, _validator}});
    }

    Status receive(std::string_view bytes) {
        if (bytes.size() > _offer.size - _have) {
            removeDownloads(_folder);
            return refused("the server sends more than the " + std::to_string(_offer.size) +
                           " offered bytes.");
        }
        if (auto error = _file.append(bytes)) {
            return error;
        }
        addToDigests(bytes);
        _fetched += bytes.size();
        if (_cycle.progress) {
            _cycle.progress(_have, _offer.size);
        }
        return std::nullopt;
    }

    /// Called once for each complete part.
    bool isOffered() { return _digest.finish() == _offer.digest; }

    /// After a complete part with another digest. If its bytes did not come in one response, a
    /// power failure or a change on the server may have spoiled it: fetches the whole archive once.
    Status startAgain() {
        if (!_isFromOneResponse && !std::exchange(_hasStartedAgain, true)) {
            return truncatePart();
        }
        removeDownloads(_folder);
        return refused("its digest is not the one in the offer.");
    }

    const UpdateCycle& _cycle;
    const OfferedFile& _offer;
    const fs::path& _folder;
    RetrySchedule _schedule;
    PrivateFile _file;
    std::string _validator;
    std::uint64_t _have = 0;      ///< The bytes in the part, all of them hashed.
    std::uint64_t _furthest = 0;  ///< The most bytes at the end of an earlier attempt.
    std::uint64_t _fetched = 0;
    bool _isFromOneResponse = false;
    bool _hasStartedAgain = false;
    Digest _digest;
};

}  // namespace

Result<DownloadedArchive> downloadArchive(const UpdateCycle& cycle, const OfferedFile& archive,
                                          const std::vector<NeededSpace>& otherNeeds) {
    return Download(cycle, archive).run(otherNeeds);
}

std::string downloadedVersion(const fs::path& cacheFolder) {
    return readRecord(originPath(cacheFolder))[kVersion];
}

void removeDownloads(const fs::path& cacheFolder) {
    std::error_code notThere;
    fs::remove(archivePath(cacheFolder), notThere);
    fs::remove(originPath(cacheFolder), notThere);
}

}  // namespace teravolant::platform
