#include "testing/update_world.h"

#include <algorithm>
#include <random>
#include <stdexcept>

#include "platform/archives.h"
#include "platform/digest.h"
#include "platform/update_framework/offer_verification.h"
#include "platform/update_framework/tree_digest.h"

namespace teravolant::fixtures {
namespace {

namespace fs = std::filesystem;
using platform::PropertyListValue;

/// Bytes that no compression makes smaller, the same ones for the same version.
std::string noise(const std::string& version) {
    std::seed_seq seed(version.begin(), version.end());
    std::mt19937 generator(seed);
    std::string bytes(200'000, '\0');
    std::ranges::generate(bytes, [&generator] { return static_cast<char>(generator() & 0xFFU); });
    return bytes;
}

}  // namespace

UpdateWorld::UpdateWorld(std::string bundleIdentifier, const fs::path& program)
    : cache(folder.path() / "home/.cache" / bundleIdentifier),
      identifier(std::move(bundleIdentifier)),
      _program(program) {
    fs::create_directories(cache);
    makeBundle(target, kOldVersion, identifier);
    makeBundle(newBundle, kNewVersion, identifier);
    oldTree = platform::digestOfTree(target).value();
    newTree = platform::digestOfTree(newBundle).value();
    feedAnswer = [this](const ReceivedRequest& request) {
        return request.target.ends_with(kNewVersion)
                   ? ServerAnswer{.status = 204}
                   : ServerAnswer{.body = serialiseJson(offer).value()};
    };
    archiveAnswer = [this](const ReceivedRequest& request) {
        return answerWithRange(request, archive, "\"1\"");
    };
    server.emplace([this](const ReceivedRequest& request) {
        return request.target.starts_with("/feed") ? feedAnswer(request)
               : request.target == "/archive"      ? archiveAnswer(request)
                                                   : ServerAnswer{.status = 404};
    });
    feedURL = server->url(std::string("/feed?") + kOldVersion);
    publish();
}

void UpdateWorld::makeBundle(const fs::path& path, const std::string& version,
                             const std::string& bundleIdentifier) const {
    const fs::path contents = path.lexically_relative(folder.path()) / "Contents";
    folder.write(contents / "Info.plist",
                 serialisePropertyList(PropertyListValue::Dictionary{
                     {"CFBundleExecutable", "Teravolant"},
                     {"CFBundleIdentifier", bundleIdentifier},
                     {"CFBundleShortVersionString", version},
                     {"TVUpdatePublicKeys",
                      PropertyListValue::Array{PropertyListValue(key.publicKey().value())}}}));
    folder.write(contents / "Resources/noise", noise(version));
    folder.write(contents / "Resources/closed/file", version);
    fs::permissions(path / "Contents/Resources/closed", fs::perms::owner_write,
                    fs::perm_options::remove);
    fs::create_symlink("Resources/noise", path / "Contents/link");
    fs::create_directories(path / "Contents/MacOS");
    fs::copy_file(_program, path / "Contents/MacOS/Teravolant");
}

void UpdateWorld::publish() {
    const fs::path file = folder.path() / "archive.tar.zst";
    if (const auto error = platform::packFolder(published, file)) {
        throw std::runtime_error(printedForm(*error));
    }
    archive = platform::contentsOfFile(file).value();
    platform::Digest digest(platform::DigestAlgorithm::Sha256);
    digest.update(archive);
    offer = {{"url", server->url("/archive")},
             {"size", static_cast<std::int64_t>(archive.size())},
             {"sha256", platform::hexText(digest.finish().value())}};
    offerAs(kNewVersion);
}

std::string UpdateWorld::signature(const platform::SigningKey& signer,
                                   const std::string& bundleIdentifier,
                                   const std::string& version) const {
    const auto size = static_cast<std::uint64_t>(*offer.at("size").integer());
    return signer
        .sign(platform::signedText(bundleIdentifier, version, size, *offer.at("sha256").text()))
        .value();
}

void UpdateWorld::offerAs(const std::string& version) {
    offer["version"] = version;
    offer["signature"] = signature(key, identifier, version);
}

platform::UpdateCycle UpdateWorld::cycle(const platform::SQRLUpdater& updater) const {
    const auto installed = platform::Bundle::bundleWithPath(target).value();
    return {
        .feedURL = feedURL,
        .bundlePath = target,
        .bundleIdentifier = identifier,
        .bundleVersion = installed.textForInfoDictionaryKey("CFBundleShortVersionString").value(),
        .publicKeys = platform::updatePublicKeys(installed),
        .cacheFolder = cache,
        .updateFromJSONData = [&](std::string body) { return updater.updateFromJSONData(body); },
        .matchingBundle =
            [&](const fs::path& unpacked) {
                return updater.updateBundleMatchingCurrentApplicationInDirectory(unpacked);
            },
        .downloadBegins = [] {},
    };
}

std::vector<ReceivedRequest> UpdateWorld::archiveRequests() const {
    auto requests = server->requests();
    std::erase_if(requests, [](const auto& request) { return request.target != "/archive"; });
    return requests;
}

std::vector<std::string> UpdateWorld::leftovers() const {
    std::vector<std::string> found;
    for (const fs::path& place : {target.parent_path(), cache}) {
        for (const auto& item : fs::directory_iterator(place)) {
            if (item.path() != target && item.path().filename() != "update.lock") {
                found.push_back(item.path().lexically_relative(folder.path()));
            }
        }
    }
    return found;
}

std::string UpdateWorld::installedTree() const {
    const auto digest = platform::digestOfTree(target);
    return digest ? digest.value() : std::string();
}

}  // namespace teravolant::fixtures
