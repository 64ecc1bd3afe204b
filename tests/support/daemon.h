// The real daemon as a process: a client's side of it, and what it holds.
#pragma once

#include <binder/interface_utils.h>
#include <binder/service_manager.h>
#include <child.h>
#include <device_tree.h>
#include <gtest/gtest.h>
#include <morsk/BpDiskInfoService.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>

inline constexpr char kInstance[] = "com.quendar.tavisk.disk_info.IDiskInfoService/default";
inline constexpr char kPath[] = "/run/binder/com.quendar.tavisk.disk_info.IDiskInfoService/default";

using Service = morsk::com::quendar::tavisk::disk_info::IDiskInfoService;

// A connection of its own; null while nobody serves.
inline std::shared_ptr<Service> ConnectToService() {
    using morsk::com::quendar::tavisk::disk_info::BpDiskInfoService;
    binder::StrongBinder binder(AServiceManager_checkService(kInstance));
    return binder ? binder::SharedRefBase::make<BpDiskInfoService>(std::move(binder)) : nullptr;
}

// What a process holds.
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
