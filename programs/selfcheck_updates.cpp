#include <linux/seccomp.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "platform/core/file_error.h"
#include "platform/core/http_error.h"
#include "platform/core/text.h"
#include "platform/core/utc_time.h"
#include "platform/files/files.h"
#include "platform/files/private_folder.h"
#include "platform/system/confined_program.h"
#include "platform/system/fetch_program.h"
#include "platform/system/landlock.h"
#include "platform/system/operating_system.h"
#include "programs/selfcheck.h"
#include "update_framework/feed_download.h"
#include "update_framework/installation.h"
#include "update_framework/offer_trust.h"
#include "updater/feed_location.h"

// The checks of what an update needs: unpacking, and the connection to the feed.
namespace teravolant::selfcheck {
namespace {

namespace fs = std::filesystem;
using platform::HttpOptions;
using platform::Result;
using platform::Status;

/// With these limits, a program `fetch` that hangs is killed after 3.7 seconds.
HttpOptions optionsOfTransfer() {
    return {.connectTimeout = std::chrono::milliseconds(2400),
            .stallTimeout = std::chrono::seconds(1),
            .maximumBodySize = platform::kLargestFeed};
}

constexpr std::string_view kName = "folder/program";
constexpr std::string_view kContents = "The contents of the file that is unpacked.\n";

/// Returns a tar archive (POSIX.1-1988 ustar) with one program.
std::string smallArchive() {
    constexpr std::size_t kBlock = 512;
    std::string header(kBlock, '\0');
    const auto put = [&header](std::size_t offset, std::string_view field) {
        header.replace(offset, field.size(), field);
    };
    std::array<char, 12> size{};
    std::snprintf(size.data(), size.size(), "%011zo", kContents.size());
    put(0, kName);
    put(100, "0000755");
    put(108, "0000000");
    put(116, "0000000");
    put(124, {size.data(), size.size() - 1});
    put(136, "00000000000");
    put(148, "        ");  // The checksum is computed with spaces in its own field.
    put(156, "0");
    put(257, std::string_view("ustar\00000", 8));
    unsigned sum = 0;
    for (const unsigned char byte : header) {
        sum += byte;
    }
    std::array<char, 8> checksum{};
    std::snprintf(checksum.data(), checksum.size(), "%06o", sum);
    put(148, {checksum.data(), checksum.size() - 1});
    std::string contents(kContents);
    contents.resize(kBlock, '\0');
    return header + contents + std::string(2 * kBlock, '\0');
}

Status unpackInto(const fs::path& folder) {
    auto program = platform::ConfinedProgram::start({.name = "unpack",
                                                     .folder = folder,
                                                     .errorDomain = platform::NSCocoaErrorDomain,
                                                     .patience = std::chrono::seconds(3)});
    auto error = program ? program->send(smallArchive()) : Status(program.error());
    if (error) {
        return error;
    }
    program->endInput();
    const auto result = program->receive();
    if (!result) {
        return result.error();
    }
    return result->kind == platform::FrameKind::End ? Status() : program->invalidOutput();
}

/// Returns the parts of the confinement that this kernel lacks.
std::string missingConfinement() {
    // With a null filter, a kernel that knows filters fails with EFAULT.
    const bool filters =
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, nullptr, 0, 0) != 0 && errno == EFAULT;
    if (platform::landlockVersion() > 0) {
        return filters ? "a part of it" : "seccomp";
    }
    return filters ? "Landlock" : "Landlock and seccomp";
}

bool isOutOfSpace(const platform::Error& error) {
    return error.code == platform::NSFileWriteOutOfSpaceError;
}

/// Accepts one connection and closes it at once.
class ClosingServer {
  public:
    ClosingServer() : _socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const generic = reinterpret_cast<sockaddr*>(&address);
        if (_socket && bind(_socket.get(), generic, size) == 0 && listen(_socket.get(), 1) == 0 &&
            getsockname(_socket.get(), generic, &size) == 0) {
            _port = ntohs(address.sin_port);
            std::thread([listener = _socket.get()] {
                const platform::FileDescriptor connection(
                    accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
            }).detach();
        }
    }
    ~ClosingServer() {
        // Ends a pending accept. The descriptor stays open for that thread.
        shutdown(_socket.get(), SHUT_RDWR);
        (void)_socket.release();
    }
    ClosingServer(const ClosingServer&) = delete;
    ClosingServer& operator=(const ClosingServer&) = delete;

    [[nodiscard]] int port() const { return _port; }

  private:
    platform::FileDescriptor _socket;
    int _port = 0;
};

/// Whether the TLS handshake began. Before it, the trusted certificates are read.
bool hasBegunHandshake(const platform::Error& error) {
    return error.domain == platform::kHttpErrorDomain &&
           (error.code == platform::HttpError::secureConnectionFailed ||
            error.code == platform::HttpError::connectionLost);
}

Outcome outcomeOfDocument(const platform::Bundle& bundle, const std::string& body,
                          const std::string& url) {
    const auto document = platform::signedDocumentIn(body);
    if (!document) {
        return note("feed: it is not signed: " + document.error().localizedDescription);
    }
    auto installation = platform::installationOf(bundle);
    if (platform::signersOf(*document, installation.publicKeys).empty()) {
        return failed("feed: none of this bundle's public keys signed it");
    }
    installation.acceptsBothChannels = true;
    const auto offer = platform::authenticOfferIn(*document, installation);
    const auto reason = offer ? platform::checkUsable(offer->offer, url, url, installation,
                                                      platform::currentUtcTime())
                              : platform::Status(offer.error());
    return reason
               ? note("feed: signed, but nothing is taken from it: " + reason->localizedDescription)
               : ok("feed: signed, and offers version " + document->version);
}

Outcome requestFeed(const platform::Bundle& bundle) {
    const auto location = feedLocationFor(bundle.shortVersion());
    if (!location.request.url) {
        return note("feed: the address in the preferences (updateserver) is malformed");
    }
    const std::string& url = location.request.url->absoluteString();
    auto response = platform::sendHttpRequest(
        {.url = url,
         .headers = {{"User-Agent",
                      platform::userAgent("Teravolant", bundle.shortVersion().value_or(""))}}},
        optionsOfTransfer(), platform::transferInProgram);
    if (!response) {
        return note("feed: it can't be fetched: " + response.error().localizedDescription);
    }
    const auto body = platform::feedIn(*std::move(response));
    if (!body) {
        return note("feed: " + body.error().localizedDescription);
    }
    return *body ? outcomeOfDocument(bundle, **body, url)
                 : note("feed: the server offers nothing (status 204): " + url);
}

}  // namespace

Outcome checkUnpacking() {
    const auto folder = platform::PrivateFolder::create();
    if (!folder) {
        return note("unpacking: not tried: " + folder.error().localizedDescription);
    }
    if (const auto error = unpackInto(folder->path())) {
        return isOutOfSpace(*error) ? note("unpacking: not tried: " + error->localizedDescription)
                                    : failed("unpacking", *error);
    }
    const auto contents = platform::contentsOfFile(folder->path() / kName);
    if (!contents || *contents != kContents) {
        return failed("unpacking: the program “unpack” unpacked an archive to other contents");
    }
    return platform::ConfinedProgram::anyRanUnconfined()
               ? note(
                     "unpacking: works, but “unpack” is confined in part only: this kernel lacks " +
                     missingConfinement())
               : ok("unpacking: works, and “unpack” is confined");
}

Outcome checkFetching() {
    const ClosingServer server;
    const auto response = platform::sendHttpRequest(
        {.url = "https://127.0.0.1:" + std::to_string(server.port()) + "/"}, optionsOfTransfer(),
        platform::transferInProgram);
    if (response || hasBegunHandshake(response.error())) {
        return ok("fetching: libcurl and the trusted certificates are there");
    }
    const auto& error = response.error();
    // At staging, the installed version has just fetched the update: only the new version lacks the
    // library.
    if (error.domain != platform::kHttpErrorDomain ||
        error.code == platform::HttpError::libraryMissing) {
        return failed("fetching", error);
    }
    if (error.code == platform::HttpError::certificatesUnreadable) {
        return failed(
            "fetching: the trusted certificates can't be read: install the package "
            "ca-certificates, or set SSL_CERT_FILE to their file");
    }
    return note("fetching: certificates not tried: " + error.localizedDescription);
}

Outcome checkFeed(const platform::Bundle& bundle) {
    constexpr std::chrono::seconds kLongest(4);
    auto outcome = inBackground([&bundle] { return requestFeed(bundle); });
    return outcome.wait_for(kLongest) == std::future_status::timeout
               ? note("feed: not fetched within " + std::to_string(kLongest.count()) + " seconds")
               : outcome.get();
}

}  // namespace teravolant::selfcheck
