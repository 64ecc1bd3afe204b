#include "private_root.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

const char* const kTrees[] = {"/dev/block", "/sys", "/run"};

void Check(int result, const std::string& what) {
    ASSERT_GE(result, 0) << what << ": " << strerror(errno);
}

void MakeParents(const std::string& path) {
    for (size_t i = path.find('/', 1); i != std::string::npos; i = path.find('/', i + 1)) {
        const std::string parent = path.substr(0, i);
        if (mkdir(parent.c_str(), 0755) != 0 && errno != EEXIST) Check(-1, parent);
    }
}

void MountEmpty(const std::string& path) {
    Check(mount("tmpfs", path.c_str(), "tmpfs", 0, "mode=755"), "mount at " + path);
}

// A /dev of our own, since the real one need not have a directory `block` to mount over. The
// devices come along by descriptor: once /dev is covered, they have no names.
void CoverDev() {
    const std::string paths[] = {"/dev/null", "/dev/zero", "/dev/urandom"};
    int fds[std::size(paths)];
    for (size_t i = 0; i < std::size(paths); ++i) fds[i] = open(paths[i].c_str(), O_PATH);
    MountEmpty("/dev");
    for (size_t i = 0; i < std::size(paths); ++i) {
        const std::string device = "/proc/self/fd/" + std::to_string(fds[i]);
        WriteFile(paths[i], "");
        Check(mount(device.c_str(), paths[i].c_str(), nullptr, MS_BIND, nullptr), paths[i]);
        close(fds[i]);
    }
    MakeDirectory("/dev/block");
}

// Each id is mapped to itself and no other, as anybody may.
void Enter() {
    const std::string uid = std::to_string(geteuid());
    const std::string gid = std::to_string(getegid());
    ASSERT_EQ(unshare(CLONE_NEWUSER | CLONE_NEWNS), 0)
        << "This machine forbids user namespaces, or threads exist: " << strerror(errno);
    WriteFile("/proc/self/setgroups", "deny");
    WriteFile("/proc/self/uid_map", uid + " " + uid + " 1");
    WriteFile("/proc/self/gid_map", gid + " " + gid + " 1");
    Check(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mounts made private");
    CoverDev();
    for (const char* tree : kTrees) MountEmpty(tree);
}

}  // namespace

void EnterPrivateRoot() {
    static const bool inside = [] {
        Enter();
        return !testing::Test::HasFatalFailure();
    }();
    ASSERT_TRUE(inside) << "The tests have no private root.";
}

void ClearPrivateRoot() {
    for (const char* tree : kTrees) {
        Check(umount2(tree, MNT_DETACH), tree);
        MountEmpty(tree);
    }
}

void MakeDirectory(const std::string& path) {
    MakeParents(path + "/");
}

void WriteFile(const std::string& path, const std::string& content) {
    MakeParents(path);
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    Check(fd, path);
    EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    close(fd);
}

void WriteLink(const std::string& path, const std::string& target) {
    MakeParents(path);
    (void)unlink(path.c_str());
    Check(symlink(target.c_str(), path.c_str()), path);
}
