// The daemon as a child process, connections to it, and the resources that it holds.
#pragma once

#include <binder/interface_utils.h>
#include <binder/service_manager.h>
#include <child.h>
#include <device_tree.h>
#include <linux/close_range.h>
#include <morsk/BpDiskInfoService.h>

#include <filesystem>
#include <memory>

inline constexpr char kInstance[] = "com.quendar.tavisk.disk_info.IDiskInfoService/default";
inline constexpr char kPath[] = "/run/binder/com.quendar.tavisk.disk_info.IDiskInfoService/default";

using Service = morsk::com::quendar::tavisk::disk_info::IDiskInfoService;

// A new connection; null if no process listens.
inline std::shared_ptr<Service> ConnectToService() {
    using morsk::com::quendar::tavisk::disk_info::BpDiskInfoService;
    binder::StrongBinder binder(AServiceManager_checkService(kInstance));
    return binder ? binder::SharedRefBase::make<BpDiskInfoService>(std::move(binder)) : nullptr;
}

// Waits until a process listens.
inline void AwaitService() {
    EXPECT_TRUE(Eventually([] { return bool{ConnectToService()}; }));
}

// The daemon, ready for connections. It gets arguments, which it ignores, and no descriptor of the
// test but the standard streams.
class Daemon : public Child {
  public:
    explicit Daemon(const std::string& program)
        : Child({program, "extra", "--arguments"}, "/run/service", [] {
              close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
              // A build with sanitizers can be traced and returns freed memory at once.
              setenv("ASAN_OPTIONS",
                     "detect_leaks=0:quarantine_size_mb=0:thread_local_quarantine_size_kb=0", 1);
          }) {
        AwaitService();
    }
};

// Resources of a process.
struct Vitals {
    explicit Vitals(pid_t pid) {
        const std::string directory = "/proc/" + std::to_string(pid);
        descriptors = std::distance(std::filesystem::directory_iterator(directory + "/fd"), {});
        std::ifstream status(directory + "/status");
        for (std::string word; status >> word;) {
            if (word == "VmRSS:") status >> memory_kib;
            if (word == "Threads:") status >> threads;
        }
    }
    long descriptors = 0, threads = 0, memory_kib = 0;
};
