#include "tools/bundle_parts.h"

#include <fstream>
#include <map>
#include <string>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/crypto/digests.h"
#include "platform/files/files.h"
#include "tools/identity.h"
#include "update_framework/bundle_parts.h"
#include "update_framework/updater_error.h"

namespace teravolant::release {
namespace {

namespace fs = std::filesystem;
using platform::Bundle;
using platform::quoted;
using platform::Result;
using platform::Status;

Status refused(const fs::path& bundle, const fs::path& item, const std::string& reason) {
    return platform::updaterError(
        platform::SQRLUpdaterErrorRefusedBundle,
        "In the archive, " + quoted(item.lexically_relative(bundle.parent_path()).string()) + " " +
            reason);
}

Status checkClient(const fs::path& bundle) {
    const fs::path archive = bundle / "Contents" / "Resources" / "client.tar.gz";
    constexpr std::string_view kGzip = "\x1f\x8b";
    std::string start(kGzip.size(), '\0');
    std::ifstream(archive, std::ios::binary).read(start.data(), std::ssize(start));
    return start == kGzip ? Status()
                          : refused(bundle, archive,
                                    "is missing or is not a gzip archive: the launcher could "
                                    "not start the client.");
}

/// Returns the error of a check of one part, for a message about an archive.
Status inArchive(Status error) {
    if (error) {
        platform::Error described = *error;
        described.localizedDescription.insert(0, "In the archive, ");
        return described;
    }
    return error;
}

/// Returns what is compared of an item.
Result<std::string> contentOf(const fs::path& item) {
    std::error_code failure;
    const fs::file_status status = fs::symlink_status(item, failure);
    const std::string target =
        fs::is_symlink(status) ? fs::read_symlink(item, failure).string() : "";
    if (failure) {
        return platform::readError(failure.value(), item.string());
    }
    if (fs::is_symlink(status)) {
        return "link to " + target;
    }
    if (!fs::is_regular_file(status)) {
        return std::string(fs::is_directory(status) ? "folder" : "other");
    }
    platform::Digest digest;
    constexpr std::size_t kPieceSize = std::size_t{256} * 1024;
    const auto add = [&digest](std::string_view piece) {
        digest.update(piece);
        return Status();
    };
    if (auto error = platform::readInPieces(item, kPieceSize, add, platform::Links::Refuse)) {
        return error;
    }
    const bool isExecutable = (status.permissions() & fs::perms::owner_exec) != fs::perms::none;
    return (isExecutable ? "program " : "file ") + digest.finish();
}

/// Returns the contents of all items by their path in the folder.
Result<std::map<std::string, std::string>> contentsIn(const fs::path& folder) {
    std::map<std::string, std::string> contents;
    std::error_code failure;
    for (fs::recursive_directory_iterator walk(folder, failure), end; !failure && walk != end;
         walk.increment(failure)) {
        const auto content = contentOf(walk->path());
        if (!content) {
            return content.error();
        }
        contents[walk->path().lexically_relative(folder).string()] = *content;
    }
    if (failure) {
        return platform::readError(failure.value(), folder.string());
    }
    return contents;
}

}  // namespace

Status checkParts(const Bundle& bundle) {
    const fs::path& path = bundle.bundlePath();
    for (const fs::path& program : {bundle.executablePath(), bundle.helpersPath() / "fetch",
                                    bundle.helpersPath() / "unpack"}) {
        if (auto error = platform::checkProgram(path, program)) {
            return inArchive(std::move(error));
        }
    }
    if (auto error = checkClient(path)) {
        return error;
    }
    if (auto error = platform::checkAgents(path)) {
        return inArchive(std::move(error));
    }
    const auto elfFiles = platform::elfFilesIn(path);
    return elfFiles ? Status() : inArchive(elfFiles.error());
}

Status compareBundles(const Bundle& bundle, const fs::path& expected) {
    const auto named = openBundle(expected);
    if (!named) {
        return named.error();
    }
    const fs::path& path = bundle.bundlePath();
    const auto packed = identityOf(bundle);
    const auto own = identityOf(*named);
    if (packed && own && *packed != *own) {
        return refused(path, path,
                       "has the identity " + packed->identifier + " " + packed->version + "; " +
                           quoted(expected.string()) + " has " + own->identifier + " " +
                           own->version + ".");
    }
    const auto there = contentsIn(path);
    const auto wanted = contentsIn(expected);
    if (!there || !wanted) {
        return there ? wanted.error() : there.error();
    }
    for (const auto& [name, content] : *wanted) {
        const auto found = there->find(name);
        if (found == there->end() || found->second != content) {
            return refused(
                path, path / name,
                (found == there->end() ? "is missing, and is in " : "differs from that in ") +
                    quoted(expected.string()) + ".");
        }
    }
    for (const auto& [name, content] : *there) {
        if (!wanted->contains(name)) {
            return refused(path, path / name, "is not in " + quoted(expected.string()) + ".");
        }
    }
    return std::nullopt;
}

Result<std::uint64_t> sizeOfFiles(const fs::path& folder) {
    std::uint64_t size = 0;
    std::error_code failure;
    for (fs::recursive_directory_iterator walk(folder, failure), end; !failure && walk != end;
         walk.increment(failure)) {
        if (walk->is_regular_file(failure) && !walk->is_symlink(failure)) {
            size += walk->file_size(failure);
        }
    }
    if (failure) {
        return platform::readError(failure.value(), folder.string());
    }
    return size;
}

}  // namespace teravolant::release
