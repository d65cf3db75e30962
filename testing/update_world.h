#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/json.h"
#include "platform/signatures.h"
#include "platform/update_framework/sqrl_updater.h"
#include "testing/http_server.h"
#include "testing/temporary_folder.h"

namespace teravolant::fixtures {

/// A publisher, a server and a machine to update, on real files: an installed bundle of version
/// 1.0.0.1 and an archive of its successor 1.0.0.2 with a signed offer. All is as it should be
/// until a test changes it, which it does before it lets a cycle run.
class UpdateWorld {
  public:
    static constexpr const char* kOldVersion = "1.0.0.1";
    static constexpr const char* kNewVersion = "1.0.0.2";

    /// `program` is copied as the executable of both bundles.
    explicit UpdateWorld(std::string bundleIdentifier,
                         const std::filesystem::path& program = "/bin/true");

    /// Makes a bundle whose files depend on the version and which accepts this publisher's offers.
    void makeBundle(const std::filesystem::path& path, const std::string& version,
                    const std::string& bundleIdentifier) const;

    /// Packs the folder `published` into `archive` and offers it.
    void publish();

    /// The signature of an offer of the archive with these words.
    [[nodiscard]] std::string signature(const platform::SigningKey& signer,
                                        const std::string& bundleIdentifier,
                                        const std::string& version) const;

    /// Offers under another version, duly signed.
    void offerAs(const std::string& version);

    /// A cycle of the installed bundle's, as `updater` reads feeds and archives.
    [[nodiscard]] platform::UpdateCycle cycle(const platform::SQRLUpdater& updater) const;

    [[nodiscard]] std::vector<ReceivedRequest> archiveRequests() const;

    /// The paths, relative to the folder, of all that an update leaves beside the bundle and in the
    /// cache, but for the lock.
    [[nodiscard]] std::vector<std::string> leftovers() const;

    /// The digest of the bundle that stands at its place; empty when none does.
    [[nodiscard]] std::string installedTree() const;

    const TemporaryFolder folder;
    const std::filesystem::path target = folder.path() / "Applications" / "Teravolant.app";
    const std::filesystem::path staging = platform::stagingFolderFor(target);
    const std::filesystem::path cache;
    /// What the archive is made from: the new bundle, in a folder.
    const std::filesystem::path published = folder.path() / "published";
    const std::filesystem::path newBundle = published / "Teravolant.app";
    const std::string identifier;
    const platform::SigningKey key = platform::SigningKey::generate().value();
    std::string archive;
    platform::JsonValue::Object offer;
    std::string oldTree;  ///< `digestOfTree` of the two bundles.
    std::string newTree;
    /// What the server answers. At first the offer, or 204 for a bundle of the new version, and the
    /// archive, whole or in part.
    HttpServer::Handler feedAnswer;
    HttpServer::Handler archiveAnswer;
    std::optional<HttpServer> server;
    std::string feedURL;

  private:
    std::filesystem::path _program;
};

}  // namespace teravolant::fixtures
