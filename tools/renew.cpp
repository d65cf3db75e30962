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
};

Result<FeedDocument> documentFrom(const std::string& file) {
    const auto body = platform::contentsOfFile(file);
    return body ? documentIn(*body, file) : body.error();
}

/// Changes the terms and the time of signing, and replaces the signatures.
Status renewDocument(const Options& options, const DocumentPlace& place,
                     const platform::SigningKey& key, FeedDocument& document) {
    const auto issued = nextIssue(document, now());
    const auto afterPrevious = issued ? nextIssue(place.previous(), *issued) : issued;
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
    const auto signature = key.sign(*text);
    if (!signature) {
        return signature.error();
    }
    document.text = *std::move(text);
    document.signatures = {*signature};
    return place.checkSuccession(document.offer, SameArchive::Accept);
}

/// Checks the document as an installation of an old build would. The offered version itself may be
/// withdrawn: installations discard it where it is staged.
Status checkDocument(const FeedDocument& document, const std::string& publicKey) {
    const auto body = documentBody(document);
    if (!body) {
        return body.error();
    }
    const auto oldest = oldestInstallation(document.offer, {publicKey});
    const auto offer = authenticOffer(*body, unknownFeedUrl(oldest.bundleVersion), oldest);
    if (!offer) {
        return offer.error();
    }
    return platform::checkNotExpired(offer->offer, oldest, now())
               ? platform::refusedOffer(
                     "it has expired. Extend it with --expires-in, or use --no-expiry.")
               : Status();
}

Status renew(const Options& options, const std::stop_token& stop) {
    if (auto error = refusalOfOutput(options.output, keyFilesOf(options.key))) {
        return error;
    }
    const auto key = signingKeyFrom(options.key, stop);
    const auto publicKey = key ? key->publicKey() : key.error();
    if (!publicKey) {
        return publicKey.error();
    }
    const auto place = DocumentPlace::open(options.output);
    if (!place) {
        return place.error();
    }
    auto document = documentFrom(options.document);
    if (!document) {
        return document.error();
    }
    auto error = checkSameSigner(*document, {*publicKey}, options.isRotation);
    error = error ? std::move(error) : renewDocument(options, *place, *key, *document);
    error = error ? std::move(error) : checkDocument(*document, *publicKey);
    error = error ? std::move(error) : place->replace(*document);
    return error
               ? std::move(error)
               : print("renewed: version " + document->offer.version + "\n" +
                       describedTerms(document->offer, now()) + "Upload " + options.output + "\n");
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
    addTermOptions(*command, options->terms);
    addDropOptions(*command, options->terms);
    command->add_flag("--no-expiry", options->terms.dropsExpiry, "Removes the expiry")
        ->excludes("--expires-in");
    command->add_flag("--rotate", options->isRotation,
                      "Signs a document that was signed with another key. Its origin is not "
                      "verified");
    command->add_option("--output", options->output, "The new document, which may replace the old")
        ->required()
        ->type_name("FILE");
    command->callback([options, &work] {
        work = [options](const std::stop_token& stop) { return renew(*options, stop); };
    });
}

}  // namespace teravolant::release
