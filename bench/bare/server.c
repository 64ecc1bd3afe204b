// The floor for the daemon: answers SEQPACKET messages and makes only the kernel requests of the
// call, which calls.c lists.
//
//   bench_server PATH|3 one|many [DISK]
//
// Listens at PATH, or on descriptor 3. `one` serves one client after the other with blocking calls;
// `many` serves all clients with epoll. A message starts with two words: the size of the reply in
// bytes and the call. All calls but the version need DISK, such as nvme0n1.
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "calls.h"

#ifdef CONFINED
int Confine(void);  // confine.cpp
#endif

static char message[1 << 16];

// False: the client closed its connection.
static int Serve(int client) {
    const ssize_t size = recv(client, message, sizeof(message), 0);
    uint32_t wanted[2];
    if (size < (ssize_t)sizeof(wanted)) return 0;
    memcpy(wanted, message, sizeof(wanted));
    if (wanted[0] > sizeof(message)) return 0;
    MakeRequests((int)wanted[1]);
    return send(client, message, wanted[0], MSG_NOSIGNAL) >= 0;
}

static void ServeMany(int listener) {
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    struct epoll_event event = {.events = EPOLLIN, .data.fd = listener}, ready[32];
    epoll_ctl(epoll, EPOLL_CTL_ADD, listener, &event);
    for (;;) {
        const int count = epoll_wait(epoll, ready, 32, -1);
        for (int i = 0; i < count; ++i) {
            if (ready[i].data.fd == listener) {
                event.data.fd = accept4(listener, NULL, NULL, SOCK_CLOEXEC);
                epoll_ctl(epoll, EPOLL_CTL_ADD, event.data.fd, &event);
            } else if (!Serve(ready[i].data.fd)) {
                close(ready[i].data.fd);
            }
        }
    }
}

static int ListenAt(const char* path) {
    if (strcmp(path, "3") == 0) return 3;
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (bind(fd, (struct sockaddr*)&address, sizeof(address)) != 0 || listen(fd, 128) != 0)
        return -1;
    return fd;
}

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    if (argc > 3) PrepareCalls(argv[3]);
    const int listener = ListenAt(argv[1]);
    if (listener < 0) return 1;
    // systemd passes a non-blocking socket.
    (void)fcntl(listener, F_SETFL, 0);
#ifdef CONFINED
    if (!Confine()) return 1;
#endif
    if (strcmp(argv[2], "many") == 0) ServeMany(listener);
    for (;;) {
        const int client = accept4(listener, NULL, NULL, SOCK_CLOEXEC);
        if (client < 0 && errno != EINTR) return 1;
        while (Serve(client)) {
        }
        close(client);
    }
}
