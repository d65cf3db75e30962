#include <memory>

#include <CLI/CLI.hpp>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/crypto/signing_key.h"
#include "platform/files/files.h"
#include "tools/acceptance.h"
#include "tools/commands.h"
#include "tools/document.h"
#include "tools/key_source.h"
#include "tools/offer_text.h"
#include "tools/output.h"
#include "tools/signing.h"
#include "tools/terms.h"
#include "update_framework/updater_error.h"

namespace teravolant::release {
namespace {

using platform::Result;
using platform::Status;

struct Options {
    std::string document;
    KeyOptions key;
    TermOptions terms;
    std::string output;
    bool isRotation = false;
    std::vector<std::string> publicKeys;
};

Result<FeedDocument> documentFrom(const std::string& file) {
    const auto body = platform::contentsOfFile(file);
    return body ? documentIn(*body, file) : body.error();
}

/// Changes the terms and the time of signing, and replaces the signatures.
Status renewDocument(const Options& options, const DocumentPlace& place, const Signer& signer,
                     FeedDocument& document) {
    const auto& keys = signer.publicKeys;
    const auto issued = nextIssue(followed(document, keys, options.isRotation), now());
    const auto afterPrevious =
        issued ? nextIssue(followed(place.previous(), keys, options.isRotation), *issued) : issued;
    if (!afterPrevious) {
        return afterPrevious.error();
    }
    document.offer.issued = *afterPrevious;
    if (auto error = applyTerms(options.terms, document.offer)) {
        return error;
    }
    auto text = offerText(document.offer, otherLinesIn(document.text));
    if (!text) {
        return text.error();
    }
    document.text = *std::move(text);
    document.signatures.clear();
    if (auto error = signWith(signer, document)) {
        return error;
    }
    return place.checkSuccession(document.offer, SameArchive::Accept);
}

/// Checks the document as an installation of an old build would. The offered version itself may be
/// withdrawn: installations discard it where it is staged.
Status checkDocument(const FeedDocument& document, const std::vector<std::string>& publicKeys) {
    const auto body = documentBody(document);
    if (!body) {
        return body.error();
    }
    const auto oldest = oldestInstallation(document.offer, publicKeys);
    const auto offer = authenticOffer(*body, unknownFeedUrl(oldest.bundleVersion), oldest);
    if (!offer) {
        return offer.error();
    }
    return platform::checkNotExpired(offer->offer, oldest, now())
               ? refused(
                     "The document has expired. Extend it with --expires-in, or use --no-expiry.")
               : Status();
}

/// Fails unless a known key signed the document: a key of the command or, during a change of keys,
/// a public key in the options.
Status checkOrigin(const Options& options, const FeedDocument& document, const Signer& signer) {
    if (!options.isRotation) {
        return checkKeepsSigners(document, {}, signer.publicKeys, false);
    }
    std::vector<std::string> known = signer.publicKeys;
    known.insert(known.end(), options.publicKeys.begin(), options.publicKeys.end());
    return signersOf(document, known).empty()
               ? refused("No known key signed " + platform::quoted(options.document) +
                         ". Name the public key that signed it with --public-key.")
               : Status();
}

/// Returns the address or the name of the archive, which is not signed.
std::string addressOf(const FeedDocument& document) {
    const auto url = document.members.find("url");
    const auto& member = url != document.members.end() ? url : document.members.find("name");
    const bool isText = member != document.members.end() && member->second.text() != nullptr;
    return isText ? platform::escaped(*member->second.text()) : "";
}

Status renew(const Options& options, const std::stop_token& stop) {
    if (auto error = refusalOfOutput(options.output, keyFilesOf(options.key))) {
        return error;
    }
    const auto signer = signerFrom(options.key, stop);
    if (!signer) {
        return signer.error();
    }
    const auto place = DocumentPlace::open(options.output);
    if (!place) {
        return place.error();
    }
    auto document = documentFrom(options.document);
    if (!document) {
        return document.error();
    }
    auto error = checkOrigin(options, *document, *signer);
    error = error ? std::move(error) : renewDocument(options, *place, *signer, *document);
    error = error ? std::move(error) : checkDocument(*document, signer->publicKeys);
    error = error ? std::move(error) : place->replace(*document);
    return error
               ? std::move(error)
               : print("renewed: version " + document->offer.version + "\n" +
                       describedTerms(document->offer, now()) +
                       "archive:   " + addressOf(*document) + "\nUpload " + options.output + "\n");
}

}  // namespace

void addRenew(CLI::App& program, Work& work) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand(
        "renew",
        "Signs a published document again, without the bundle. Only changes the roll-out, "
        "the withdrawals, the floor, the expiry and the time of signing.");
    command->add_option("document", options->document, "The published document")
        ->required()
        ->type_name("DOCUMENT");
    addKeyOptions(*command, options->key);
    addFurtherKeys(*command, options->key);
    addTermOptions(*command, options->terms);
    addDropOptions(*command, options->terms);
    command->add_flag("--no-expiry", options->terms.dropsExpiry, "Removes the expiry")
        ->excludes("--expires-in");
    command->add_flag("--rotate", options->isRotation,
                      "Confirms that the keys are not those that signed the document");
    command
        ->add_option("--public-key", options->publicKeys,
                     "With --rotate: the public key of a key that signed the document")
        ->type_name("KEY")
        ->needs("--rotate");
    command->add_option("--output", options->output, "The new document, which may replace the old")
        ->required()
        ->type_name("FILE");
    command->callback([options, &work] {
        work = [options](const std::stop_token& stop) { return renew(*options, stop); };
    });
}

}  // namespace teravolant::release
