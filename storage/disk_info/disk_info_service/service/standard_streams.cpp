#include <fcntl.h>
#include <service/standard_streams.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

namespace morsk::com::quendar::tavisk::disk_info {
namespace {

void UnblockStandardError() {
    struct stat status;
    if (fstat(STDERR_FILENO, &status) != 0) return;
    if (!S_ISFIFO(status.st_mode) && isatty(STDERR_FILENO) == 0) return;
    const int own = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own < 0) return;
    // Instead of dup2, which the SystemCallFilter of the unit does not allow.
    (void)close(STDERR_FILENO);
    (void)fcntl(own, F_DUPFD, STDERR_FILENO);
    (void)close(own);
}

}  // namespace

void PrepareStandardStreams() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    UnblockStandardError();
    // open returns the lowest free number.
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0) (void)open("/dev/null", O_RDWR);
    }
}

}  // namespace morsk::com::quendar::tavisk::disk_info
