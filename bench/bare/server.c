// The floor for the daemon: answers SEQPACKET messages with nothing but the kernel requests that
// are named on its command line.
//
//   server PATH|3 one|many [PLAN ...]
//
// It listens at PATH, or on descriptor 3. `one` serves one client after the other with blocking
// calls; `many` serves all at once through epoll. A request starts with two words: the bytes of the
// reply that is wanted and the number of the plan, 0 being the empty one. A plan is "plan" and
// steps of two arguments each, a letter of the table below and what it is applied to ("-":
// nothing).
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/fs.h>
#include <linux/nvme_ioctl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

enum { kMaxPlans = 16, kMaxMessage = 1 << 16 };

static char** plans[kMaxPlans];
static uint32_t plan_count;
static char message[kMaxMessage];
static char text[PATH_MAX];
static _Alignas(4096) uint8_t page[4096];
static int device;

static int admin(uint8_t opcode, uint32_t nsid, uint32_t size, uint32_t cdw10) {
    struct nvme_passthru_cmd command = {
        .opcode = opcode, .nsid = nsid, .data_len = size, .cdw10 = cdw10};
    command.addr = size != 0 ? (uintptr_t)page : 0;
    if (size != 0) memset(page, 0, sizeof page);  // as the daemon has to
    return ioctl(device, NVME_IOCTL_ADMIN_CMD, &command);
}

static int read_file(const char* path) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return -1;
    const ssize_t size = read(fd, text, 256);
    close(fd);
    return size < 0 ? -1 : 0;
}

// 0, or -1 for a step that failed: the floor would then not be one.
static int run_step(char letter, const char* argument) {
    struct stat status;
    uint64_t size_bytes;
    switch (letter) {
        case 'P':
            memset(text, 0, sizeof text);  // as the daemon has to
            return realpath(argument, text) == NULL ? -1 : 0;
        case 'k':
            return readlink(argument, text, sizeof text) < 0 ? -1 : 0;
        case 'l':
            return lstat(argument, &status);
        case 's':
            return stat(argument, &status);
        case 'f':
            return read_file(argument);
        case 'F':
            (void)read_file(argument);
            return 0;  // one that may be missing or unreadable
        case 'o':
            device = open(argument, O_RDWR);
            return device < 0 ? -1 : 0;
        case 'r':
            device = open(argument, O_RDONLY | O_CLOEXEC);
            return device < 0 ? -1 : 0;
        case 'c':
            return close(device);
        case 'b':
            return ioctl(device, BLKGETSIZE64, &size_bytes);
        case 'C':
            return admin(0x06, 0, 4096, 1);  // Identify Controller
        case 'N':
            return admin(0x06, (uint32_t)ioctl(device, NVME_IOCTL_ID), 4096, 0);
        case 'H':
            return admin(0x02, 0xFFFFFFFF, 512, 0x007F0002);  // health log
        case 'S':
            return admin(0x0A, 0, 0, 2);  // power state
        default:
            return -1;
    }
}

// 0 when the client is gone.
static int serve(int client) {
    const ssize_t size = recv(client, message, sizeof message, 0);
    if (size < 8) return 0;
    uint32_t wanted[2];
    memcpy(wanted, message, sizeof wanted);
    if (wanted[0] > sizeof message || wanted[1] > plan_count) return 0;
    if (wanted[1] > 0) {
        for (char** step = plans[wanted[1] - 1]; *step != NULL && step[0][1] == '\0'; step += 2) {
            if (run_step(step[0][0], step[1]) < 0) return 0;
        }
    }
    return send(client, message, wanted[0], MSG_NOSIGNAL) >= 0;
}

static void serve_many(int listener) {
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    struct epoll_event event = {.events = EPOLLIN, .data.fd = listener}, ready[32];
    epoll_ctl(epoll, EPOLL_CTL_ADD, listener, &event);
    for (;;) {
        const int count = epoll_wait(epoll, ready, 32, -1);
        for (int i = 0; i < count; ++i) {
            if (ready[i].data.fd == listener) {
                event.data.fd = accept4(listener, NULL, NULL, SOCK_CLOEXEC);
                epoll_ctl(epoll, EPOLL_CTL_ADD, event.data.fd, &event);
            } else if (!serve(ready[i].data.fd)) {
                close(ready[i].data.fd);
            }
        }
    }
}

#ifdef CONFINED
int Confine(void);  // bare/confine.cpp
#endif

static int listen_at(const char* path) {
    if (strcmp(path, "3") == 0) return 3;
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (bind(fd, (struct sockaddr*)&address, sizeof address) != 0 || listen(fd, 128) != 0)
        return -1;
    return fd;
}

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    const int listener = listen_at(argv[1]);
    if (listener < 0) return 1;
    for (int i = 3; i < argc; ++i) {
        if (strcmp(argv[i], "plan") == 0 && plan_count < kMaxPlans)
            plans[plan_count++] = argv + i + 1;
    }
    // systemd hands over a socket that may not block.
    (void)fcntl(listener, F_SETFL, 0);
#ifdef CONFINED
    if (!Confine()) return 1;
#endif
    if (strcmp(argv[2], "many") == 0) serve_many(listener);
    for (;;) {
        const int client = accept4(listener, NULL, NULL, SOCK_CLOEXEC);
        if (client < 0 && errno != EINTR) return 1;
        while (serve(client)) {
        }
        close(client);
    }
}
