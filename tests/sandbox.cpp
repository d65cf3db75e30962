#include "tests/sandbox.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <regex>

#include "platform/files.h"
#include "testing/log_reader.h"

namespace teravolant::fixtures {
namespace {

namespace fs = std::filesystem;
using platform::PropertyListValue;

/// A machine for the user USER with the folders below ROOT.
constexpr const char* kMachine =
    "bwrap --unshare-user --uid USER --gid USER --unshare-pid --unshare-net --die-with-parent "
    "--clearenv --setenv HOME /home/user --setenv PATH /usr/bin --ro-bind /usr /usr "
    "--symlink usr/bin /bin --symlink usr/lib /lib --symlink usr/lib64 /lib64 "
    "--symlink usr/sbin /sbin --ro-bind /etc/alternatives /etc/alternatives "
    "--ro-bind /etc/ld.so.cache /etc/ld.so.cache --proc /proc --dev /dev --tmpfs /tmp "
    "--bind ROOT/home /home/user --bind ROOT/xdg /etc/xdg --bind ROOT/log /var/log "
    "--bind ROOT/Applications /Applications --ro-bind '" TERAVOLANT_BUNDLE "' /opt/Teravolant.app ";

constexpr const char* kPrelude = R"sh(
launcher=/opt/Teravolant.app/Contents/MacOS/Teravolant
client_log="$HOME/.local/share/Zelto/Teravolant Client/client.log"
await() {
    for _ in $(seq 1000); do "$@" > /dev/null 2>&1 && return 0; sleep 0.01; done
    echo "waited in vain for: $*"; exit 99
}
executes() { test "$(readlink /proc/$1/exe)" = "$2"; }
clients() { ps -ax -o pid=,exe= | awk '/\/teravolant( \(deleted\))?$/ { print $1 }'; }
unpack() {
    mkdir -p "$HOME/.teravolant"
    tar xzf /opt/Teravolant.app/Contents/Resources/client.tar.gz -C "$HOME/.teravolant"
}
start_client() {
    unpack
    setsid "$HOME/.teravolant/teravolant.app/Contents/MacOS/teravolant" "$@" < /dev/null > /dev/null 2>&1 &
    await test -s "$client_log"
}
)sh";

std::string shellQuoted(const std::string& word) {
    return "'" + std::regex_replace(word, std::regex("'"), "'\\''") + "'";
}

std::string contentsOf(const fs::path& file) {
    const auto contents = platform::contentsOfFile(file);
    return contents ? contents.value() : "";
}

fs::path preferenceFile(const fs::path& folder, const std::string& domain) {
    return folder / "Zelto" / (domain + ".plist");
}

}  // namespace

Sandbox::Sandbox(User user) : _user(user) {
    for (const char* folder : {"home", "xdg", "log", "Applications"}) {
        fs::create_directory(_root.path() / folder);
    }
}

Sandbox::Outcome Sandbox::run(const std::string& script) const {
    std::string command =
        std::regex_replace(kMachine, std::regex("USER"), std::to_string(static_cast<int>(_user)));
    command = std::regex_replace(command, std::regex("ROOT"), _root.path().string());
    for (const std::string& word : _setup) {
        command += shellQuoted(word) + " ";
    }
    command += "--remount-ro / --chdir / bash -c " + shellQuoted(kPrelude + script) + " 2>&1";
    Outcome outcome;
    std::FILE* const pipe = popen(command.c_str(), "r");
    for (int character = std::fgetc(pipe); character != EOF; character = std::fgetc(pipe)) {
        outcome.output += static_cast<char>(character);
    }
    outcome.status = WEXITSTATUS(pclose(pipe));
    return outcome;
}

void Sandbox::addSetup(std::vector<std::string> words) {
    _setup.insert(_setup.end(), words.begin(), words.end());
}

std::vector<std::string> Sandbox::log() const {
    const fs::path folder =
        _user == User::ordinary ? home() / ".local/share" : _root.path() / "log";
    return logEntries(contentsOf(folder / "Zelto/Teravolant App/updater.log"));
}

std::vector<std::string> Sandbox::clientLog() const {
    return logEntries(contentsOf(home() / ".local/share/Zelto/Teravolant Client/client.log"),
                      R"(\[\d+\] ?)");
}

void Sandbox::writePreference(const fs::path& folder, const std::string& domain,
                              const std::string& key, PropertyListValue value) {
    auto values = preferences(folder, domain);
    values.insert_or_assign(key, std::move(value));
    const fs::path file = preferenceFile(folder, domain);
    fs::create_directories(file.parent_path());
    ASSERT_FALSE(platform::replaceFileDurably(file, serialisePropertyList(values), 0644));
}

PropertyListValue::Dictionary Sandbox::preferences(const fs::path& folder,
                                                   const std::string& domain) {
    const auto contents = platform::contentsOfFile(preferenceFile(folder, domain));
    if (!contents) {
        return {};
    }
    const auto parsed = platform::parsePropertyList(contents.value());
    return *parsed.value().dictionary();
}

}  // namespace teravolant::fixtures
