// feed_server FOLDER https|http [stall]: serves the files of a folder on a loopback port, over
// https with a certificate of an authority of its own, or over plain http; with "stall", only the
// first half of a file of more than 64 KiB, and then nothing more. Writes into the folder, each
// file appearing whole: `authority.pem`, the authority's certificate, and then `url`, under which
// the folder's files are found; and to standard output each request's target. Runs until it is
// ended.

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "testing/certificates.h"
#include "testing/http_server.h"

namespace {

namespace fs = std::filesystem;
using namespace teravolant::fixtures;
using teravolant::platform::contentsOfFile;

/// An empty file is answered with 204; a file of the name with the query goes first. The entity tag
/// of a file is its size, which tells the contents of one run of the server apart.
ServerAnswer serve(const fs::path& folder, const ReceivedRequest& request, bool stalls) {
    constexpr std::size_t kLargest = std::size_t{64} << 10U;
    std::cout << request.target + "\n" << std::flush;
    const std::string path = request.target.substr(0, request.target.find('?'));
    for (const std::string& name : {request.target, path}) {
        if (const auto contents = contentsOfFile(folder / fs::path(name).relative_path())) {
            const std::size_t size = contents.value().size();
            auto answer =
                answerWithRange(request, contents.value(), "\"" + std::to_string(size) + "\"");
            answer.status = size == 0 ? 204 : answer.status;
            if (stalls && size > kLargest) {
                answer.stallAfter = size / 2;
            }
            return answer;
        }
    }
    return {.status = 404};
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
