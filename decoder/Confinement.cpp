#include "decoder/Confinement.h"

#include <linux/seccomp.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <stdexcept>

#include "base/FileDescriptor.h"

namespace tessaly::decoder {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool IsSanitized = true;
#elif defined(__has_feature)
constexpr bool IsSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool IsSanitized = false;
#endif

constexpr std::initializer_list<int> ForAll{SCMP_SYS(read),
                                            SCMP_SYS(write),
                                            SCMP_SYS(pread64),
                                            SCMP_SYS(pwrite64),
                                            SCMP_SYS(lseek),
                                            SCMP_SYS(munmap),
                                            SCMP_SYS(mremap),
                                            SCMP_SYS(brk),
                                            SCMP_SYS(madvise),
                                            SCMP_SYS(futex),
                                            SCMP_SYS(exit),
                                            SCMP_SYS(exit_group),
                                            SCMP_SYS(rt_sigreturn),
                                            SCMP_SYS(rt_sigprocmask),
                                            SCMP_SYS(restart_syscall),
                                            SCMP_SYS(clock_gettime),
                                            SCMP_SYS(getpid),
                                            SCMP_SYS(gettid),
                                            SCMP_SYS(sysinfo),
                                            SCMP_SYS(getrandom)};

/// The first process makes others; these take their limits before they lose the right to.
constexpr std::initializer_list<int> ForServing{
    SCMP_SYS(poll),      SCMP_SYS(ppoll),     SCMP_SYS(recvmsg),    SCMP_SYS(sendmsg),
    SCMP_SYS(clone),     SCMP_SYS(clone3),    SCMP_SYS(fork),       SCMP_SYS(vfork),
    SCMP_SYS(wait4),     SCMP_SYS(waitid),    SCMP_SYS(pidfd_open), SCMP_SYS(kill),
    SCMP_SYS(close),     SCMP_SYS(prctl),     SCMP_SYS(seccomp),    SCMP_SYS(prlimit64),
    SCMP_SYS(setrlimit), SCMP_SYS(getrlimit), SCMP_SYS(getppid),    SCMP_SYS(set_robust_list),
    SCMP_SYS(rseq)};

/// What the sanitizers' run time needs: it tries whether memory is there by a pipe, and one has a thread of
/// its own that asks for the time.
constexpr std::initializer_list<int> ForSanitizers{
    SCMP_SYS(sigaltstack),     SCMP_SYS(rt_sigaction), SCMP_SYS(sched_yield), SCMP_SYS(nanosleep),
    SCMP_SYS(clock_nanosleep), SCMP_SYS(tgkill),       SCMP_SYS(getrusage),   SCMP_SYS(set_robust_list),
    SCMP_SYS(pipe2),           SCMP_SYS(close),        SCMP_SYS(gettimeofday)};

bool setLimit(__rlimit_resource resource, std::uint64_t value) {
    const rlimit limit{.rlim_cur = value, .rlim_max = value};
    return ::setrlimit(resource, &limit) == 0;
}

/// As the kernel takes it; empty if it cannot be had. Each process that does a job applies it, and would
/// have to make it first.
std::vector<sock_filter> programOf(scmp_filter_ctx context) {
    const base::FileDescriptor file{::memfd_create("filter", MFD_CLOEXEC)};
    if (!file.isOpen() || seccomp_export_bpf(context, file.get()) != 0)
        return {};
    const off_t size = ::lseek(file.get(), 0, SEEK_END);
    std::vector<sock_filter> program(static_cast<std::size_t>(std::max<off_t>(0, size)) /
                                     sizeof(sock_filter));
    if (program.size() > BPF_MAXINSNS ||
        ::pread(file.get(), program.data(), static_cast<std::size_t>(size), 0) != size)
        return {};
    return program;
}

}  // namespace

CallFilter::CallFilter(Purpose purpose) {
    const std::unique_ptr<void, decltype([](void* context) { seccomp_release(context); })> context{
        seccomp_init(SCMP_ACT_KILL_PROCESS)};
    bool good = context != nullptr;
    const auto allow = [&context, &good](std::initializer_list<int> calls) {
        for (const int call : calls) {
            if (call >= 0)  // or this architecture has another one
                good = good && seccomp_rule_add(context.get(), SCMP_ACT_ALLOW, call, 0) == 0;
        }
    };
    allow(ForAll);
    if (purpose == Purpose::Serve)
        allow(ForServing);
    if (IsSanitized)
        allow(ForSanitizers);
    // Memory is for data alone.
    for (const int call : {SCMP_SYS(mmap), SCMP_SYS(mprotect)})
        good = good && seccomp_rule_add(context.get(), SCMP_ACT_ALLOW, call, 1,
                                        SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0)) == 0;
    if (good)
        program_ = programOf(context.get());
    if (program_.empty())
        throw std::runtime_error{"no filter of system calls can be made"};
}

bool CallFilter::apply() const {
    sock_fprog program{.len = static_cast<unsigned short>(program_.size()),
                       .filter = const_cast<sock_filter*>(program_.data())};  // the kernel reads it
    return ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

std::uint64_t addressSpace() {
    std::uint64_t pages = 0;
    std::ifstream{"/proc/self/statm"} >> pages;
    return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

bool harden() {
    return ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0 && ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           setLimit(RLIMIT_CORE, 0);
}

bool confine(const Job& job, const Parent& parent, const CallFilter& filter) {
    constexpr std::uint64_t Stack = std::uint64_t{8} << 20U;
    // Sanitizers reserve terabytes of address space for their shadow, which no limit could tell from use.
    const bool limited =
        IsSanitized || setLimit(RLIMIT_AS, parent.addressSpace + job.sourceSize + job.memory + Stack);
    const std::uint64_t files = IsSanitized ? 16 : 0;
    return ::prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) == 0 && ::getppid() == parent.process && limited &&
           setLimit(RLIMIT_CPU, job.seconds) && setLimit(RLIMIT_FSIZE, job.fileSize) &&
           setLimit(RLIMIT_STACK, Stack) && setLimit(RLIMIT_NOFILE, files) && filter.apply();
}

}  // namespace tessaly::decoder
