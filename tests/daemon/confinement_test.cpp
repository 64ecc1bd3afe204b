// The system call filter lets code in the daemon open the disk. It prevents changing the disk,
// passing its descriptor to another process and executing a program. The disk is a file, and each
// call is also made without the filter; in an emulated device, where DISK_INFO_DEVICE is set, it is
// the disk of the device.
#include <daemon.h>
#include <disk_info/disk_info.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <linux/nvme_ioctl.h>
#include <sched.h>
#include <scsi/sg.h>
#include <service/confinement.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <functional>
#include <sstream>

using namespace morsk::com::quendar::tavisk::disk_info;
using orvane::tavisk::disk_info::DiskInfo;
using testing::HasSubstr;

namespace {

const bool in_device = getenv("DISK_INFO_DEVICE") != nullptr;

class ConfinementTest : public PrivateRootTest {
  protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "A build with a sanitizer has no filter.";
#endif
        if (in_device) return;
        ASSERT_NO_FATAL_FAILURE(PrivateRootTest::SetUp());
        WriteFile(disk_, "original");
    }
    std::string FirstBytes() const {
        std::string bytes(8, '\0');
        bytes.resize(static_cast<size_t>(std::ifstream(disk_).read(bytes.data(), 8).gcount()));
        return bytes;
    }
    // Result of a call in a child process that has the disk open: 0, an errno, or -1 for a signal.
    int Try(bool filtered, const std::function<long(long)>& call) const {
        return Child([&] {
                   const int fd = filtered && !ConfineProcess() ? -1 : open(disk_.c_str(), O_RDWR);
                   _exit(fd < 0 ? 200 : call(fd) < 0 ? errno : 0);
               })
            .Wait();
    }

    const std::string disk_ = in_device ? DiskInfo::GetRootDevicePath() : "/run/disk";
};

TEST_F(ConfinementTest, DiskOpensForWritingAndNothingChangesIt) {
    WriteFile("/run/source", "changedchanged");  // read twice
    const long source = open("/run/source", O_RDONLY);
    int ends[2], pair[2];
    ASSERT_EQ(pipe(ends) | socketpair(AF_UNIX, SOCK_DGRAM, 0, pair), 0);
    char text[] = "changed";
    ASSERT_EQ(write(ends[1], text, 7), 7);
    iovec part{text, 7};
    mmsghdr message{{nullptr, 0, &part, 1, nullptr, 0, 0}, 0};
    const auto at = [](const void* address) { return reinterpret_cast<long>(address); };
    // `without` is the result without the filter: the disk changes, or an errno or 0. kUnknown: it
    // depends on the machine.
    constexpr int kChanges = -1, kUnknown = -2, kPrivate = MAP_PRIVATE | MAP_ANONYMOUS;
    constexpr int kPunch = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
    static constexpr long kDisk = -1000;  // replaced by the descriptor
    const struct {
        const char* name;
        long words[7];
        int without;
    } cases[] = {
        {"write", {SYS_write, kDisk, at(text), 7}, kChanges},
        {"pwrite64", {SYS_pwrite64, kDisk, at(text), 7}, kChanges},
        {"writev", {SYS_writev, kDisk, at(&part), 1}, kChanges},
        {"pwritev2", {SYS_pwritev2, kDisk, at(&part), 1}, kChanges},
        {"sendfile", {SYS_sendfile, kDisk, source, 0, 7}, kChanges},
        {"splice", {SYS_splice, ends[0], 0, kDisk, 0, 7}, kChanges},
        {"copy_file_range", {SYS_copy_file_range, source, 0, kDisk, 0, 7}, kChanges},
        {"fallocate", {SYS_fallocate, kDisk, kPunch, 0, 4096}, kChanges},
        {"ftruncate", {SYS_ftruncate, kDisk, 0}, kChanges},
        {"O_TRUNC", {SYS_openat, 0, at(disk_.c_str()), O_RDWR | O_TRUNC}, kChanges},
        {"O_CREAT", {SYS_openat, 0, at("/run/new"), O_RDWR | O_CREAT, 0600}, 0},
        {"O_TMPFILE", {SYS_openat, 0, at("/run"), O_RDWR | O_TMPFILE, 0600}, 0},
        {"shared memory", {SYS_mmap, 0, 4096, PROT_WRITE, MAP_SHARED, kDisk}, 0},
        {"io_uring_setup", {SYS_io_uring_setup, 1}, kUnknown},
        {"close of a standard stream", {SYS_close, 2}, 0},
        {"dup3", {SYS_dup3, kDisk, 1}, 0},
        {"F_DUPFD", {SYS_fcntl, kDisk, F_DUPFD}, 0},
        {"BLKDISCARD", {SYS_ioctl, kDisk, BLKDISCARD}, ENOTTY},
        {"SG_IO", {SYS_ioctl, kDisk, SG_IO}, ENOTTY},
        {"NVMe write", {SYS_ioctl, kDisk, NVME_IOCTL_SUBMIT_IO}, ENOTTY},
        {"sendmsg", {SYS_sendmsg, pair[0], at(&message.msg_hdr)}, 0},
        {"recvmsg", {SYS_recvmsg, pair[0], at(&message.msg_hdr), MSG_DONTWAIT}, EAGAIN},
        {"sendmmsg", {SYS_sendmmsg, pair[0], at(&message), 1}, 0},
        {"execve", {SYS_execve, at("/none")}, ENOENT},
        {"signal to another process", {SYS_tgkill, getpid(), getpid(), SIGABRT}, kUnknown},
        {"executable memory", {SYS_mmap, 0, 4096, PROT_EXEC, kPrivate, -1}, 0},
        {"mprotect to executable", {SYS_mprotect, 0, 0, PROT_EXEC}, 0},
        {"AF_INET", {SYS_socket, AF_INET, SOCK_STREAM}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto call = [w = std::to_array(c.words)](long fd) mutable {
            std::ranges::replace(w, kDisk, fd);
            return syscall(w[0], w[1], w[2], w[3], w[4], w[5], w[6]);
        };
        const std::string before = FirstBytes();
        EXPECT_EQ(Try(true, call), EPERM);
        EXPECT_EQ(FirstBytes(), before);
        if (in_device || c.without == kUnknown) continue;
        EXPECT_EQ(Try(false, call), std::max(c.without, 0));
        EXPECT_EQ(FirstBytes() != before, c.without == kChanges);
        WriteFile(disk_, "original");
    }
}

#ifdef __x86_64__
// Number 5 is open on i386 and fstat, which is allowed, on x86-64.
TEST_F(ConfinementTest, CallOfTheOtherArchitectureKillsTheProcess) {
    const auto open_32 = [](long result) {
        asm volatile("int $0x80" : "=a"(result) : "a"(5), "b"(0), "c"(0) : "memory");
        return result;
    };
    EXPECT_EQ(Try(true, open_32), -1);
}
#endif

bool DaemonAnswers() {
    const auto service = ConnectToService();
    std::optional<DiskPowerParcel> power;
    return service &&
           AStatus_getExceptionCode(service->getDiskPower(&power).get()) == EX_SERVICE_SPECIFIC;
}

TEST_F(ConfinementTest, DaemonServesBehindTheFilterOrExits) {
    const Child daemon({SERVICE_PROGRAM}, "/run/service");
    ASSERT_TRUE(Eventually(DaemonAnswers));
    std::stringstream status;
    status << std::ifstream("/proc/" + std::to_string(daemon.Pid()) + "/status").rdbuf();
    EXPECT_THAT(status.str(), HasSubstr("NoNewPrivs:\t1\nSeccomp:\t2\n"));

    const struct {
        const char* fault;
        const char* text;
        bool answers;  // a kernel without filters: the daemon serves unfiltered
    } cases[] = {
        {"EACCES", "system call filter: Permission denied\n+++ exited with 1 +++", false},
        {"ENOSYS", "WARNING DiskInfoService ", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        ASSERT_NO_FATAL_FAILURE(ClearPrivateRoot());
        Child strace({"/usr/bin/strace", "-eseccomp",
                      std::string("-einject=seccomp:error=") + c.fault, SERVICE_PROGRAM},
                     "/run/strace");
        EXPECT_TRUE(Eventually([&] { return strace.Err().find(c.text) != std::string::npos; }));
        EXPECT_EQ(DaemonAnswers(), c.answers);
        strace.Kill(SIGTERM);  // strace passes it on to the daemon
        (void)strace.Wait();
    }
}

}  // namespace
