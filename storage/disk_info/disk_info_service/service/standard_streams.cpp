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
    // dup2(2) in two steps that the unit's SystemCallFilter admits.
    (void)close(STDERR_FILENO);
    (void)fcntl(own, F_DUPFD, STDERR_FILENO);
    (void)close(own);
}

}  // namespace

void PrepareStandardStreams() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    UnblockStandardError();
    // open(2) gives the lowest number that is free.
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0) (void)open("/dev/null", O_RDWR);
    }
}

}  // namespace morsk::com::quendar::tavisk::disk_info
