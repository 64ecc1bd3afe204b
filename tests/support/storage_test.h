// Fixture for the storage classes and the service: private root, captured log records, printed
// text, results of calls as text. Fails a test that leaks a descriptor.
#pragma once

#include <answers.h>
#include <device_tree.h>
#include <disk_info/disk_info.h>
#include <gmock/gmock.h>
#include <log_capture.h>
#include <open_descriptors.h>
#include <service/DiskInfoService.h>

#include <memory>
#include <string>

using namespace orvane::tavisk::disk_info;
using testing::ElementsAre;

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

    std::string Info() { return Ask(*service_, "info"); }
    std::string Health() { return Ask(*service_, "health"); }
    std::string Power() { return Ask(*service_, "power"); }
    std::string Filesystem(const std::string& partition) { return Ask(*service_, partition); }

  protected:
    OpenDescriptorsUnchanged descriptors_;
    LogCapture log_;
    std::shared_ptr<DiskInfoService> service_ = binder::SharedRefBase::make<DiskInfoService>();
};
