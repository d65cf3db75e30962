// feed_server FOLDER SCHEME [stall]: serves the files of a folder on a loopback port, over https
// with a certificate of an authority of its own, or over plain http; with "stall", only the first
// half of a file of more than 64 KiB, and then nothing more. Writes into the folder, each file
// appearing whole: `authority.pem`, the authority's certificate, and then `url`, under which the
// folder's files are found. Runs until it is ended.

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "testing/certificates.h"
#include "testing/http_server.h"

namespace {

namespace fs = std::filesystem;
using namespace teravolant::fixtures;

/// The entity tag tells contents apart as far as one run of the server needs it.
ServerAnswer serve(const fs::path& folder, const ReceivedRequest& request, bool stalls) {
    constexpr std::size_t kLargest = std::size_t{64} << 10U;
    const fs::path path = request.target.substr(0, request.target.find('?'));
    const auto contents = teravolant::platform::contentsOfFile(folder / path.relative_path());
    if (!contents) {
        return {.status = 404};
    }
    const std::string tag = std::to_string(std::hash<std::string>()(contents.value()));
    ServerAnswer answer = answerWithRange(request, contents.value(), "\"" + tag + "\"");
    if (stalls && contents.value().size() > kLargest) {
        answer.stallAfter = contents.value().size() / 2;
    }
    return answer;
}

void writeWhole(const fs::path& file, const std::string& text) {
    std::ofstream(file.string() + ".part") << text;
    fs::rename(file.string() + ".part", file);
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc < 3) {
        std::cerr << "usage: feed_server FOLDER https|http [stall]\n";
        return EXIT_FAILURE;
    }
    const fs::path folder = argv[1];
    const CertificateAuthority authority;
    const HttpServer server(
        [&](const ReceivedRequest& request) { return serve(folder, request, argc > 3); },
        std::string_view(argv[2]) == "http" ? std::nullopt : std::optional(authority.issue()));
    writeWhole(folder / "authority.pem", authority.certificate());
    writeWhole(folder / "url", server.url("", "localhost"));
    pause();
}
