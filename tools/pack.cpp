#include <unistd.h>

#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "platform/archives/archives.h"
#include "platform/core/text.h"
#include "tools/commands.h"
#include "tools/identity.h"
#include "tools/output.h"
#include "tools/packing.h"
#include "update_framework/installation.h"
#include "update_framework/updater_error.h"

namespace teravolant::release {
namespace {

namespace fs = std::filesystem;
using platform::Status;

struct Options {
    std::string bundle;
    std::string output;
};

/// A progress bar on standard error, if that is a terminal. The destructor ends its line.
class ProgressBar {
  public:
    ~ProgressBar() {
        if (_percent >= 0) {
            std::cerr << "\n";
        }
    }

    void show(std::uint64_t done, std::uint64_t total) {
        constexpr int kPercentPerMark = 2;
        const double share =
            total == 0 ? 1 : static_cast<double>(done) / static_cast<double>(total);
        const int percent = static_cast<int>(share * 100);
        if (!_onTerminal || percent == _percent) {
            return;
        }
        _percent = percent;
        std::string bar(100 / kPercentPerMark, ' ');
        bar.replace(0, static_cast<std::size_t>(percent / kPercentPerMark),
                    static_cast<std::size_t>(percent / kPercentPerMark), '=');
        std::cerr << "\r[" << bar << "] " << percent << " %" << std::flush;
    }

  private:
    bool _onTerminal = isatty(STDERR_FILENO) == 1;
    int _percent = -1;
};

Status refused(const fs::path& path, std::string_view reason) {
    return platform::updaterError(
        platform::SQRLUpdaterErrorRefusedBundle,
        platform::quoted(path.string()) + " " + std::string(reason) + ".");
}

/// Returns the reason why updaters would refuse this bundle in an archive, or nothing.
Status refusalOfBundle(const platform::Bundle& bundle) {
    const auto identity = identityOf(bundle);
    if (!identity) {
        return identity.error();
    }
    std::error_code unknown;
    const fs::path folder = fs::canonical(bundle.bundlePath(), unknown);
    if (!platform::equalIgnoringCase(folder.extension().string(), ".app")) {
        return refused(folder, "does not have the extension .app");
    }
    if (folder.filename().string().starts_with('.')) {
        return refused(folder, "has a name that begins with a full stop, so updaters ignore it");
    }
    if (!bundle.canRun()) {
        return refused(
            bundle.executablePath(),
            "is the bundle's executable and is missing, outside of the bundle or can't be run");
    }
    return std::nullopt;
}

}  // namespace

Status packBundle(const std::string& path, const std::string& archive,
                  const std::stop_token& stop) {
    const auto bundle = openBundle(path);
    if (!bundle) {
        return bundle.error();
    }
    auto error = refusalOfBundle(*bundle);
    if (!error) {
        error = refusalOfOutput(archive, {path});
    }
    if (error) {
        return error;
    }
    if (platform::installationOf(*bundle).publicKeys.empty()) {
        std::cerr << "teravolant-release: warning: this build has no public key "
                     "(TERAVOLANT_UPDATE_PUBLIC_KEYS), so it will never accept an update\n";
    }
    ProgressBar bar;
    return platform::packFolder(
        path, archive, [&bar](std::uint64_t done, std::uint64_t total) { bar.show(done, total); },
        stop);
}

void addPack(CLI::App& program, Work& work) {
    const auto options = std::make_shared<Options>();
    CLI::App* command = program.add_subcommand(
        "pack", "Packs a bundle into an archive. The same bundle gives the same bytes.");
    command->add_option("bundle", options->bundle, "The bundle, for example Teravolant.app")
        ->required()
        ->type_name("BUNDLE");
    command
        ->add_option("--output", options->output,
                     "The archive, for example Teravolant-1.0.0.2.tar.zst")
        ->required()
        ->type_name("ARCHIVE");
    command->callback([options, &work] {
        work = [options](const std::stop_token& stop) {
            return packBundle(options->bundle, options->output, stop);
        };
    });
}

}  // namespace teravolant::release
