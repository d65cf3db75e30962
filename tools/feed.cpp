#include <memory>

#include <CLI/CLI.hpp>

#include "platform/core/error.h"
#include "platform/core/text.h"
#include "platform/core/utc_time.h"
#include "platform/files/durable_file.h"
#include "platform/files/files.h"
#include "tools/acceptance.h"
#include "tools/commands.h"
#include "tools/document.h"
#include "tools/inspection.h"
#include "tools/key_source.h"
#include "tools/offer_text.h"
#include "tools/output.h"
#include "tools/signing.h"
#include "tools/terms.h"

namespace teravolant::release {
namespace {

namespace fs = std::filesystem;
using platform::Offer;
using platform::Result;
using platform::Status;
using platform::Value;

struct Options {
    std::string archive;
    std::string bundle;
    KeyOptions key;
    TermOptions terms;
    std::string url;
    std::string name;
    bool isUnsigned = false;
    std::string offer;
    std::vector<std::string> signatures;
    std::vector<std::string> publicKeys;
    bool isRotation = false;
    std::string output;
};

/// Returns the member of the document that locates the archive.
Result<Value::Dictionary> addressOf(const Options& options) {
    if (!options.url.empty()) {
        return Value::Dictionary{{"url", options.url}};
    }
    std::string name =
        options.name.empty() ? fs::path(options.archive).filename().string() : options.name;
    if (auto error = refusalOfName(name)) {
        return error;
    }
    return Value::Dictionary{{"name", std::move(name)}};
}

/// Returns a document without signatures for the inspected archive.
Result<FeedDocument> newDocument(const Options& options, const Inspection& inspection,
                                 const std::optional<FeedDocument>& previous) {
    auto address = addressOf(options);
    const auto issued = nextIssue(previous, now());
    if (!address || !issued) {
        return address ? issued.error() : address.error();
    }
    FeedDocument document{.members = *std::move(address), .offer = inspection.offer};
    document.offer.issued = *issued;
    if (auto error = applyTerms(options.terms, document.offer)) {
        return error;
    }
    auto text = offerText(document.offer);
    if (!text) {
        return text.error();
    }
    document.text = *std::move(text);
    return document;
}

/// Fails unless the offer describes the inspected archive.
Status checkSameArchive(const Offer& offer, const Inspection& inspection) {
    const Offer& found = inspection.offer;
    const auto differs = [](std::string_view key, const auto& stated, const auto& real) {
        return refused("The offer in --offer is for another archive: its “" + std::string(key) +
                       "” is " + platform::escaped(stated) + ", that of the archive is " + real +
                       ".");
    };
    for (const auto& [key, stated, real] :
         {std::tuple("identifier", offer.identifier, found.identifier),
          std::tuple("version", offer.version, found.version),
          std::tuple("size", std::to_string(offer.size), std::to_string(found.size)),
          std::tuple("digest", offer.digest, found.digest),
          std::tuple("unpacked-size", std::to_string(offer.unpackedSize),
                     std::to_string(found.unpackedSize)),
          std::tuple("tree", offer.tree, found.tree)}) {
        if (stated != real) {
            return differs(key, stated, real);
        }
    }
    return std::nullopt;
}

/// Returns the document in the file `options.offer`, or one for the text in it.
Result<FeedDocument> statedDocument(const Options& options, const Inspection& inspection,
                                    const std::optional<FeedDocument>& previous) {
    const auto content = platform::contentsOfFile(options.offer);
    if (!content) {
        return content.error();
    }
    auto document = Result<FeedDocument>(FeedDocument{});
    if (content->starts_with("{")) {
        document = documentIn(*content, options.offer);
    } else {
        auto offer = platform::parseOffer(*content);
        auto address = addressOf(options);
        document = !offer     ? offer.error()
                   : !address ? Result<FeedDocument>(address.error())
                              : FeedDocument{.members = *std::move(address),
                                             .text = *content,
                                             .offer = *std::move(offer)};
    }
    if (!document) {
        return document.error();
    }
    if (auto error = checkSameArchive(document->offer, inspection)) {
        return error;
    }
    if (document->offer.issued > now() + std::chrono::hours(1)) {
        return refused("The offer in --offer was issued at " +
                       platform::utcTimeText(document->offer.issued) +
                       ", later than now. Installations would refuse every document before it.");
    }
    if (previous && previous->text != document->text &&
        previous->offer.issued >= document->offer.issued) {
        return refused("The offer in --offer was issued at " +
                       platform::utcTimeText(document->offer.issued) +
                       ", not after the document that it replaces (" +
                       platform::utcTimeText(previous->offer.issued) + ").");
    }
    return document;
}

/// Adds the signatures that were made elsewhere, each of which must be by a known key.
Status addDetached(const Options& options, FeedDocument& document,
                   const std::vector<std::string>& publicKeys) {
    for (const std::string& file : options.signatures) {
        const auto signature = detachedSignatureIn(file);
        if (!signature) {
            return signature.error();
        }
        FeedDocument alone{.text = document.text, .signatures = {*signature}};
        if (signersOf(alone, publicKeys).empty()) {
            return refused("The signature in " + platform::quoted(file) +
                           " was not made for this text by a key of the bundle, of --private-key "
                           "or of --public-key.");
        }
        addSignature(document, *signature);
    }
    return std::nullopt;
}

/// Signs the document and checks it as an installation of an old build would.
Status sign(const Options& options, const Inspection& inspection, const Signer& signer,
            const std::optional<FeedDocument>& previous, FeedDocument& document) {
    auto keys = inspection.publicKeys;
    keys.insert(keys.end(), options.publicKeys.begin(), options.publicKeys.end());
    keys.insert(keys.end(), signer.publicKeys.begin(), signer.publicKeys.end());
    if (auto error = signWith(signer, document)) {
        return error;
    }
    if (auto error = addDetached(options, document, keys)) {
        return error;
    }
    const auto signers = signersOf(document, keys);
    auto error = checkKeysOf(inspection.publicKeys, signers, options.isRotation);
    error = error ? std::move(error)
                  : checkKeepsSigners(previous, document, signers, options.isRotation);
    const auto body = documentBody(document);
    if (error || !body) {
        return error ? std::move(error) : Status(body.error());
    }
    const auto oldest = oldestInstallation(document.offer, signers);
    const auto accepted = acceptedOffer(*body, unknownFeedUrl(oldest.bundleVersion), oldest, now());
    return accepted ? Status() : Status(accepted.error());
}

Status writeText(const Options& options, const std::string& text) {
    constexpr unsigned kReadableByAll = 0644;
    return options.output.empty()
               ? print(text)
               : platform::replaceFileDurably(options.output, text, kReadableByAll);
}

Status checkOutput(const Options& options) {
    std::vector<std::string> inputs = keyFilesOf(options.key);
    inputs.insert(inputs.end(), options.signatures.begin(), options.signatures.end());
    inputs.push_back(options.archive);
    if (!options.bundle.empty()) {
        inputs.push_back(options.bundle);
    }
    return options.output.empty() ? Status() : refusalOfOutput(options.output, inputs);
}

Result<std::optional<DocumentPlace>> placeOf(const Options& options) {
    if (options.output.empty() || options.isUnsigned) {
        return std::optional<DocumentPlace>();
    }
    auto place = DocumentPlace::open(options.output);
    return place ? Result<std::optional<DocumentPlace>>(*std::move(place)) : place.error();
}

Status writeFeed(const Options& options, const std::stop_token& stop) {
    if (auto error = checkOutput(options)) {
        return error;
    }
    const auto signer = signerFrom(options.key, stop);
    if (!signer) {
        return signer.error();
    }
    const auto place = placeOf(options);
    if (!place) {
        return place.error();
    }
    const auto inspection = inspectArchive(options.archive, options.bundle, stop);
    if (!inspection) {
        return inspection.error();
    }
    const auto previous = *place ? (*place)->previous() : std::nullopt;
    const auto earlier = followed(previous, signer->publicKeys, options.isRotation);
    auto document = options.offer.empty() ? newDocument(options, *inspection, earlier)
                                          : statedDocument(options, *inspection, previous);
    if (!document) {
        return document.error();
    }
    if (options.isUnsigned) {
        return writeText(options, document->text);
    }
    auto error = sign(options, *inspection, *signer, previous, *document);
    if (!error && *place) {
        error = (*place)->checkSuccession(document->offer, SameArchive::Accept);
        return error ? error : (*place)->replace(*document);
    }
    const auto body = documentBody(*document);
    return error ? error : body ? print(*body) : Status(body.error());
}

void addAddressOptions(CLI::App& command, Options& options) {
    CLI::Option* url =
        command.add_option("--url", options.url, "The archive's URL: https")->type_name("URL");
    command
        .add_option("--name", options.name,
                    "The archive's name in the feed's folder (default: its file name)")
        ->type_name("NAME")
        ->excludes(url);
}

void addDetachedOptions(CLI::App& command, Options& options) {
    CLI::Option* isUnsigned = command.add_flag("--unsigned", options.isUnsigned,
                                               "Prints the text to sign, to be signed elsewhere");
    CLI::Option* offer =
        command
            .add_option("--offer", options.offer,
                        "The text that --unsigned printed, or a document that gets a further "
                        "signature: signed as it is, if it is for the archive")
            ->type_name("FILE")
            ->excludes(isUnsigned);
    for (const char* term : {"--rollout", "--expires-in", "--floor", "--withdraw"}) {
        offer->excludes(command.get_option(term));
    }
    command
        .add_option("--signature", options.signatures,
                    "A signature of the text in --offer that was made elsewhere: 64 bytes or "
                    "Base64. May be repeated")
        ->type_name("FILE")
        ->needs(offer)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command
        .add_option("--public-key", options.publicKeys,
                    "The key of a --signature, if the bundle does not contain it. May be repeated")
        ->type_name("KEY")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

}  // namespace

void addFeed(CLI::App& program, Work& work) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand(
        "feed",
        "Inspects an archive, and writes and signs the feed document that offers it to updaters.");
    command->add_option("archive", options->archive, "The archive that pack made")
        ->required()
        ->type_name("ARCHIVE");
    command
        ->add_option("--bundle", options->bundle,
                     "The bundle that was packed, to be compared with the archive")
        ->type_name("BUNDLE");
    CLI::Option* key = addKeyOptions(*command, options->key)->required(false);
    addFurtherKeys(*command, options->key);
    addTermOptions(*command, options->terms);
    addAddressOptions(*command, *options);
    addDetachedOptions(*command, *options);
    command->add_flag("--rotate", options->isRotation,
                      "Confirms that the bundle, or the replaced document, is for another key");
    command->add_option("--output", options->output, "The feed document (default: standard output)")
        ->type_name("FILE");
    command->callback([options, key, &work] {
        const bool isSigned = !key->empty() || !options->signatures.empty();
        if (isSigned == options->isUnsigned) {
            throw CLI::RequiredError("--unsigned, or --private-key or --signature,");
        }
        work = [options](const std::stop_token& stop) { return writeFeed(*options, stop); };
    });
}

}  // namespace teravolant::release
