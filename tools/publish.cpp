// How it works: the bundle is packed into a hidden file of the folder, inspected, run and signed.
// Then the archive gets its name, and after that the document is replaced, so that a document never
// names an archive that is not there. The folder is locked for all of it.
#include <filesystem>
#include <memory>

#include <CLI/CLI.hpp>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/core/text.h"
#include "platform/crypto/signing_key.h"
#include "platform/files/durable_file.h"
#include "platform/files/files.h"
#include "platform/files/private_folder.h"
#include "tools/acceptance.h"
#include "tools/archive_request.h"
#include "tools/commands.h"
#include "tools/document.h"
#include "tools/identity.h"
#include "tools/inspection.h"
#include "tools/key_source.h"
#include "tools/offer_text.h"
#include "tools/output.h"
#include "tools/packing.h"
#include "tools/signing.h"
#include "tools/terms.h"
#include "update_framework/updater_error.h"
#include "update_framework/validation.h"

namespace teravolant::release {
namespace {

namespace fs = std::filesystem;
using platform::Result;
using platform::Status;

/// The last component of the address of both feeds.
constexpr const char* kDocumentName = "release.mac";

struct Options {
    std::string bundle;
    KeyOptions key;
    TermOptions terms;
    std::string folder;
    bool isRotation = false;
    bool isJson = false;
};

/// A packed archive that the destructor removes unless it was moved.
class UnpublishedArchive {
  public:
    explicit UnpublishedArchive(fs::path path) : _path(std::move(path)) {}
    ~UnpublishedArchive() {
        std::error_code missing;
        fs::remove(_path, missing);
    }
    UnpublishedArchive(const UnpublishedArchive&) = delete;
    UnpublishedArchive& operator=(const UnpublishedArchive&) = delete;

    [[nodiscard]] const fs::path& path() const { return _path; }

    /// Atomically and durably moves the archive, replacing a file at `target`.
    [[nodiscard]] Status moveTo(const fs::path& target) const {
        if (auto error = platform::moveItem(_path, target)) {
            return error;
        }
        const int failure = platform::flushFolderOf(target);
        return failure == 0 ? Status() : platform::writeError(failure, target.string());
    }

  private:
    fs::path _path;
};

/// Returns the name of the archive, which contains the version: caches never mix two of them.
Result<std::string> archiveName(const std::string& bundle, const Identity& identity) {
    std::error_code unresolved;
    std::string name =
        fs::canonical(bundle, unresolved).stem().string() + "-" + identity.version + ".tar.zst";
    auto error = refusalOfName(name);
    return error ? Result<std::string>(std::move(error)) : name;
}

/// Returns the offer of the inspected archive. Floor and withdrawals of the document that is
/// replaced continue to hold: the computers that they are for may still run those versions.
Result<platform::Offer> offerOf(const Options& options, const Inspection& inspection,
                                const std::optional<FeedDocument>& previous,
                                const std::vector<std::string>& signers) {
    const auto issued = nextIssue(followed(previous, signers, options.isRotation), now());
    if (!issued) {
        return issued.error();
    }
    platform::Offer offer = inspection.offer;
    offer.issued = *issued;
    if (previous && previous->offer.expires && !options.terms.expiresIn &&
        !options.terms.dropsExpiry) {
        return refused(
            "The document in the folder expires. State --expires-in for this one, or --no-expiry.");
    }
    if (previous) {
        offer.floor = previous->offer.floor;
        offer.withdrawn = previous->offer.withdrawn;
    }
    auto error = applyTerms(options.terms, offer);
    if (!error && platform::withdraws(offer, offer.version)) {
        error = refused(
            "The offer withdraws its own version. --no-withdrawals removes the withdrawals of the "
            "document in the folder.");
    }
    return error ? Result<platform::Offer>(std::move(error)) : offer;
}

/// Returns the signed document, checked as an installation of an old build would check it.
Result<FeedDocument> signedDocument(const Options& options, const Inspection& inspection,
                                    const DocumentPlace& place, const Signer& signer,
                                    const std::string& name) {
    auto offer = offerOf(options, inspection, place.previous(), signer.publicKeys);
    auto text = offer ? offerText(*offer) : offer.error();
    if (!text) {
        return text.error();
    }
    FeedDocument document{.members = {{"name", name}},
                          .text = *std::move(text),
                          .offer = *std::move(offer),
                          .signatures = {}};
    const auto& keys = signer.publicKeys;
    auto error = signWith(signer, document);
    error = error ? std::move(error) : place.checkSuccession(document.offer, SameArchive::Refuse);
    error = error ? std::move(error) : checkKeysOf(inspection.publicKeys, keys, options.isRotation);
    error = error ? std::move(error)
                  : checkKeepsSigners(place.previous(), document, keys, options.isRotation);
    const auto body = documentBody(document);
    if (error || !body) {
        return error ? std::move(error) : Status(body.error());
    }
    const auto oldest = oldestInstallation(document.offer, keys);
    const auto accepted = acceptedOffer(*body, unknownFeedUrl(oldest.bundleVersion), oldest, now());
    return accepted ? Result<FeedDocument>(std::move(document)) : accepted.error();
}

Status report(const Options& options, const platform::Offer& offer, const fs::path& archive) {
    const fs::path document = fs::path(options.folder) / kDocumentName;
    if (options.isJson) {
        auto members = membersOf(offer);
        members["archive"] = archive.string();
        members["document"] = document.string();
        return printJson(members);
    }
    return print("published: version " + offer.version + " of " + offer.identifier + "\n" +
                 describedTerms(offer, now()) + "digest:    " + offer.digest +
                 "\nUpload in this order:\n  1. " + archive.string() + " (" +
                 std::to_string(offer.size) + " bytes)\n  2. " + document.string() +
                 ", when the archive can be downloaded\nThen: teravolant-release check URL "
                 "--bundle INSTALLED-BUNDLE\n");
}

/// Fails if another archive was published under this name: caches may keep it.
Status checkReplaces(const fs::path& target, const platform::Offer& offer,
                     const std::stop_token& stop) {
    if (!platform::fileExists(target)) {
        return std::nullopt;
    }
    const auto bytes = readBytes(target.string(), stop);
    return bytes && bytes->digest == offer.digest
               ? Status()
               : refused(platform::quoted(target.string()) +
                         " exists with other contents. Remove it if it was never uploaded, else "
                         "build with a higher version.");
}

/// Runs the bundle's own check from its own place: a temporary folder may not allow programs.
Status checkRunsHere(const std::string& bundle) {
    std::error_code unresolved;
    const auto folder = platform::PrivateFolder::create();
    return folder ? platform::runSelfCheck(fs::canonical(bundle, unresolved), {"--offline"},
                                           folder->path() / "home")
                  : Status(folder.error());
}

Status publishInto(const Options& options, const DocumentPlace& place, const Signer& signer,
                   const std::string& name, const std::stop_token& stop) {
    const fs::path target = fs::path(options.folder) / name;
    const UnpublishedArchive archive(fs::path(options.folder) / ("." + name + ".unpublished"));
    if (auto error = packBundle(options.bundle, archive.path().string(), stop)) {
        return error;
    }
    const auto inspection = inspectArchive(archive.path(), options.bundle, stop);
    if (!inspection) {
        return inspection.error();
    }
    if (auto error = checkRunsHere(options.bundle)) {
        return error;
    }
    const auto document = signedDocument(options, *inspection, place, signer, name);
    if (!document) {
        return document.error();
    }
    if (stop.stop_requested()) {
        return cancelled();
    }
    auto error = checkReplaces(target, inspection->offer, stop);
    error = error ? std::move(error) : archive.moveTo(target);
    error = error ? std::move(error) : place.replace(*document);
    if (error) {
        return error;
    }
    const auto unprinted = report(options, document->offer, target);
    return unprinted ? refused("The update is published, but: " + unprinted->localizedDescription)
                     : Status();
}

/// Fails if the archive or the document would replace something else.
Status checkOutputs(const Options& options, const std::string& name) {
    std::vector<std::string> inputs = keyFilesOf(options.key);
    inputs.push_back(options.bundle);
    auto error = refusalOfOutput(fs::path(options.folder) / name, inputs);
    return error ? error : refusalOfOutput(fs::path(options.folder) / kDocumentName, inputs);
}

Status publish(const Options& options, const std::stop_token& stop) {
    const auto bundle = openBundle(options.bundle);
    const auto identity = bundle ? identityOf(*bundle) : bundle.error();
    const auto name = identity ? archiveName(options.bundle, *identity) : identity.error();
    if (!name) {
        return name.error();
    }
    if (auto error = checkOutputs(options, *name)) {
        return error;
    }
    const auto signer = signerFrom(options.key, stop);
    if (!signer) {
        return signer.error();
    }
    if (auto error = platform::createDirectory(options.folder)) {
        return error;
    }
    const auto place = DocumentPlace::open(fs::path(options.folder) / kDocumentName);
    if (!place) {
        return place.error();
    }
    // Also checked here, before the archive, which takes time to make.
    platform::Offer offer;
    offer.identifier = identity->identifier;
    offer.version = identity->version;
    if (auto error = place->checkSuccession(offer, SameArchive::Refuse)) {
        return error;
    }
    return publishInto(options, *place, *signer, *name, stop);
}

}  // namespace

void addPublish(CLI::App& program, Work& work) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand("publish",
                                               "Packs a bundle, inspects the archive, lets the "
                                               "bundle check itself here, signs it, checks the "
                                               "document as an installed bundle "
                                               "would, and prints what to upload.");
    command->add_option("bundle", options->bundle, "The bundle, for example Teravolant.app")
        ->required()
        ->type_name("BUNDLE");
    addKeyOptions(*command, options->key);
    addFurtherKeys(*command, options->key);
    command
        ->add_option("--output", options->folder,
                     "The folder for the archive and the document, one for each feed")
        ->required()
        ->type_name("FOLDER");
    addTermOptions(*command, options->terms);
    addDropOptions(*command, options->terms);
    command->add_flag("--rotate", options->isRotation,
                      "Confirms that the bundle, or the replaced document, is for another key");
    command->add_flag("--json", options->isJson, "Prints the result as one JSON object");
    command->callback([options, &work] {
        work = [options](const std::stop_token& stop) { return publish(*options, stop); };
    });
}

}  // namespace teravolant::release
