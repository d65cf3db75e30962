#include <memory>

#include <CLI/CLI.hpp>

#include "platform/core/text.h"
#include "platform/files/durable_file.h"
#include "platform/values/json.h"
#include "tools/commands.h"
#include "tools/identity.h"
#include "tools/key_source.h"
#include "tools/offer.h"
#include "tools/output.h"
#include "update_framework/offer_verification.h"
#include "update_framework/updater_error.h"

namespace teravolant::release {
namespace {

namespace fs = std::filesystem;
using platform::Result;
using platform::Status;
using platform::Value;

constexpr unsigned kReadableByAll = 0644;

struct Options {
    std::string archive;
    std::string bundle;
    Identity identity;
    KeyOptions key;
    std::string url;
    std::string name;
    std::string output;
};

Result<Identity> identityIn(const Options& options) {
    if (options.bundle.empty()) {
        auto error = refusalOf(options.identity);
        return error ? Result<Identity>(*std::move(error)) : options.identity;
    }
    const auto bundle = openBundle(options.bundle);
    return bundle ? identityOf(*bundle) : bundle.error();
}

/// Returns the member of the document that locates the archive.
Result<Value::Dictionary> addressOf(const Options& options) {
    if (!options.url.empty()) {
        return Value::Dictionary{{"url", options.url}};
    }
    std::string name =
        options.name.empty() ? fs::path(options.archive).filename().string() : options.name;
    // Updaters resolve the name as a relative URL: these would name another file.
    if (name == "." || name == ".." || name.find_first_of("/?#%") != std::string::npos) {
        return platform::updaterError(
            platform::SQRLUpdaterErrorRefusedOffer,
            "“name”: " + platform::quoted(name) +
                " is not a plain file name: give another --name, or a --url.");
    }
    return Value::Dictionary{{"name", std::move(name)}};
}

/// Returns the signed document, checked as an updater of an old build reads it.
Result<std::string> documentOf(const Options& options, const std::stop_token& stop) {
    const auto identity = identityIn(options);
    if (!identity) {
        return identity.error();
    }
    const auto address = addressOf(options);
    if (!address) {
        return address.error();
    }
    const auto key = signingKeyFrom(options.key, stop);
    if (!key) {
        return key.error();
    }
    const auto archive = factsOf(options.archive, stop);
    if (!archive) {
        return archive.error();
    }
    const auto& [identifier, version] = *identity;
    const auto& [size, sha256] = *archive;
    const auto signature = key->sign(platform::signedText(identifier, version, size, sha256));
    const auto publicKey = key->publicKey();
    if (!signature || !publicKey) {
        return signature ? publicKey.error() : signature.error();
    }
    Value::Dictionary feed = *address;
    feed["version"] = version;
    feed["size"] = static_cast<std::int64_t>(size);
    feed["sha256"] = sha256;
    feed["signature"] = *signature;
    auto serialised = platform::serialiseJson(feed);
    if (!serialised) {
        return std::move(serialised).error();
    }
    std::string document = *std::move(serialised) + "\n";
    const auto offer = acceptedOffer(document, unknownFeedUrl("0.0.0.0"), identifier, {*publicKey});
    if (!offer) {
        return offer.error();
    }
    return document;
}

Status writeFeed(const Options& options, const std::stop_token& stop) {
    std::vector<std::string> inputs = keyFilesOf(options.key);
    inputs.push_back(options.archive);
    if (!options.bundle.empty()) {
        inputs.push_back(options.bundle);
    }
    if (!options.output.empty()) {
        if (auto error = refusalOfOutput(options.output, inputs)) {
            return error;
        }
    }
    const auto document = documentOf(options, stop);
    if (!document) {
        return document.error();
    }
    return options.output.empty()
               ? print(*document)
               : platform::replaceFileDurably(options.output, *document, kReadableByAll);
}

}  // namespace

void addFeed(CLI::App& program, Work& work) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand(
        "feed", "Writes and signs the feed document that offers an archive to updaters.");
    command->add_option("archive", options->archive, "The archive that pack made")
        ->required()
        ->type_name("ARCHIVE");
    CLI::Option* bundle =
        command->add_option("--bundle", options->bundle, "The bundle in the archive")
            ->type_name("BUNDLE");
    CLI::Option* identifier = command
                                  ->add_option("--identifier", options->identity.identifier,
                                               "The bundle's identifier, instead of --bundle")
                                  ->type_name("ID")
                                  ->excludes(bundle);
    CLI::Option* version = command
                               ->add_option("--version", options->identity.version,
                                            "The bundle's version, instead of --bundle")
                               ->type_name("VERSION")
                               ->excludes(bundle)
                               ->needs(identifier);
    identifier->needs(version);
    addKeyOptions(*command, options->key);
    CLI::Option* url =
        command->add_option("--url", options->url, "The archive's URL: https, or http on loopback")
            ->type_name("URL");
    command
        ->add_option("--name", options->name,
                     "The archive's name in the feed's folder (default: its file name)")
        ->type_name("NAME")
        ->excludes(url);
    command->add_option("--output", options->output, "The feed document (default: standard output)")
        ->type_name("FILE");
    command->callback([options, bundle, identifier, &work] {
        if (bundle->empty() && identifier->empty()) {
            throw CLI::RequiredError("--bundle, or --identifier and --version,");
        }
        work = [options](const std::stop_token& stop) { return writeFeed(*options, stop); };
    });
}

}  // namespace teravolant::release
