#include "platform/system/confinement.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <span>

#include <sched.h>
#include <seccomp.h>

#include "platform/core/deleter.h"
#include "platform/system/landlock.h"
#include "platform/system/unprivileged_user.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TERAVOLANT_SANITIZED 1
// The leak detection needs a second process and ptrace, which the confinement denies.
extern "C" const char* __asan_default_options();   // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __asan_default_options() {  // NOLINT(bugprone-reserved-identifier)
    return "detect_leaks=0";
}
#else
#define TERAVOLANT_SANITIZED 0
#endif

// How it works: a program of root first becomes an unprivileged user. The resource limits and the
// ties to the launcher come first, because the filter of system calls denies some of the calls that
// set them. Landlock decides by path, the filter by system call and by the numbers among its
// arguments. Each denies what the other cannot see, and the filter repeats what it can of
// Landlock's rules for kernels without Landlock.
namespace teravolant::platform {
namespace {

// A sanitizer reserves terabytes of addresses and makes system calls of its own.
constexpr bool kSanitized = TERAVOLANT_SANITIZED != 0;

constexpr rlim_t kMebibyte = rlim_t{1} << 20U;

struct Limits {
    rlim_t addresses;
    rlim_t fileSize;
    rlim_t descriptors;
};
constexpr Limits kLimitsOfFetch{.addresses = 1024 * kMebibyte, .fileSize = 0, .descriptors = 256};
constexpr Limits kLimitsOfUnpack{
    .addresses = 512 * kMebibyte, .fileSize = 4096 * kMebibyte, .descriptors = 64};

void require(bool success) {
    if (!success) {
        _exit(EX_OSERR);
    }
}

template <typename Resource>
void limit(Resource resource, rlim_t value) {
    rlimit present{};
    require(getrlimit(resource, &present) == 0);
    // Only root may raise the hard limit.
    value = std::min(value, present.rlim_max);
    const rlimit limits{.rlim_cur = value, .rlim_max = value};
    require(setrlimit(resource, &limits) == 0);
}

void applyLimits(const Limits& limits) {
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, limits.fileSize);
    limit(RLIMIT_NOFILE, limits.descriptors);
    if (!kSanitized) {
        limit(RLIMIT_AS, limits.addresses);
    }
    // A write beyond the limit then fails with EFBIG.
    require(std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR);
}

void tieTo(pid_t launcher) {
    // First: the kernel clears the signal below when the user changes.
    require(becomeUnprivileged());
    require(prctl(PR_SET_PDEATHSIG, SIGKILL) == 0);
    // The launcher may have ended before the call above.
    require(getppid() == launcher);
    // RLIMIT_CORE does not prevent a core dump that the kernel pipes to a program.
    require(prctl(PR_SET_DUMPABLE, 0) == 0);
    require(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0);
}

constexpr std::uint32_t kAllow = SCMP_ACT_ALLOW;
constexpr std::uint32_t kDeny = SCMP_ACT_ERRNO(EPERM);
/// The C library then uses an older system call, if there is one.
constexpr std::uint32_t kAbsent = SCMP_ACT_ERRNO(ENOSYS);

/// Holds if the bits of `mask` in an argument have the value.
scmp_arg_cmp masked(unsigned argument, std::uint64_t mask, std::uint64_t value) {
    return {.arg = argument, .op = SCMP_CMP_MASKED_EQ, .datum_a = mask, .datum_b = value};
}

/// Compares the low 32 bits: the kernel ignores the others of an `int`.
scmp_arg_cmp is(unsigned argument, std::uint32_t value) {
    return masked(argument, UINT32_MAX, value);
}

scmp_arg_cmp compared(unsigned argument, scmp_compare operation, pid_t value) {
    return {.arg = argument,
            .op = operation,
            .datum_a = static_cast<scmp_datum_t>(value),
            .datum_b = 0};
}

/// A filter of system calls. Rules for the same call are alternatives.
class Filter {
  public:
    explicit Filter(std::uint32_t defaultAction) : _context(seccomp_init(defaultAction)) {}

    void add(std::uint32_t action, std::initializer_list<int> calls) {
        for (const int call : calls) {
            addRule(action, call, {});
        }
    }
    void add(std::uint32_t action, int call, scmp_arg_cmp condition) {
        addRule(action, call, {&condition, 1});
    }

    /// Returns false if the kernel does not support filters.
    [[nodiscard]] bool load() const {
        return _complete && seccomp_attr_set(_context.get(), SCMP_FLTATR_CTL_TSYNC, 1) == 0 &&
               seccomp_load(_context.get()) == 0;
    }

  private:
    void addRule(std::uint32_t action, int call, std::span<const scmp_arg_cmp> conditions) {
        _complete = _complete && _context &&
                    seccomp_rule_add_array(_context.get(), action, call,
                                           static_cast<unsigned>(conditions.size()),
                                           conditions.data()) == 0;
    }

    std::unique_ptr<void, Deleter<seccomp_release>> _context;
    bool _complete = true;
};

void denyProcesses(Filter& filter) {
    // The arguments of `clone` can be checked, unlike the structure that `clone3` points to.
    filter.add(kAbsent, {SCMP_SYS(clone3)});
    filter.add(kDeny, SCMP_SYS(clone), masked(0, CLONE_THREAD, 0));
    filter.add(kDeny, {SCMP_SYS(execve), SCMP_SYS(execveat), SCMP_SYS(fork), SCMP_SYS(vfork),
                       SCMP_SYS(ptrace), SCMP_SYS(process_vm_readv), SCMP_SYS(process_vm_writev),
                       SCMP_SYS(process_madvise), SCMP_SYS(process_mrelease), SCMP_SYS(kcmp),
                       SCMP_SYS(pidfd_open), SCMP_SYS(pidfd_getfd), SCMP_SYS(pidfd_send_signal),
                       SCMP_SYS(tkill), SCMP_SYS(migrate_pages), SCMP_SYS(move_pages)});
    for (const int call : {SCMP_SYS(kill), SCMP_SYS(tgkill), SCMP_SYS(rt_sigqueueinfo),
                           SCMP_SYS(rt_tgsigqueueinfo)}) {
        filter.add(kDeny, call, compared(0, SCMP_CMP_NE, getpid()));
    }
    filter.add(kDeny, SCMP_SYS(prlimit64), compared(0, SCMP_CMP_NE, 0));
    filter.add(kDeny, SCMP_SYS(prctl), is(0, PR_SET_PDEATHSIG));
    filter.add(kDeny, SCMP_SYS(prctl), is(0, PR_SET_DUMPABLE));
}

void denyAdministration(Filter& filter) {
    filter.add(kDeny, {SCMP_SYS(mount), SCMP_SYS(umount2), SCMP_SYS(open_tree),
                       SCMP_SYS(move_mount), SCMP_SYS(fsopen), SCMP_SYS(fsconfig),
                       SCMP_SYS(fsmount), SCMP_SYS(fspick), SCMP_SYS(mount_setattr),
                       SCMP_SYS(pivot_root), SCMP_SYS(chroot), SCMP_SYS(unshare), SCMP_SYS(setns)});
    filter.add(kDeny,
               {SCMP_SYS(add_key), SCMP_SYS(request_key), SCMP_SYS(keyctl), SCMP_SYS(bpf),
                SCMP_SYS(perf_event_open), SCMP_SYS(io_uring_setup), SCMP_SYS(io_uring_enter),
                SCMP_SYS(io_uring_register), SCMP_SYS(userfaultfd), SCMP_SYS(personality)});
    filter.add(kDeny, {SCMP_SYS(init_module), SCMP_SYS(finit_module), SCMP_SYS(delete_module),
                       SCMP_SYS(kexec_load), SCMP_SYS(kexec_file_load), SCMP_SYS(reboot),
                       SCMP_SYS(swapon), SCMP_SYS(swapoff), SCMP_SYS(acct), SCMP_SYS(quotactl),
                       SCMP_SYS(quotactl_fd), SCMP_SYS(syslog)});
    filter.add(kDeny, {SCMP_SYS(settimeofday), SCMP_SYS(clock_settime), SCMP_SYS(clock_adjtime),
                       SCMP_SYS(adjtimex), SCMP_SYS(sethostname), SCMP_SYS(setdomainname),
                       SCMP_SYS(ioperm), SCMP_SYS(iopl)});
    filter.add(kDeny, {SCMP_SYS(fanotify_init), SCMP_SYS(open_by_handle_at), SCMP_SYS(listen)});
    // They type into the terminal that the launcher runs in.
    filter.add(kDeny, SCMP_SYS(ioctl), is(1, TIOCSTI));
    filter.add(kDeny, SCMP_SYS(ioctl), is(1, TIOCLINUX));
}

void denyChangesOfFiles(Filter& filter) {
    filter.add(kAbsent, {SCMP_SYS(openat2)});
    for (const auto flag :
         std::initializer_list<std::uint64_t>{O_WRONLY, O_RDWR, O_CREAT, O_TRUNC}) {
        filter.add(kDeny, SCMP_SYS(open), masked(1, flag, flag));
        filter.add(kDeny, SCMP_SYS(openat), masked(2, flag, flag));
    }
    filter.add(
        kDeny,
        {SCMP_SYS(creat),       SCMP_SYS(mkdir),        SCMP_SYS(mkdirat),     SCMP_SYS(mknod),
         SCMP_SYS(mknodat),     SCMP_SYS(unlink),       SCMP_SYS(unlinkat),    SCMP_SYS(rmdir),
         SCMP_SYS(rename),      SCMP_SYS(renameat),     SCMP_SYS(renameat2),   SCMP_SYS(link),
         SCMP_SYS(linkat),      SCMP_SYS(symlink),      SCMP_SYS(symlinkat),   SCMP_SYS(chmod),
         SCMP_SYS(fchmod),      SCMP_SYS(fchmodat),     SCMP_SYS(chown),       SCMP_SYS(fchown),
         SCMP_SYS(lchown),      SCMP_SYS(fchownat),     SCMP_SYS(truncate),    SCMP_SYS(ftruncate),
         SCMP_SYS(fallocate),   SCMP_SYS(utime),        SCMP_SYS(utimes),      SCMP_SYS(futimesat),
         SCMP_SYS(utimensat),   SCMP_SYS(setxattr),     SCMP_SYS(lsetxattr),   SCMP_SYS(fsetxattr),
         SCMP_SYS(removexattr), SCMP_SYS(lremovexattr), SCMP_SYS(fremovexattr)});
}

/// Everything is allowed that the libraries of the system may need, in the version that the user
/// has, except what is denied here.
bool filterCallsOfFetch() {
    Filter filter(kAllow);
    denyProcesses(filter);
    denyAdministration(filter);
    denyChangesOfFiles(filter);
    // System calls added since Linux 5.17 have the same number on every architecture. What a
    // future one does is unknown, and the libraries run on kernels that have none of them.
    constexpr int kFirstNewCall = 450;
    constexpr int kEndOfNewCalls = 512;
    for (int call = kFirstNewCall; call < kEndOfNewCalls; ++call) {
        filter.add(kAbsent, {call});
    }
    return filter.load();
}

/// The C library of the user can be newer and try system calls that are not in this list.
bool filterCallsOfUnpack() {
    Filter filter(kAbsent);
    filter.add(kAllow,
               {SCMP_SYS(read), SCMP_SYS(readv), SCMP_SYS(pread64), SCMP_SYS(write),
                SCMP_SYS(writev), SCMP_SYS(pwrite64), SCMP_SYS(lseek), SCMP_SYS(close),
                SCMP_SYS(fstat), SCMP_SYS(newfstatat), SCMP_SYS(statx), SCMP_SYS(getdents64),
                SCMP_SYS(mkdirat), SCMP_SYS(symlinkat), SCMP_SYS(linkat), SCMP_SYS(ftruncate),
                SCMP_SYS(fchmod), SCMP_SYS(utimensat)});
    filter.add(kAllow, {SCMP_SYS(brk), SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(madvise),
                        SCMP_SYS(futex), SCMP_SYS(getrandom), SCMP_SYS(sysinfo),
                        SCMP_SYS(clock_gettime), SCMP_SYS(gettimeofday), SCMP_SYS(rt_sigprocmask),
                        SCMP_SYS(rt_sigreturn), SCMP_SYS(restart_syscall), SCMP_SYS(getpid),
                        SCMP_SYS(gettid), SCMP_SYS(exit), SCMP_SYS(exit_group)});
    // A folder to walk through, or a new file.
    filter.add(kAllow, SCMP_SYS(openat), masked(2, O_DIRECTORY | O_ACCMODE | O_CREAT, O_DIRECTORY));
    filter.add(kAllow, SCMP_SYS(openat), masked(2, O_CREAT | O_EXCL, O_CREAT | O_EXCL));
    for (const auto command :
         std::initializer_list<std::uint32_t>{F_DUPFD_CLOEXEC, F_GETFD, F_SETFD, F_GETFL}) {
        filter.add(kAllow, SCMP_SYS(fcntl), is(1, command));
    }
    for (const int call : {SCMP_SYS(mmap), SCMP_SYS(mprotect)}) {
        filter.add(kAllow, call, masked(2, PROT_EXEC, 0));
    }
    // abort() signals the process itself.
    filter.add(kAllow, SCMP_SYS(tgkill), compared(0, SCMP_CMP_EQ, getpid()));
    if (kSanitized) {
        filter.add(kAllow, {SCMP_SYS(sigaltstack), SCMP_SYS(rt_sigaction), SCMP_SYS(prlimit64),
                            SCMP_SYS(nanosleep), SCMP_SYS(clock_nanosleep), SCMP_SYS(sched_yield),
                            SCMP_SYS(pipe), SCMP_SYS(pipe2), SCMP_SYS(readlink)});
    }
    return filter.load();
}

}  // namespace

Confinement confineFetch(pid_t launcher) {
    tieTo(launcher);
    applyLimits(kLimitsOfFetch);
    const bool files = allowOnlyReadingOfSystem(std::getenv("SSL_CERT_FILE"));
    return {.systemCalls = filterCallsOfFetch(), .files = files};
}

Confinement confineUnpack(pid_t launcher, const FileDescriptor& folder) {
    tieTo(launcher);
    applyLimits(kLimitsOfUnpack);
    const bool files = allowOnlyCreationBelow(folder.get());
    return {.systemCalls = filterCallsOfUnpack(), .files = files};
}

}  // namespace teravolant::platform
