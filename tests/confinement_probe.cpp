// Confines itself as a helper program does, then tries what each must and must not be able to do:
// confinement_probe fetch|unpack FOLDER
//
// Prints a line per action and fails if one is not as expected. It creates what it needs in FOLDER.
#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <system_error>
#include <thread>

#include "platform/system/confinement.h"
#include "platform/system/landlock.h"

namespace {

using teravolant::platform::Confinement;
using teravolant::platform::FileDescriptor;

enum class Expected { Allowed, Denied, DeniedByLandlock, AllowedSinceLandlock2 };
using enum Expected;

struct Action {
    const char* name;
    Expected fetch;
    Expected unpack;
    std::function<long()> run;  ///< Returns -1 and sets `errno` on failure.
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr Expected kLargeMapping = Allowed;
#else
constexpr Expected kLargeMapping = Denied;
#endif

long mapping(std::size_t size, int protection) {
    void* place = mmap(nullptr, size, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return place == MAP_FAILED ? -1 : 0;
}

/// For a call that fails without the confinement too, but with another reason.
long unlessFiltered(long result) {
    return result < 0 && (errno == EPERM || errno == ENOSYS) ? -1 : 0;
}

long hundredDescriptors() {
    int last = 0;
    for (int i = 0; i < 100 && last >= 0; ++i) {
        last = fcntl(0, F_DUPFD_CLOEXEC, 0);
    }
    const int reason = errno;
    for (int descriptor = 10; descriptor < 256; ++descriptor) {
        close(descriptor);
    }
    errno = reason;
    return last;
}

long process() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    return child;
}

long threadOfProgram() {
    try {
        std::thread([] {}).join();
        return 0;
    } catch (const std::system_error& error) {
        errno = error.code().value();
        return -1;
    }
}

/// Connects to a socket that listens before the confinement.
std::function<long()> connection() {
    static sockaddr_in address{
        .sin_family = AF_INET, .sin_port = 0, .sin_addr = {}, .sin_zero = {}};
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    const int server = socket(AF_INET, SOCK_STREAM, 0);
    static_cast<void>(bind(server, general, size));
    listen(server, 1);
    getsockname(server, general, &size);
    return [general] {
        const int client = socket(AF_INET, SOCK_STREAM, 0);
        return client < 0 ? -1 : connect(client, general, sizeof address);
    };
}

const int kCreate = O_WRONLY | O_CREAT | O_EXCL;
const long kCacheStat = 451;  // since Linux 6.5

}  // namespace

int main(int count, char** arguments) {
    if (count != 3 || chdir(arguments[2]) != 0 || mkdir("tree", 0700) != 0 ||
        mkdir("tree/a", 0700) != 0 || close(open("file", kCreate, 0600)) != 0 ||
        close(open("tree/file", kCreate, 0600)) != 0) {
        std::perror("confinement_probe");
        return 2;
    }
    const bool fetch = std::strcmp(arguments[1], "fetch") == 0;
    const FileDescriptor tree(open("tree", O_RDONLY | O_DIRECTORY));
    const int folder = tree.get();
    const auto connect = connection();
    const pid_t launcher = getppid();
    const int landlock = teravolant::platform::landlockVersion();
    const Confinement confinement = fetch ? teravolant::platform::confineFetch(launcher)
                                          : teravolant::platform::confineUnpack(launcher, tree);

    const Action actions[] = {
        {"read a file", Allowed, Denied, [] { return open("/etc/passwd", O_RDONLY); }},
        {"read a file at home", DeniedByLandlock, Denied, [] { return open("file", O_RDONLY); }},
        {"write a file", Denied, Denied, [] { return open("file", O_WRONLY); }},
        {"truncate a file", Denied, Denied, [] { return truncate("file", 0); }},
        {"change a mode", Denied, Denied, [] { return chmod("file", 0644); }},
        {"rename", Denied, Denied, [] { return rename("file", "other"); }},
        {"remove", Denied, Denied, [] { return unlink("file"); }},
        {"create a file", Denied, DeniedByLandlock, [] { return open("new", kCreate, 0600); }},
        {"create a folder", Denied, DeniedByLandlock, [] { return mkdirat(AT_FDCWD, "b", 0700); }},
        {"create a link", Denied, DeniedByLandlock, [] { return symlinkat("x", AT_FDCWD, "l"); }},
        {"create a file below", Denied, Allowed,
         [folder] { return openat(folder, "a/new", kCreate, 0600); }},
        {"create a folder below", Denied, Allowed, [folder] { return mkdirat(folder, "b", 0700); }},
        {"create a link below", Denied, Allowed, [folder] { return symlinkat("x", folder, "l"); }},
        {"create a hard link below", Denied, AllowedSinceLandlock2,
         [folder] { return linkat(folder, "file", folder, "a/hard", 0); }},
        {"remove below", Denied, Denied, [folder] { return unlinkat(folder, "file", 0); }},
        {"connect", Allowed, Denied, connect},
        {"listen", Denied, Denied, [] { return unlessFiltered(listen(0, 1)); }},
        {"start a thread", Allowed, Denied, threadOfProgram},
        {"start a process", Denied, Denied, process},
        {"execute a program", Denied, Denied, [] { return execl("/bin/false", "false", nullptr); }},
        {"create a namespace", Denied, Denied, [] { return unshare(CLONE_NEWUSER); }},
        // Permission to mount is checked after these arguments.
        {"mount", Denied, Denied, [] { return unlessFiltered(syscall(SYS_mount, 1, 1, 1, 0, 0)); }},
        {"be traced", Denied, Denied, [] { return ptrace(PTRACE_TRACEME, 0, nullptr, nullptr); }},
        {"signal the launcher", Denied, Denied, [launcher] { return kill(launcher, 0); }},
        {"outlive the launcher", Denied, Denied, [] { return prctl(PR_SET_PDEATHSIG, 0); }},
        {"map code", Allowed, Denied, [] { return mapping(4096, PROT_READ | PROT_EXEC); }},
        {"map 2 GiB", kLargeMapping, kLargeMapping,
         [] { return mapping(std::size_t{2} << 30U, PROT_READ); }},
        {"open 100 descriptors", Allowed, Denied, hundredDescriptors},
        {"make a new call", Denied, Denied, [] { return unlessFiltered(syscall(kCacheStat, -1)); }},
    };
    std::printf("system calls %s, files %s\n", confinement.systemCalls ? "confined" : "free",
                confinement.files ? "confined" : "free");
    bool asExpected = confinement.systemCalls && (confinement.files || landlock == 0);
    for (const Action& action : actions) {
        const bool denied = action.run() < 0;
        const int reason = errno;
        const Expected expected = fetch ? action.fetch : action.unpack;
        const bool right =
            denied == (expected == Denied || (expected == DeniedByLandlock && landlock > 0) ||
                       (expected == AllowedSinceLandlock2 && landlock == 1));
        asExpected = asExpected && right;
        std::printf("%s: %s%s\n", action.name, denied ? std::strerror(reason) : "allowed",
                    right ? "" : " (UNEXPECTED)");
    }
    return asExpected ? 0 : 1;
}
