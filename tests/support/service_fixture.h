// The service object on a data partition of the test's making.
#pragma once

#include <device_tree.h>
#include <gtest/gtest.h>
#include <log_capture.h>
#include <private_root.h>
#include <service/DiskInfoService.h>

#include <memory>
#include <optional>
#include <string>

using namespace morsk::com::quendar::tavisk::disk_info;

inline constexpr char kUserdata[] = "/dev/block/by-name/userdata";

class ServiceTest : public PrivateRootTest {
  protected:
    // Makes the data partition `partition` of the disk `disk`.
    void PlaceDataPartition(const std::string& disk, const std::string& partition) {
        WriteFile("/dev/block/" + disk, "");
        WriteFile("/dev/block/" + partition, "");
        WriteLink(kUserdata, "/dev/block/" + partition);
    }
    void PlaceUfsDisk() {
        PlaceDataPartition("sda", "sda12");
        MakeDirectory(std::string(kUnit) + "/block/sda");
        WriteLink("/sys/block/sda", std::string(kUnit) + "/block/sda");
    }

    // Calls, and expects the service-specific error -1 and no result.
    template <typename Result>
    void ExpectUnavailable(
        binder::ScopedStatus (IDiskInfoService::*getter)(std::optional<Result>*)) {
        std::optional<Result> result;
        const binder::ScopedStatus status = (service_.get()->*getter)(&result);
        EXPECT_EQ(AStatus_getExceptionCode(status.get()), EX_SERVICE_SPECIFIC);
        EXPECT_EQ(AStatus_getServiceSpecificError(status.get()), -1);
        EXPECT_FALSE(result.has_value());
    }

    LogCapture log_;
    std::shared_ptr<DiskInfoService> service_ = binder::SharedRefBase::make<DiskInfoService>();
};
