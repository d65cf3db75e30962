#include "update_framework/module/archive_download.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
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

Error refused(std::string reason) {
    return updaterError(SQRLUpdaterErrorRefusedArchive,
                        "The update's archive is refused: " + std::move(reason));
}

/// What is recorded of the part in the cache: the digest of what it is a part of, and the validator
/// with which the server can be asked for the rest, which may be empty.
constexpr const char* kDigest = "sha256";
constexpr const char* kValidator = "validator";

/// One archive on its way into the cache.
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
    /// Opens the part, takes the bytes that are there into the digest, and checks that there is
    /// room for the rest.
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
        auto error = readPart();
        if (!error && (_have > *_offer.size || (_have < *_offer.size && _validator.empty()))) {
            error = startAfresh();
        }
        return error ? error : checkSpace();
    }

    Status readPart() {
        constexpr std::size_t kPieceSize = 65536;
        return readInPieces(archivePath(_folder), kPieceSize, [this](std::string_view piece) {
            _digest.update(piece);
            _have += piece.size();
            return Status();
        });
    }

    Status startAfresh() {
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
                                      " more bytes in “" + _folder.string() + "”, where " +
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
            // The same request would bring the same answer for ever: the next one asks for all.
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
                                "The server answered the request for the update's archive with "
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
            if (auto error = startAfresh()) {
                return error;
            }
        }
        if (response.contentLength && _have + *response.contentLength > *_offer.size) {
            return refused("the server has more than the " + std::to_string(*_offer.size) +
                           " bytes that were offered.");
        }
        // Written before the first byte: whatever ends this program, the next start knows what the
        // part belongs to.
        // The answer with a part may leave out what it was asked by.
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
                           " bytes that were offered.");
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
            return refused("its SHA-256 is not the one that was offered.");
        }
        return std::nullopt;
    }

    [[nodiscard]] Error writeFailure(int errorNumber) const {
        return errorFromErrno(errorNumber, FileAccess::Write,
                              "“" + archivePath(_folder).string() + "” could not be written");
    }

    const SQRLUpdate& _offer;
    const fs::path& _folder;
    FileDescriptor _file;
    std::string _validator;
    std::uint64_t _have = 0;  ///< Bytes in the file and in the digest.
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
