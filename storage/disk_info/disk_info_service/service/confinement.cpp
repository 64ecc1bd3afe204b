#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/fs.h>
#include <linux/futex.h>
#include <linux/nvme_ioctl.h>
#include <linux/seccomp.h>
#include <linux/sockios.h>
#include <logging/logging.h>
#include <service/confinement.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <vector>

namespace morsk::com::quendar::tavisk::disk_info {
namespace {

#if defined(__x86_64__)
constexpr uint32_t kMachine = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr uint32_t kMachine = AUDIT_ARCH_AARCH64;
#elif defined(__riscv) && __riscv_xlen == 64
constexpr uint32_t kMachine = AUDIT_ARCH_RISCV64;
#else
constexpr uint32_t kMachine = 0;  // kRules was not checked for this architecture.
#endif
#ifndef __NR_newfstatat  // its name on 32-bit machines
#define __NR_newfstatat __NR_fstatat64
#endif

// Condition on one argument. Compares the lower 32 bits only: the kernel ignores the upper ones, or
// none of the flags is in them.
static_assert(kMachine == 0 ||
              std::endian::native == std::endian::little);  // the lower half comes first
struct Condition {
    enum Kind : uint8_t { kNone, kIs, kIsThisProcess, kAtLeast, kWithout } kind = kNone;
    uint8_t argument = 0;  // counted from 0
    uint32_t value = 0;
};
constexpr Condition Is(uint8_t argument, uint32_t value) {
    return {Condition::kIs, argument, value};
}
constexpr Condition IsThisProcess(uint8_t argument) {
    return {Condition::kIsThisProcess, argument, 0};
}
constexpr Condition AtLeast(uint8_t argument, uint32_t value) {
    return {Condition::kAtLeast, argument, value};
}
constexpr Condition Without(uint8_t argument, uint32_t bits) {
    return {Condition::kWithout, argument, bits};
}

// Allows a system call if all conditions hold.
struct Rule {
    uint32_t call;
    Condition conditions[2] = {};
};

constexpr Rule kRules[] = {
    // Disks and sysfs. openat cannot create or truncate a file or open a disk exclusively. The
    // ioctl requests that are not allowed include those that discard or zero blocks, NVMe I/O
    // commands and rereading the partition table. The filter cannot inspect an admin command.
    {__NR_openat, {Without(2, O_CREAT | O_EXCL | O_TRUNC | O_APPEND | O_TMPFILE)}},
    {__NR_read},
    {__NR_ioctl, {Is(1, BLKGETSIZE64)}},
    {__NR_ioctl, {Is(1, NVME_IOCTL_ID)}},
    {__NR_ioctl, {Is(1, NVME_IOCTL_ADMIN_CMD)}},
    {__NR_readlinkat},
    {__NR_newfstatat},
    {__NR_fstat},
    {__NR_statx},

    // Output to the standard streams. These cannot be replaced: they cannot be closed, and dup and
    // fcntl are not allowed. Before an abort, the C library writes its message with writev.
    {__NR_write, {Is(0, STDOUT_FILENO)}},
    {__NR_write, {Is(0, STDERR_FILENO)}},
    {__NR_writev, {Is(0, STDOUT_FILENO)}},
    {__NR_writev, {Is(0, STDERR_FILENO)}},
    {__NR_close, {AtLeast(0, STDERR_FILENO + 1)}},

    // Clients and the system log. sendmsg and recvmsg are not allowed because they pass
    // descriptors: a disk that is open for writing could be passed to another process.
    {__NR_socket, {Is(0, AF_UNIX)}},
    {__NR_connect},
    {__NR_accept4},
    {__NR_getsockopt},
    {__NR_recvfrom},
    {__NR_sendto},
    {__NR_ioctl, {Is(1, SIOCOUTQ)}},
    {__NR_epoll_create1},
    {__NR_epoll_ctl},
    {__NR_epoll_pwait},
    {__NR_ppoll},
    {__NR_signalfd4},

    // Memory. A mapping is neither executable nor shared: a store to a shared one would write to
    // its file. MAP_SHARED_VALIDATE includes the bit of MAP_SHARED.
    {__NR_brk},
    {__NR_mmap, {Without(2, PROT_EXEC), Without(3, MAP_SHARED)}},
    {__NR_mprotect, {Without(2, PROT_EXEC)}},
    {__NR_munmap},

    // Time, abort and exit. The kernel issues restart_syscall to resume an interrupted wait. The C
    // library's pthread_once calls futex to wake waiters, and aborts if that fails.
    {__NR_clock_gettime},
    {__NR_restart_syscall},
    {__NR_futex, {Is(1, FUTEX_WAKE_PRIVATE)}},
    {__NR_getpid},
    {__NR_gettid},
    {__NR_rt_sigaction},
    {__NR_rt_sigprocmask},
    {__NR_tgkill, {IsThisProcess(0), Is(2, SIGABRT)}},
    {__NR_exit_group},

#ifdef __x86_64__  // Older equivalents, which arm64 and RISC-V do not have.
    {__NR_epoll_wait},
    {__NR_lstat},
    {__NR_poll},
    {__NR_readlink},
    {__NR_stat},
#endif
};

// kRules as a BPF program, which the kernel runs on each system call.
class Program {
  public:
    Program() {
        Load(offsetof(seccomp_data, arch));
        Jump(BPF_JEQ, kMachine, 1, 0);
        Return(SECCOMP_RET_KILL_PROCESS);
        Load(offsetof(seccomp_data, nr));
        for (const Rule& rule : kRules) Add(rule);
        // Does not kill the process: a debugger that injects a failure sets the number to -1.
        Return(SECCOMP_RET_ERRNO | EPERM);
    }

    // The result points into this object.
    sock_fprog ForKernel() { return {static_cast<uint16_t>(code_.size()), code_.data()}; }

  private:
    void Load(size_t offset) {
        code_.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<uint32_t>(offset)));
    }
    // Skips `if_true` or `if_false` instructions.
    void Jump(uint16_t comparison, uint32_t value, size_t if_true, size_t if_false) {
        code_.push_back(BPF_JUMP(static_cast<uint16_t>(BPF_JMP | BPF_K | comparison), value,
                                 static_cast<uint8_t>(if_true), static_cast<uint8_t>(if_false)));
    }
    void Return(uint32_t action) { code_.push_back(BPF_STMT(BPF_RET | BPF_K, action)); }

    // On entry and exit the accumulator holds the number of the system call.
    void Add(const Rule& rule) {
        size_t conditions = 0;
        for (const Condition& c : rule.conditions) conditions += c.kind != Condition::kNone;
        Jump(BPF_JEQ, rule.call, 0, 2 * conditions + 1);
        for (size_t i = 0; i < conditions; ++i) {
            const size_t rest = 2 * (conditions - i) - 1;
            Load(offsetof(seccomp_data, args) + rule.conditions[i].argument * sizeof(uint64_t));
            SkipUnless(rule.conditions[i], rest);
        }
        Return(SECCOMP_RET_ALLOW);
        if (conditions != 0) Load(offsetof(seccomp_data, nr));
    }

    void SkipUnless(const Condition& condition, size_t count) {
        switch (condition.kind) {
            case Condition::kIs:
                return Jump(BPF_JEQ, condition.value, 0, count);
            case Condition::kIsThisProcess:
                return Jump(BPF_JEQ, static_cast<uint32_t>(getpid()), 0, count);
            case Condition::kAtLeast:
                return Jump(BPF_JGE, condition.value, 0, count);
            case Condition::kWithout:
                return Jump(BPF_JSET, condition.value, count, 0);
            case Condition::kNone:
                return;
        }
    }

    std::vector<sock_filter> code_;
};

}  // namespace

bool ConfineProcess() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#endif
    if (kMachine == 0) {
        LOG(WARNING) << "No system call filter for this architecture";
        return true;
    }
    // Without this, installing a filter requires CAP_SYS_ADMIN.
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
    Program program;
    const sock_fprog filter = program.ForKernel();
    if (syscall(__NR_seccomp, SECCOMP_SET_MODE_FILTER, 0, &filter) == 0) return true;
    if (errno != ENOSYS) return false;
    LOG(WARNING) << "The kernel does not support system call filters";
    return true;
}

}  // namespace morsk::com::quendar::tavisk::disk_info
