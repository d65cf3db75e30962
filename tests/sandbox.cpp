#include "tests/sandbox.h"

#include <cstdio>
#include <utility>

namespace teravolant::fixtures {
namespace {

constexpr const char* kPrelude = R"sh(
launcher=/opt/Teravolant.app/Contents/MacOS/Teravolant
client_log="$HOME/.local/share/Zelto/Teravolant Client/client.log"
test $UID = 0 && data=/var/log || data=$HOME/.local/share
log="$data/Zelto/Teravolant App/updater.log"
own=$HOME/.config/Zelto/com.zelto.teravolant.updater.plist
all_users=/etc/xdg/Zelto/com.zelto.teravolant.plist
await() {
    for _ in $(seq 1000); do "$@" > /dev/null 2>&1 && return 0; sleep 0.01; done
    echo "waited in vain for: $*"; exit 99
}
executes() { test "$(readlink /proc/$1/exe)" = "$2"; }
clients() { ps -ax -o pid=,exe= | awk '/\/teravolant( \(deleted\))?$/ { print $1 }'; }
client_words() { sed 's/^[^]]*\] \?//' "$client_log"; }
unpack() {
    mkdir -p "$HOME/.teravolant"
    tar xzf /opt/Teravolant.app/Contents/Resources/client.tar.gz -C "$HOME/.teravolant"
}
start_client() {
    unpack
    setsid ~/.teravolant/teravolant.app/Contents/MacOS/teravolant < /dev/null > /dev/null 2>&1 &
    disown
    await test -s "$client_log"
}
prefer() {
    mkdir -p "${1%/*}"
    echo "<plist version=\"1.0\"><dict><key>$2</key>$3</dict></plist>" > "$1"
}
)sh";

}  // namespace

Sandbox::Sandbox(User user, std::string setup) : _user(user), _setup(std::move(setup)) {
    for (const char* folder : {"home", "xdg", "log", "Applications"}) {
        std::filesystem::create_directory(_root.path() / folder);
    }
}

std::string Sandbox::run(const std::string& script) const {
    _root.write("script", kPrelude + script);
    const std::string root = _root.path();
    const std::string user = std::to_string(static_cast<int>(_user));
    const std::string command =
        "bwrap --unshare-user --uid " + user + " --gid " + user +
        " --unshare-pid --unshare-net --die-with-parent --clearenv --setenv HOME /home/user "
        "--setenv PATH /usr/bin --ro-bind /usr /usr --symlink usr/bin /bin --symlink usr/lib /lib "
        "--symlink usr/lib64 /lib64 --symlink usr/sbin /sbin "
        "--ro-bind /etc/alternatives /etc/alternatives "
        "--ro-bind /etc/ld.so.cache /etc/ld.so.cache --proc /proc --dev /dev --tmpfs /tmp "
        "--size 1048576 --tmpfs /small --bind " +
        root + "/home /home/user --bind " + root + "/xdg /etc/xdg --bind " + root +
        "/log /var/log --bind " + root + "/Applications /Applications --ro-bind " + root +
        "/script /script --ro-bind '" TERAVOLANT_BUNDLE "' /opt/Teravolant.app " + _setup +
        " --remount-ro / --chdir / bash /script 2>&1";
    std::string output;
    std::FILE* const pipe = popen(command.c_str(), "r");
    for (int character = std::fgetc(pipe); character != EOF; character = std::fgetc(pipe)) {
        output += static_cast<char>(character);
    }
    pclose(pipe);
    return output;
}

}  // namespace teravolant::fixtures
