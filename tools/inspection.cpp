// How it works: the archive is read once. Each piece goes to the digest and to a confined process
// of this program, which unpacks it. So the signed digest is that of the inspected bytes, even if
// the file is replaced or changed in the meantime.
#include "tools/inspection.h"

#include <optional>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/core/utc_time.h"
#include "platform/crypto/digests.h"
#include "platform/files/directory_enumerator.h"
#include "platform/files/files.h"
#include "platform/files/paths.h"
#include "platform/files/private_folder.h"
#include "platform/system/confined_program.h"
#include "platform/system/executable_path.h"
#include "tools/bundle_parts.h"
#include "tools/document.h"
#include "tools/identity.h"
#include "tools/output.h"
#include "update_framework/installation.h"
#include "update_framework/tree_digest.h"

namespace teravolant::release {
namespace {

namespace fs = std::filesystem;
using platform::Result;
using platform::Status;

/// Sends the archive to the confined process and sets the size and the digest of what it sent.
Status sendArchive(const fs::path& archive, platform::ConfinedProgram& program,
                   platform::Offer& offer, const std::stop_token& stop) {
    constexpr std::size_t kPieceSize = std::size_t{256} * 1024;
    platform::Digest digest;
    const auto add = [&](std::string_view piece) -> Status {
        if (stop.stop_requested()) {
            return cancelled();
        }
        digest.update(piece);
        offer.size += piece.size();
        return program.send(piece);
    };
    auto error = platform::readInPieces(archive, kPieceSize, add);
    offer.digest = digest.finish();
    return error;
}

/// Unpacks the archive into `folder` and sets its size and digest.
Status unpack(const fs::path& archive, const fs::path& folder, platform::Offer& offer,
              const std::stop_token& stop) {
    auto program = platform::ConfinedProgram::start(
        {.name = "teravolant-release " + std::string(kUnpackArgument),
         .folder = folder,
         .errorDomain = platform::NSCocoaErrorDomain,
         .executable = platform::executablePathOfThisProcess(),
         .arguments = {std::string(kUnpackArgument)}});
    if (!program) {
        return program.error();
    }
    if (auto error = sendArchive(archive, *program, offer, stop)) {
        return error;
    }
    program->endInput();
    const auto result = program->receive();
    if (stop.stop_requested()) {
        return cancelled();
    }
    if (!result) {
        return result.error();
    }
    return result->kind == platform::FrameKind::End ? Status() : program->invalidOutput();
}

/// Returns the path of the only bundle in the folder, found as an updater finds it.
Result<fs::path> bundleIn(const fs::path& folder) {
    Status unreadable;
    platform::DirectoryEnumerator enumerator(
        folder, [&](const fs::path&, const platform::Error& error) { unreadable = error; });
    std::optional<fs::path> bundle;
    while (const auto* item = enumerator.next()) {
        if (!item->isPackage) {
            continue;
        }
        if (bundle) {
            return refused("The archive contains more than one bundle.");
        }
        bundle = item->path;
    }
    if (unreadable || !bundle) {
        return unreadable ? unreadable : refused("The archive contains no bundle.");
    }
    std::error_code unknown;
    const fs::path information = fs::canonical(*bundle / "Contents" / "Info.plist", unknown);
    if (unknown || !platform::isInside(information, fs::canonical(*bundle, unknown))) {
        return refused("The bundle in the archive has no Contents/Info.plist.");
    }
    return *bundle;
}

Status checkBuildTime(const platform::Installation& installation) {
    return installation.buildTime <= now()
               ? Status()
               : refused("The build time (TVBuildTime) of the bundle is " +
                         platform::utcTimeText(installation.buildTime) + ", later than now (" +
                         platform::utcTimeText(now()) +
                         "): the bundle would count documents as expired too early.");
}

Result<Inspection> inspectBundle(const fs::path& path, const fs::path& expected) {
    const auto bundle = openBundle(path);
    const auto identity = bundle ? identityOf(*bundle) : bundle.error();
    if (!identity) {
        return identity.error();
    }
    auto installation = platform::installationOf(*bundle);
    auto error = checkBuildTime(installation);
    error = error ? std::move(error) : checkParts(*bundle);
    if (!error && !expected.empty()) {
        error = compareBundles(*bundle, expected);
    }
    if (error) {
        return error;
    }
    // As it is staged: a bundle that its owner can't write to can't be moved.
    std::error_code failure;
    fs::permissions(path, fs::perms::owner_all, fs::perm_options::add, failure);
    auto tree = platform::digestOfTree(path);
    const auto size = sizeOfFiles(path);
    if (!tree || !size) {
        return tree ? size.error() : tree.error();
    }
    return Inspection{.offer = {.identifier = identity->identifier,
                                .version = identity->version,
                                .issued = {},
                                .digest = {},
                                .unpackedSize = *size,
                                .tree = *std::move(tree)},
                      .publicKeys = std::move(installation.publicKeys)};
}

}  // namespace

Result<Inspection> inspectArchive(const fs::path& archive, const fs::path& bundle,
                                  const std::stop_token& stop) {
    const auto folder = platform::PrivateFolder::create();
    if (!folder) {
        return folder.error();
    }
    platform::Offer measured;
    if (auto error = unpack(archive, folder->path(), measured, stop)) {
        return error;
    }
    const auto unpacked = bundleIn(folder->path());
    auto inspection = unpacked ? inspectBundle(*unpacked, bundle) : unpacked.error();
    if (inspection) {
        inspection->offer.size = measured.size;
        inspection->offer.digest = measured.digest;
    }
    return inspection;
}

}  // namespace teravolant::release
