#include "registry.h"

#include <base/retry.h>
#include <binder/service_manager.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "object.h"

namespace binder {

Registration& TheRegistration() {
    static Registration registration;
    return registration;
}

namespace {

constexpr std::string_view kRoot = "/run/binder/";
// Others may pass through the directories but not list them, nor open them, nor hold the lock.
constexpr mode_t kDirectoryMode = 0711;
// Whoever may connect may ask: the daemon's own user and group, and nobody else.
constexpr mode_t kSocketMode = 0660;
constexpr int kHandedFd = 3;     // systemd's first
constexpr int kPassRights = 83;  // SO_PASSRIGHTS, newer than the C library's headers

// 0 and the address of an instance's socket, or the errno of a name that cannot be a path there.
// Components that start with a dot are refused too, which leaves no way up.
int AddressOf(const char* instance, sockaddr_un* address) {
    if (instance == nullptr) return EINVAL;
    const std::string_view name = instance;
    if (name.find("..") != name.npos) return EINVAL;
    for (size_t start = 0; start <= name.size();) {
        const size_t end = std::min(name.find('/', start), name.size());
        if (end == start || name[start] == '.') return EINVAL;
        start = end + 1;
    }
    if (kRoot.size() + name.size() >= sizeof address->sun_path) return ENAMETOOLONG;
    *address = {};
    address->sun_family = AF_UNIX;
    kRoot.copy(address->sun_path, kRoot.size());
    name.copy(address->sun_path + kRoot.size(), name.size());
    return 0;
}

const sockaddr* Generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

base::UniqueFd NewSocket(int flags) {
    return base::UniqueFd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
}

// Lets the kernel reject messages with descriptors, as Linux 6.16 and newer can. Dropping one could
// block this process for as long as the peer likes: a TCP socket that lingers, or a locked file of
// a FUSE file system. Connections inherit the setting. Older kernels do not have it.
void RejectDescriptors(int listener) {
    const int no = 0;
    (void)setsockopt(listener, SOL_SOCKET, kPassRights, &no, sizeof no);
}

// Opens the directory that holds the last component of `path`, an absolute one, and makes what is
// missing on the way. Empty: errno tells why.
base::UniqueFd OpenDirectoryOf(std::string_view path) {
    base::UniqueFd directory(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    for (size_t start = 1; directory;) {
        const size_t end = path.find('/', start);
        if (end == path.npos) break;
        const std::string name(path.substr(start, end - start));
        // Asked for by its mode, whatever the process's umask takes away.
        if (mkdirat(directory.get(), name.c_str(), kDirectoryMode) == 0 &&
            fchmodat(directory.get(), name.c_str(), kDirectoryMode, 0) != 0) {
            return {};
        }
        directory = base::UniqueFd(
            openat(directory.get(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        start = end + 1;
    }
    if (!directory) return directory;
    return base::UniqueFd(openat(directory.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

// Makes the path free. 0, EEXIST where a living process listens there, or another errno.
int RemoveLeftover(const sockaddr_un& address, int directory, const char* name) {
    struct stat info;
    if (fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? 0 : errno;
    }
    if (!S_ISSOCK(info.st_mode)) return ENOTSOCK;
    const base::UniqueFd probe = NewSocket(SOCK_NONBLOCK);
    if (!probe) return errno;
    // EAGAIN: its queue is full. EPROTOTYPE: it speaks something else. Both are alive.
    if (connect(probe.get(), Generic(address), sizeof address) == 0 || errno == EAGAIN ||
        errno == EPROTOTYPE) {
        return EEXIST;
    }
    if (errno != ECONNREFUSED) return errno;
    return unlinkat(directory, name, 0) == 0 ? 0 : errno;
}

// Binds the path and listens. 0 or an errno. The lock lets one process at a time find out that
// the path is free and take it, so that none removes the socket of another that has just begun.
int Listen(const sockaddr_un& address, base::UniqueFd* listener) {
    const base::UniqueFd directory = OpenDirectoryOf(address.sun_path);
    if (!directory) return errno;
    if (base::RetryOnInterrupt([&] { return flock(directory.get(), LOCK_EX); }) != 0) return errno;
    const char* const name = std::strrchr(address.sun_path, '/') + 1;
    if (const int error = RemoveLeftover(address, directory.get(), name)) return error;
    base::UniqueFd fd = NewSocket(SOCK_NONBLOCK);
    RejectDescriptors(fd.get());
    if (!fd || bind(fd.get(), Generic(address), sizeof address) != 0) return errno;
    // Nobody can connect before listen, so no one sees the socket with another mode.
    if (fchmodat(directory.get(), name, kSocketMode, 0) != 0 || listen(fd.get(), SOMAXCONN) != 0) {
        const int error = errno;
        (void)unlinkat(directory.get(), name, 0);
        return error;
    }
    *listener = std::move(fd);
    return 0;
}

bool SocketOptionIs(int fd, int option, int wanted) {
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(fd, SOL_SOCKET, option, &value, &size) == 0 && value == wanted;
}

// True when the environment names this process as the one to be handed sockets. The variables are
// removed: they are not for this process's children.
bool TakeHandOver(std::string* count) {
    const char* const pid = std::getenv("LISTEN_PID");
    const char* const fds = std::getenv("LISTEN_FDS");
    if (pid == nullptr || fds == nullptr || pid != std::to_string(getpid())) return false;
    *count = fds;
    for (const char* name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) unsetenv(name);
    return true;
}

// Checks that the handed descriptor is a socket like our own, and prepares it. 0 or an errno.
int AdoptHanded(const std::string& count, base::UniqueFd* listener) {
    if (count != "1" || !SocketOptionIs(kHandedFd, SO_DOMAIN, AF_UNIX) ||
        !SocketOptionIs(kHandedFd, SO_TYPE, SOCK_SEQPACKET) ||
        !SocketOptionIs(kHandedFd, SO_ACCEPTCONN, 1)) {
        return EINVAL;
    }
    const int flags = fcntl(kHandedFd, F_GETFL);
    if (flags < 0 || fcntl(kHandedFd, F_SETFL, flags | O_NONBLOCK) != 0 ||
        fcntl(kHandedFd, F_SETFD, FD_CLOEXEC) != 0) {
        return errno;
    }
    RejectDescriptors(kHandedFd);
    *listener = base::UniqueFd(kHandedFd);
    return 0;
}

}  // namespace
}  // namespace binder

binder_status_t AServiceManager_registerLazyService(AIBinder* binder, const char* instance) {
    using namespace binder;
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (AIBinder_isRemote(binder)) return STATUS_BAD_VALUE;
    Registration& registration = TheRegistration();
    if (registration.binder != nullptr) return -EBUSY;
    sockaddr_un address;
    if (const int error = AddressOf(instance, &address)) return -error;
    std::string count;
    registration.handed_over = TakeHandOver(&count);
    const int error = registration.handed_over ? AdoptHanded(count, &registration.listener)
                                               : Listen(address, &registration.listener);
    if (error != 0) return error == EEXIST ? STATUS_ALREADY_EXISTS : -error;
    AIBinder_incStrong(binder);
    registration.binder = binder;
    return STATUS_OK;
}

AIBinder* AServiceManager_checkService(const char* instance) {
    using namespace binder;
    sockaddr_un address;
    if (const int error = AddressOf(instance, &address)) {
        errno = error;
        return nullptr;
    }
    base::UniqueFd fd = NewSocket(0);
    if (!fd) return nullptr;
    const auto connect_once = [&] { return connect(fd.get(), Generic(address), sizeof address); };
    if (base::RetryOnInterrupt(connect_once) != 0) return nullptr;
    return NewRemoteBinder(std::move(fd));
}
