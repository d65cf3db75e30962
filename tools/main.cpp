// teravolant-release: makes keys, archives and feed documents for the updater, and checks them.
//
// Exit status: 0 on success or acceptance, 1 on failure or refusal, 2 on a usage error.

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <thread>

#include <CLI/CLI.hpp>

#include "platform/core/build_version.h"
#include "platform/core/error.h"
#include "platform/core/file_descriptor.h"
#include "programs/confined_main.h"
#include "programs/unpack_main.h"
#include "tools/commands.h"
#include "tools/inspection.h"

namespace {

using namespace teravolant;

constexpr int kUsageStatus = 2;

/// The end of the help. The manual has a section for each line.
constexpr const char* kNotes =
    "Exit status: 0 on success or acceptance, 1 on failure or refusal, 2 on a usage error.\n"
    "Signals: SIGINT, SIGTERM or SIGHUP cancels a command, which removes its incomplete output and "
    "exits "
    "with status 1. A second signal ends it at once.\n"
    "Private keys: Ed25519 in PKCS#8 PEM form, made by keygen or openssl, also encrypted (openssl "
    "pkey -aes256). The passphrase comes from a file, an environment variable or the terminal. A "
    "file to which other users have access is refused.\n"
    "Environment: The variables that env:NAME and --passphrase-env name. check also follows "
    "https_proxy, all_proxy, no_proxy and SSL_CERT_FILE.";

int fail(std::string_view reason, int status) {
    std::cerr << "teravolant-release: " << reason << "\n";
    return status;
}

/// Makes the first SIGINT, SIGTERM or SIGHUP request a stop, so that a command removes its partial
/// output, and the second one terminate the process. Must be called before other threads are
/// started, which inherit the signal mask.
std::stop_token stopOnTermination() {
    sigset_t signals{};
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    struct sigaction hangup {};
    if (sigaction(SIGHUP, nullptr, &hangup) == 0 && hangup.sa_handler != SIG_IGN) {
        sigaddset(&signals, SIGHUP);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::stop_source source;
    std::thread([source, signals]() mutable {
        int received = 0;
        sigwait(&signals, &received);
        source.request_stop();
        sigwait(&signals, &received);
        std::_Exit(EXIT_FAILURE);
    }).detach();
    return source.get_token();
}

std::string problemWith(const std::string& argument) {
    return argument.empty() ? "the argument is empty" : "";
}

int run(int argc, char* argv[]) {
    const std::stop_token stop = stopOnTermination();
    release::Work work;
    CLI::App program("Publishes builds of Teravolant.", "teravolant-release");
    program.set_version_flag("--version", platform::buildVersion());
    program.require_subcommand(1);
    release::addKeygen(program, work);
    release::addPublicKey(program, work);
    release::addPack(program, work);
    release::addFeed(program, work);
    release::addPublish(program, work);
    release::addRenew(program, work);
    release::addCheck(program, work);
    release::addManual(program, work);
    program.footer(kNotes);  // Commands that are added later would inherit it.
    for (CLI::App* command : program.get_subcommands({})) {
        for (CLI::Option* option : command->get_options()) {
            option->check(problemWith, "");
        }
    }
    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& request) {
        return program.exit(request);
    } catch (const CLI::ParseError& error) {
        return fail(std::string(error.what()) + "\nRun with --help for more information.",
                    kUsageStatus);
    }
    const auto error = work(stop);
    return error ? fail(error->localizedDescription, EXIT_FAILURE) : EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char* argv[]) {
    // Before any thread is started: see inspection.cpp.
    if (argc == 3 && argv[1] == release::kUnpackArgument) {
        const auto parent = processIdIn(argv[2]);
        return parent ? (unpackConfined(*parent), EXIT_FAILURE) : kUsageStatus;
    }
    platform::openMissingStandardStreams();
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return run(argc, argv);
    } catch (const std::exception& exception) {
        return fail(exception.what(), EXIT_FAILURE);
    }
}
