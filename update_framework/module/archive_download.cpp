// Downloads the archive of an offer, with resumption.
//
// The cache folder contains the downloaded bytes (archive.part) and a record (archive.plist) of the
// SHA-256 of the archive that they belong to and of the server's validator (ETag or Last-Modified).
// The record is written when the response begins, before its first byte, so that a killed process
// leaves no part of an unknown archive.
//
// A new download removes a part whose recorded digest is not the offered one. Otherwise it hashes
// the part, and requests the bytes behind it on condition that the validator still matches. A
// server whose content has changed, or that ignores the range, sends the whole body, and the part
// is truncated. Size and digest are checked over all bytes, so a wrong part can fail a download but
// never pass; it is then removed, and the next download starts at the beginning.
#include "update_framework/module/archive_download.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/crypto/digests.h"
#include "platform/crypto/encodings.h"
#include "platform/files/files.h"
#include "platform/http/http.h"
#include "platform/http/http_error.h"
#include "update_framework/record.h"
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
constexpr const char* kDigest = "sha256";
constexpr const char* kValidator = "validator";

/// The download of one archive.
class Download {
  public:
    Download(const SQRLUpdate& offer, const fs::path& folder) : _offer(offer), _folder(folder) {}

    Result<fs::path> run() {
        auto error = openPart();
        if (!error && _have < *_offer.size) {
            error = fetch();
        }
        if (!error) {
            error = compareDigest();
        }
        if (error) {
            return error;
        }
        return archivePath(_folder);
    }

  private:
    /// Opens the part, hashes its bytes, and checks that the disk has space for the rest.
    Status openPart() {
        Record origin = readRecord(originPath(_folder));
        const bool usable = equalIgnoringCase(origin[kDigest], *_offer.sha256);
        if (!usable) {
            removeDownloads(_folder);
        }
        _validator = usable ? origin[kValidator] : "";
        _file = FileDescriptor(open(archivePath(_folder).c_str(),
                                    O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (!_file) {
            return writeFailure(errno);
        }
        auto error = hashPart();
        if (!error && (_have > *_offer.size || (_have < *_offer.size && _validator.empty()))) {
            error = truncatePart();
        }
        return error ? error : checkSpace();
    }

    Status hashPart() {
        constexpr std::size_t kPieceSize = 65536;
        return readInPieces(archivePath(_folder), kPieceSize, [this](std::string_view piece) {
            _digest.update(piece);
            _have += piece.size();
            return Status();
        });
    }

    Status truncatePart() {
        if (ftruncate(_file.get(), 0) != 0) {
            return writeFailure(errno);
        }
        _have = 0;
        _digest = Digest(DigestAlgorithm::Sha256);
        return std::nullopt;
    }

    Status checkSpace() {
        std::error_code unknown;
        const auto space = fs::space(_folder, unknown);
        const std::uint64_t missing = *_offer.size - _have;
        if (!unknown && space.available < missing) {
            return errorFromErrno(ENOSPC, FileAccess::Write,
                                  "The update needs " + std::to_string(missing) +
                                      " more bytes in " + quoted(_folder.string()) + ", where " +
                                      std::to_string(space.available) + " are free");
        }
        return std::nullopt;
    }

    Status fetch() {
        HttpRequest request{.url = _offer.updateURL};
        if (_have > 0) {
            request.resumption = HttpResumption{.offset = _have, .validator = _validator};
        }
        const HttpBodyReceiver receiver{
            .begin = [this](const HttpResponse& response) { return begin(response); },
            .receive = [this](std::string_view bytes) { return receive(bytes); }};
        const auto response = streamHttpBody(request, receiver);
        if (!response) {
            // The same request would get the same response: request the whole body next time.
            if (response.error().code == HttpError::unexpectedRange) {
                removeDownloads(_folder);
            }
            return response.error();
        }
        const int status = response->status;
        if (status != 200 && status != 206) {
            if (status == 416) {
                removeDownloads(_folder);
            }
            return updaterError(SQRLUpdaterErrorInvalidServerResponse,
                                "The server responded to the request for the update's archive with "
                                "status " +
                                    std::to_string(status) + ".");
        }
        if (_have < *_offer.size) {
            return refused("it ends after " + std::to_string(_have) + " of " +
                           std::to_string(*_offer.size) + " bytes.");
        }
        return std::nullopt;
    }

    Status begin(const HttpResponse& response) {
        if (response.bodyOffset != _have) {
            if (auto error = truncatePart()) {
                return error;
            }
        }
        if (response.contentLength && _have + *response.contentLength > *_offer.size) {
            return refused("the server has more than the " + std::to_string(*_offer.size) +
                           " offered bytes.");
        }
        // A response with a part may omit the validator that the request named.
        const std::string validator = resumptionValidator(response);
        if (response.bodyOffset == 0 || !validator.empty()) {
            _validator = validator;
        }
        return writeRecord(originPath(_folder),
                           {{kDigest, *_offer.sha256}, {kValidator, _validator}});
    }

    Status receive(std::string_view bytes) {
        if (bytes.size() > *_offer.size - _have) {
            removeDownloads(_folder);
            return refused("the server sends more than the " + std::to_string(*_offer.size) +
                           " offered bytes.");
        }
        _digest.update(bytes);
        _have += bytes.size();
        const int failure = writeAll(_file.get(), bytes);
        return failure == 0 ? Status() : writeFailure(failure);
    }

    Status compareDigest() {
        auto digest = _digest.finish();
        if (!digest) {
            return digest.error();
        }
        if (!equalIgnoringCase(hexText(*digest), *_offer.sha256)) {
            removeDownloads(_folder);
            return refused("its SHA-256 is not the one in the offer.");
        }
        return std::nullopt;
    }

    [[nodiscard]] Status writeFailure(int errorNumber) const {
        return writeError(errorNumber, archivePath(_folder).string());
    }

    const SQRLUpdate& _offer;
    const fs::path& _folder;
    FileDescriptor _file;
    std::string _validator;
    std::uint64_t _have = 0;  ///< The bytes in the part, all of them hashed.
    Digest _digest{DigestAlgorithm::Sha256};
};

}  // namespace

Result<fs::path> downloadArchive(const SQRLUpdate& offer, const fs::path& cacheFolder) {
    return Download(offer, cacheFolder).run();
}

void removeDownloads(const fs::path& cacheFolder) {
    std::error_code notThere;
    fs::remove(archivePath(cacheFolder), notThere);
    fs::remove(originPath(cacheFolder), notThere);
}

}  // namespace teravolant::platform
