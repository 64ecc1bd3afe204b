#include "private_root.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

const char* const kTrees[] = {"/dev/block", "/sys", "/run"};

void Mount(const std::string& source, const std::string& target, unsigned long flags) {
    ASSERT_EQ(mount(source.c_str(), target.c_str(), "tmpfs", flags, "mode=755"), 0)
        << target << ": " << strerror(errno);
}

// Replaces /dev by one with a directory `block`, which the machine's need not have.
void CoverDev() {
    Mount("none", "/run", 0);
    for (const std::string name : {"/null", "/zero", "/urandom"}) {
        WriteFile("/run" + name, "");
        Mount("/dev" + name, "/run" + name, MS_BIND);
    }
    MakeDirectory("/run/block");
    Mount("/run", "/dev", MS_MOVE);
}

// Maps the own ids to themselves, which needs no privileges.
void Enter() {
    const std::string uid = std::to_string(geteuid());
    const std::string gid = std::to_string(getegid());
    ASSERT_EQ(unshare(CLONE_NEWUSER | CLONE_NEWNS), 0)
        << "This machine forbids user namespaces, or threads exist: " << strerror(errno);
    WriteFile("/proc/self/setgroups", "deny");
    WriteFile("/proc/self/uid_map", uid + " " + uid + " 1");
    WriteFile("/proc/self/gid_map", gid + " " + gid + " 1");
    Mount("none", "/", MS_REC | MS_PRIVATE);
    CoverDev();
    for (const char* tree : kTrees) Mount("none", tree, 0);
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
        ASSERT_EQ(umount2(tree, MNT_DETACH), 0) << tree << ": " << strerror(errno);
        Mount("none", tree, 0);
    }
}

void MakeDirectory(const std::string& path) {
    fs::create_directories(path);
}

void WriteFile(const std::string& path, const std::string& content) {
    MakeDirectory(fs::path(path).parent_path());
    std::ofstream file(path, std::ios::binary);
    file << content << std::flush;
    EXPECT_TRUE(file) << path << ": " << strerror(errno);
}

void WriteLink(const std::string& path, const std::string& target) {
    MakeDirectory(fs::path(path).parent_path());
    fs::remove(path);
    fs::create_symlink(target, path);
}
