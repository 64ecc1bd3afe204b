// Fixture for the storage classes and the service: private root, captured log records, printed
// text, results of calls as text. Fails a test that leaks a descriptor.
#pragma once

#include <device_tree.h>
#include <disk_info/disk_info.h>
#include <gmock/gmock.h>
#include <log_capture.h>
#include <open_descriptors.h>
#include <service/DiskInfoService.h>

#include <memory>
#include <optional>
#include <sstream>
#include <string>

using namespace morsk::com::quendar::tavisk::disk_info;
using namespace orvane::tavisk::disk_info;
using testing::ElementsAre;

// The fields in wire order, a bar before each; a union's text starts with the name of its arm.
template <typename Parcelable>
std::string TextOf(const Parcelable& value) {
    std::ostringstream text;
    forEachField<Parcelable>([&](const auto& field) { text << '|' << value.*field.member; });
    return text.str();
}
template <typename Nvme, typename Ufs>
std::string TextOf(const DiskUnion<Nvme, Ufs>& value) {
    using Tag = typename DiskUnion<Nvme, Ufs>::Tag;
    return value.getTag() == Tag::nvme ? "nvme" + TextOf(*value.nvme())
                                       : "ufs" + TextOf(*value.ufs());
}

class StorageTest : public PrivateRootTest {
  public:
    // What `operation` prints to standard output, then what it prints to standard error.
    template <typename Operation>
    static std::string Printed(const Operation& operation) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        operation();
        const std::string output = testing::internal::GetCapturedStdout();
        return output + testing::internal::GetCapturedStderr();
    }

    // The result of a call as text; without a result, the status as in kUnavailable.
    std::string Info() {
        return Call<DiskInfoParcel>([&](auto* info) { return service_->getDiskInfo(info); });
    }
    std::string Health() {
        return Call<DiskHealthParcel>(
            [&](auto* health) { return service_->getDiskHealth(health); });
    }
    std::string Power() {
        return Call<DiskPowerParcel>([&](auto* power) { return service_->getDiskPower(power); });
    }
    std::string Filesystem(const std::string& partition) {
        return Call<FilesystemInfoParcel>(
            [&](auto* info) { return service_->getFilesystemInfo(partition, info); });
    }

  protected:
    OpenDescriptorsUnchanged descriptors_;
    LogCapture log_;
    std::shared_ptr<DiskInfoService> service_ = binder::SharedRefBase::make<DiskInfoService>();

  private:
    template <typename Result, typename Method>
    std::string Call(const Method& method) {
        std::optional<Result> result;
        const binder::ScopedStatus status = method(&result);
        EXPECT_EQ(result.has_value(), status.isOk());
        if (result) return TextOf(*result);
        return "exception " + std::to_string(AStatus_getExceptionCode(status.get())) + ", error " +
               std::to_string(AStatus_getServiceSpecificError(status.get()));
    }
};

inline constexpr char kUnavailable[] = "exception -8, error -1";
