#include "tests/sandbox.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <regex>
#include <sstream>

#include "platform/files.h"

namespace teravolant::fixtures {
namespace {

namespace fs = std::filesystem;
using platform::PropertyListValue;

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

/// The parts of a log file that begin with a time, without what the pattern matches of them.
std::vector<std::string> entriesOf(const fs::path& file, const std::string& prefix) {
    std::vector<std::string> entries;
    const auto contents = platform::contentsOfFile(file);
    std::istringstream lines(contents ? contents.value() : "");
    const std::regex start(prefix);
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_search(line, match, start, std::regex_constants::match_continuous)) {
            entries.push_back(match.suffix());
        } else if (!entries.empty()) {
            entries.back() += "\n" + line;
        }
    }
    return entries;
}

fs::path preferenceFile(const fs::path& folder, const std::string& domain) {
    return folder / "Zelto" / (domain + ".plist");
}

}  // namespace

Sandbox::Sandbox(User user) : _user(user) {
    std::string name = fs::temp_directory_path() / "teravolant-test-XXXXXX";
    _root = mkdtemp(name.data());
    for (const char* folder : {"home", "xdg", "log", "Applications"}) {
        fs::create_directory(_root / folder);
    }
}

Sandbox::~Sandbox() {
    std::error_code ignored;
    for (const auto& entry : fs::recursive_directory_iterator(_root, ignored)) {
        if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
            fs::permissions(entry, fs::perms::owner_all, fs::perm_options::add, ignored);
        }
    }
    fs::remove_all(_root, ignored);
}

Sandbox::Outcome Sandbox::run(const std::string& script) const {
    const std::string id = std::to_string(static_cast<int>(_user));
    std::vector<std::string> words = {"bwrap",
                                      "--unshare-user",
                                      "--uid",
                                      id,
                                      "--gid",
                                      id,
                                      "--unshare-pid",
                                      "--unshare-net",
                                      "--die-with-parent",
                                      "--clearenv",
                                      "--setenv",
                                      "HOME",
                                      "/home/user",
                                      "--setenv",
                                      "PATH",
                                      "/usr/bin",
                                      "--ro-bind",
                                      "/usr",
                                      "/usr",
                                      "--symlink",
                                      "usr/bin",
                                      "/bin",
                                      "--symlink",
                                      "usr/lib",
                                      "/lib",
                                      "--symlink",
                                      "usr/lib64",
                                      "/lib64",
                                      "--symlink",
                                      "usr/sbin",
                                      "/sbin",
                                      "--ro-bind",
                                      "/etc/alternatives",
                                      "/etc/alternatives",
                                      "--ro-bind",
                                      "/etc/ld.so.cache",
                                      "/etc/ld.so.cache",
                                      "--proc",
                                      "/proc",
                                      "--dev",
                                      "/dev",
                                      "--tmpfs",
                                      "/tmp",
                                      "--bind",
                                      home(),
                                      "/home/user",
                                      "--bind",
                                      machineConfiguration(),
                                      "/etc/xdg",
                                      "--bind",
                                      machineLog(),
                                      "/var/log",
                                      "--bind",
                                      applications(),
                                      "/Applications",
                                      "--ro-bind",
                                      TERAVOLANT_BUNDLE,
                                      "/opt/Teravolant.app"};
    words.insert(words.end(), _setup.begin(), _setup.end());
    words.insert(words.end(),
                 {"--remount-ro", "/", "--chdir", "/", "bash", "-c", kPrelude + script});

    std::string command;
    for (const std::string& word : words) {
        command += shellQuoted(word) + " ";
    }
    Outcome outcome;
    std::FILE* const pipe = popen((command + "2>&1").c_str(), "r");
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
    const fs::path folder = _user == User::ordinary ? home() / ".local" / "share" : machineLog();
    return entriesOf(folder / "Zelto" / "Teravolant App" / "updater.log",
                     R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d: )");
}

std::vector<std::string> Sandbox::clientLog() const {
    return entriesOf(home() / ".local" / "share" / "Zelto" / "Teravolant Client" / "client.log",
                     R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d: \[\d+\] ?)");
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
