// The kernel requests that each call needs, and no others: the floor of the daemon's calls. NVMe:
// the disk is opened for each question, because each opening has a failure of its own. UFS: the
// disk's directory is searched twice, and power reads the whole identity. Buffers are cleared, as
// the daemon's are.
#define _GNU_SOURCE
#include "calls.h"

#include <fcntl.h>
#include <limits.h>
#include <linux/fs.h>
#include <linux/nvme_ioctl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

enum { kMaxFiles = 32 };

struct Filesystem {
    const char* link;
    char* directory;
    char* files[kMaxFiles];
};

static int is_ufs;
static char *node, *block;
static char *identity[kMaxFiles], *health[kMaxFiles];
static struct Filesystem userdata = {.link = "/dev/block/mapper/userdata"};
static struct Filesystem metadata = {.link = "/dev/block/by-name/metadata"};
static char text[PATH_MAX];
static _Alignas(4096) uint8_t page[4096];

// Appends DIRECTORY/NAME for each of the blank-separated names.
static void AddFiles(char** list, const char* directory, const char* names) {
    char* const copy = strdup(names);
    while (*list != NULL) ++list;
    for (char* name = strtok(copy, " "); name != NULL; name = strtok(NULL, " ")) {
        if (asprintf(list++, "%s/%s", directory, name) < 0) _exit(1);
    }
    free(copy);
}

static void PrepareUfs(void) {
    char host[PATH_MAX], scsi[PATH_MAX];
    snprintf(scsi, sizeof(scsi), "%s/device", block);
    if (realpath(scsi, host) == NULL) _exit(1);
    strcpy(scsi, host);
    *strstr(host, "/host") = '\0';  // .../HOST/hostN/targetN:0:0/N:0:0:0
    AddFiles(identity, scsi, "vendor model rev unit_descriptor/provisioning_type");
    AddFiles(identity, scsi, "unit_descriptor/wb_buf_alloc_units");
    AddFiles(identity, host, "device_descriptor/ext_feature_sup device_descriptor/ufs_features");
    AddFiles(identity, host, "device_descriptor/specification_version");
    AddFiles(identity, host, "device_descriptor/wb_presv_us_en wb_on");
    AddFiles(identity, host, "power_info/gear power_info/lane power_info/rate");
    AddFiles(identity, host, "power_info/link_state geometry_descriptor/wb_sup_wb_type");
    AddFiles(identity, host, "geometry_descriptor/allocation_unit_size");
    AddFiles(identity, host, "geometry_descriptor/segment_size");
    AddFiles(identity, host, "geometry_descriptor/wb_max_alloc_units");
    AddFiles(identity, block, "size");
    AddFiles(health, host, "health_descriptor/eol_info health_descriptor/life_time_estimation_a");
    AddFiles(health, host, "health_descriptor/life_time_estimation_b");
    AddFiles(health, scsi, "ioerr_cnt unit_descriptor/provisioning_type");
}

void PrepareCalls(const char* disk) {
    is_ufs = strncmp(disk, "sd", 2) == 0;
    if (asprintf(&node, "/dev/block/%s", disk) < 0) _exit(1);
    if (asprintf(&block, "/sys/block/%s", disk) < 0) _exit(1);
    if (is_ufs) PrepareUfs();
    for (struct Filesystem* f = &userdata;; f = &metadata) {
        if (realpath(f->link, text) == NULL) _exit(1);
        if (asprintf(&f->directory, "/sys/fs/ext4/%s", strrchr(text, '/') + 1) < 0) _exit(1);
        AddFiles(f->files, f->directory, "errors_count last_error_func last_error_errcode");
        if (f == &metadata) return;
    }
}

static void ResolvePath(const char* path) {
    memset(text, 0, sizeof(text));
    if (realpath(path, text) == NULL) _exit(1);
}

// Some files are missing or cannot be read, on the emulated disk at least.
static void ReadFiles(char* const* path) {
    for (; *path != NULL; ++path) {
        const int fd = open(*path, O_RDONLY | O_CLOEXEC);
        if (fd < 0) continue;
        (void)!read(fd, text, 256);
        close(fd);
    }
}

static void SendCommand(int fd, uint8_t opcode, uint32_t nsid, uint32_t size, uint32_t cdw10) {
    struct nvme_passthru_cmd command = {
        .opcode = opcode, .nsid = nsid, .data_len = size, .cdw10 = cdw10};
    if (size != 0) command.addr = (uintptr_t)memset(page, 0, sizeof(page));
    if (ioctl(fd, NVME_IOCTL_ADMIN_CMD, &command) != 0) _exit(1);
}

static void IdentifyController(int fd) {
    SendCommand(fd, 0x06, 0, 4096, 1);
}

static void GetSize(void) {
    uint64_t size_bytes;
    const int fd = open(node, O_RDONLY | O_CLOEXEC);
    if (ioctl(fd, BLKGETSIZE64, &size_bytes) != 0) _exit(1);
    close(fd);
}

static void CallNvme(int call) {
    int fd = open(node, O_RDWR);
    if (call == kInfo) {
        IdentifyController(fd);
    } else if (call == kHealth) {
        SendCommand(fd, 0x02, 0xFFFFFFFF, 512, 0x007F0002);  // SMART / Health Information
        close(fd);
        fd = open(node, O_RDWR);
        SendCommand(fd, 0x06, (uint32_t)ioctl(fd, NVME_IOCTL_ID), 4096, 0);  // Identify Namespace
    } else {
        SendCommand(fd, 0x0A, 0, 0, 2);  // Get Features, Power Management
        IdentifyController(fd);
    }
    close(fd);
    if (call == kInfo) GetSize();
}

static void CallUfs(int call) {
    struct stat status;
    for (int i = 0; i < 2; ++i) {
        if (lstat(block, &status) != 0) _exit(1);
        ResolvePath(block);
    }
    ReadFiles(call == kHealth ? health : identity);
    if (call == kInfo) GetSize();
}

static void CallFilesystem(const struct Filesystem* filesystem) {
    struct stat status;
    if (readlink(filesystem->link, text, sizeof(text)) < 0) _exit(1);
    if (stat(filesystem->directory, &status) != 0) _exit(1);
    ReadFiles(filesystem->files);
}

void MakeRequests(int call) {
    if (call == kVersion) return;
    if (call == kUserdata) return CallFilesystem(&userdata);
    if (call == kMetadata) return CallFilesystem(&metadata);
    ResolvePath("/dev/block/by-name/userdata");
    if (is_ufs) return CallUfs(call);
    CallNvme(call);
}
