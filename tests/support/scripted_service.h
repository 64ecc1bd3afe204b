// A service that returns what the test sets.
#pragma once

#include <morsk/BnDiskInfoService.h>

#include <optional>
#include <string>

class ScriptedService : public morsk::com::quendar::tavisk::disk_info::BnDiskInfoService {
    using Status = binder::ScopedStatus;
    using Info = morsk::com::quendar::tavisk::disk_info::DiskInfoParcel;
    using Health = morsk::com::quendar::tavisk::disk_info::DiskHealthParcel;
    using Power = morsk::com::quendar::tavisk::disk_info::DiskPowerParcel;
    using Filesystem = morsk::com::quendar::tavisk::disk_info::FilesystemInfoParcel;

  public:
    Status getDiskInfo(std::optional<Info>* result) override { return Give(info, result); }
    Status getDiskHealth(std::optional<Health>* result) override { return Give(health, result); }
    Status getDiskPower(std::optional<Power>* result) override { return Give(power, result); }
    Status getFilesystemInfo(const std::string& name, std::optional<Filesystem>* result) override {
        partition = name;
        return Give(filesystem, result);
    }

    std::optional<Info> info;
    std::optional<Health> health;
    std::optional<Power> power;
    std::optional<Filesystem> filesystem;
    binder_exception_t exception = EX_NONE;
    int calls = 0;
    std::string partition;  // of the last call

  private:
    // The code of a service-specific error is -1.
    template <typename Result>
    Status Give(const std::optional<Result>& set, std::optional<Result>* result) {
        ++calls;
        if (exception == EX_SERVICE_SPECIFIC) return Status::fromServiceSpecificError(-1);
        if (exception != EX_NONE) return Status::fromExceptionCode(exception);
        *result = set;
        return Status::ok();
    }
};
