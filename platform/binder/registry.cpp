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
#include <optional>
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
// Other users may pass through the directories, but not list or open them, so they cannot lock
// them.
constexpr mode_t kDirectoryMode = 0711;
// Only the owner and the group may connect.
constexpr mode_t kSocketMode = 0660;
constexpr int kHandedFd = 3;     // the first descriptor that systemd passes
constexpr int kPassRights = 83;  // SO_PASSRIGHTS, which the C library's headers may lack

// Makes the address of an instance's socket. 0, or EINVAL or ENAMETOOLONG if the name cannot be a
// path. A component must not start with a dot, so that no name leads out of kRoot.
[[nodiscard]] int MakeAddress(const char* instance, sockaddr_un* address) {
    if (instance == nullptr) return EINVAL;
    const std::string_view name = instance;
    if (name.find("..") != name.npos) return EINVAL;
    for (size_t start = 0; start <= name.size();) {
        const size_t end = std::min(name.find('/', start), name.size());
        if (end == start || name[start] == '.') return EINVAL;
        start = end + 1;
    }
    if (kRoot.size() + name.size() >= sizeof(address->sun_path)) return ENAMETOOLONG;
    *address = {};
    address->sun_family = AF_UNIX;
    kRoot.copy(address->sun_path, kRoot.size());
    name.copy(address->sun_path + kRoot.size(), name.size());
    return 0;
}

const sockaddr* Generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

// 0 or an errno value.
[[nodiscard]] int OpenSocket(int flags, base::UniqueFd* result) {
    *result = base::UniqueFd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
    return *result ? 0 : errno;
}

// Opens a directory that is no symbolic link. 0 or an errno value.
[[nodiscard]] int OpenDirectory(int parent, const char* name, int flags, base::UniqueFd* result) {
    *result = base::UniqueFd(openat(parent, name, flags | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return *result ? 0 : errno;
}

// Lets the kernel reject messages with descriptors. Closing such a descriptor could block this
// process for as long as the peer chooses: a TCP socket with SO_LINGER, or a locked file of a FUSE
// file system. Accepted connections inherit the option. Kernels before Linux 6.16 lack it.
void RejectDescriptors(int listener) {
    const int no = 0;
    (void)setsockopt(listener, SOL_SOCKET, kPassRights, &no, sizeof(no));
}

// Opens the directory of the last component of `path`, which is absolute, and makes missing
// directories on the way. 0 or an errno value.
[[nodiscard]] int OpenDirectoryOf(std::string_view path, base::UniqueFd* result) {
    base::UniqueFd directory;
    if (const int error = OpenDirectory(AT_FDCWD, "/", O_PATH, &directory)) return error;
    size_t start = 1;
    for (size_t end; (end = path.find('/', start)) != path.npos; start = end + 1) {
        const std::string name(path.substr(start, end - start));
        // fchmodat sets the mode regardless of the umask.
        if (mkdirat(directory.get(), name.c_str(), kDirectoryMode) == 0 &&
            fchmodat(directory.get(), name.c_str(), kDirectoryMode, 0) != 0) {
            return errno;
        }
        base::UniqueFd next;
        if (const int error = OpenDirectory(directory.get(), name.c_str(), O_PATH, &next)) {
            return error;
        }
        directory = std::move(next);
    }
    return OpenDirectory(directory.get(), ".", O_RDONLY, result);
}

// Removes the socket of a dead process. 0: the path is free. EEXIST: a living process listens
// there. ENOTSOCK: it is no socket. Otherwise the errno value of the failed call.
[[nodiscard]] int RemoveLeftover(const sockaddr_un& address, int directory, const char* name) {
    struct stat info;
    if (fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? 0 : errno;
    }
    if (!S_ISSOCK(info.st_mode)) return ENOTSOCK;
    base::UniqueFd probe;
    if (const int error = OpenSocket(SOCK_NONBLOCK, &probe)) return error;
    const int error = connect(probe.get(), Generic(address), sizeof(address)) == 0 ? 0 : errno;
    switch (error) {
        case 0:
        case EAGAIN:      // its queue is full
        case EPROTOTYPE:  // a listener of another socket type
            return EEXIST;
        case ECONNREFUSED:
            return unlinkat(directory, name, 0) == 0 ? 0 : errno;
        default:
            return error;
    }
}

// Binds the path and listens. 0, or an error of RemoveLeftover or of the failed call. The lock lets
// one process at a time check that the path is free and bind it: otherwise a process could remove
// the socket that another has bound since the check.
[[nodiscard]] int Listen(const sockaddr_un& address, base::UniqueFd* listener) {
    base::UniqueFd directory;
    if (const int error = OpenDirectoryOf(address.sun_path, &directory)) return error;
    if (base::RetryOnInterrupt([&] { return flock(directory.get(), LOCK_EX); }) != 0) return errno;
    const char* const name = std::strrchr(address.sun_path, '/') + 1;
    if (const int error = RemoveLeftover(address, directory.get(), name)) return error;
    base::UniqueFd fd;
    if (const int error = OpenSocket(SOCK_NONBLOCK, &fd)) return error;
    RejectDescriptors(fd.get());
    if (bind(fd.get(), Generic(address), sizeof(address)) != 0) return errno;
    // No client can connect before listen, so the mode is set in time.
    if (fchmodat(directory.get(), name, kSocketMode, 0) != 0 || listen(fd.get(), SOMAXCONN) != 0) {
        const int error = errno;
        (void)unlinkat(directory.get(), name, 0);  // The first error is the one to report.
        return error;
    }
    *listener = std::move(fd);
    return 0;
}

// False also if the option cannot be read.
bool SocketOptionIs(int fd, int option, int expected) {
    int value = 0;
    socklen_t size = sizeof(value);
    return getsockopt(fd, SOL_SOCKET, option, &value, &size) == 0 && value == expected;
}

// The value of LISTEN_FDS if systemd passed sockets to this process, otherwise empty. Removes the
// variables, so that child processes do not inherit them.
std::optional<std::string> TakeHandedCount() {
    const char* const pid = std::getenv("LISTEN_PID");
    const char* const fds = std::getenv("LISTEN_FDS");
    if (pid == nullptr || fds == nullptr || pid != std::to_string(getpid())) return std::nullopt;
    std::string count = fds;
    for (const char* name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) unsetenv(name);
    return count;
}

// Takes over the one descriptor that systemd passed. 0; EINVAL if it is not one listening
// SOCK_SEQPACKET socket; otherwise the errno value of the failed call.
[[nodiscard]] int AdoptHanded(const std::string& count, base::UniqueFd* listener) {
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
    if (const int error = MakeAddress(instance, &address)) return -error;
    const std::optional<std::string> handed = TakeHandedCount();
    registration.handed_over = handed.has_value();
    const int error = handed ? AdoptHanded(*handed, &registration.listener)
                             : Listen(address, &registration.listener);
    static_assert(STATUS_ALREADY_EXISTS == -EEXIST && STATUS_BAD_VALUE == -EINVAL);
    if (error != 0) return -error;
    AIBinder_incStrong(binder);
    registration.binder = binder;
    return STATUS_OK;
}

AIBinder* AServiceManager_checkService(const char* instance) {
    using namespace binder;
    sockaddr_un address;
    base::UniqueFd fd;
    int error = MakeAddress(instance, &address);
    if (error == 0) error = OpenSocket(0, &fd);
    if (error != 0) {
        errno = error;
        return nullptr;
    }
    const auto connect_once = [&] { return connect(fd.get(), Generic(address), sizeof(address)); };
    if (base::RetryOnInterrupt(connect_once) != 0) return nullptr;  // errno is connect's
    return NewRemoteBinder(std::move(fd));
}
