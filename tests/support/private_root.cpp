#include "private_root.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

const char* const kTrees[] = {"/dev/block", "/sys", "/run"};

void Check(int result, const std::string& what) {
    ASSERT_GE(result, 0) << what << ": " << strerror(errno);
}

void MountEmpty(const char* path) {
    Check(mount("tmpfs", path, "tmpfs", 0, "mode=755"), path);
}

// A /dev of our own, since the real one need not have a directory `block` to mount over. The
// devices come along by descriptor: once /dev is covered, they have no names.
void CoverDev() {
    const char* const paths[] = {"/dev/null", "/dev/zero", "/dev/urandom"};
    int fds[std::size(paths)];
    for (size_t i = 0; i < std::size(paths); ++i) fds[i] = open(paths[i], O_PATH);
    MountEmpty("/dev");
    for (size_t i = 0; i < std::size(paths); ++i) {
        const std::string device = "/proc/self/fd/" + std::to_string(fds[i]);
        WriteFile(paths[i], "");
        Check(mount(device.c_str(), paths[i], nullptr, MS_BIND, nullptr), paths[i]);
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
    ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << strerror(errno);
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
    fs::create_directories(path);
}

void WriteFile(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    Check(fd, path);
    EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    close(fd);
}

void WriteLink(const std::string& path, const std::string& target) {
    fs::create_directories(fs::path(path).parent_path());
    fs::remove(path);
    fs::create_symlink(target, path);
}
