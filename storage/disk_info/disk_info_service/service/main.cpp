#include <binder/process.h>
#include <binder/service_manager.h>
#include <logging/logging.h>
#include <service/DiskInfoService.h>
#include <service/confinement.h>

#include <cstdlib>

using binder::SharedRefBase;
using morsk::com::quendar::tavisk::disk_info::ConfineProcess;
using morsk::com::quendar::tavisk::disk_info::DiskInfoService;

// What the C++ library calls when it would throw, which here is when memory is out. Its own version
// prints the exception's name, and brings along all that reads such names: 57 kB.
namespace __gnu_cxx {
void __verbose_terminate_handler() {
    std::abort();
}
}  // namespace __gnu_cxx

// Ends only when the name or the filter is refused or the pool returns, all failures: always 1. A
// lazy service that is no longer needed is ended inside the pool.
int main(int /*argc*/, char** argv) {
    logging::InitLogging(argv, logging::LogdLogger(logging::MAIN), logging::DefaultAborter);
    logging::SetDefaultTag("DiskInfoService");
    (void)ABinderProcess_setThreadPoolMaxThreadCount(1);

    const auto service = SharedRefBase::make<DiskInfoService>();
    const std::string instance = std::string(DiskInfoService::descriptor) + "/default";
    // The reference is dropped at once: from here on the registration keeps the binder alive.
    const binder_status_t status =
        AServiceManager_registerLazyService(service->asBinder().get(), instance.c_str());
    if (status != STATUS_OK) {
        LOG(ERROR) << "Failed to register lazy service: " << status;
    } else if (!ConfineProcess()) {
        PLOG(ERROR) << "Failed to install the system call filter";
    } else {
        ABinderProcess_joinThreadPool();
    }
    return 1;
}
