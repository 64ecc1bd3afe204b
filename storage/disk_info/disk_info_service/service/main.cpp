#include <binder/process.h>
#include <binder/service_manager.h>
#include <disk_info/diagnostics.h>
#include <logging/logging.h>
#include <service/DiskInfoService.h>
#include <service/confinement.h>
#include <service/record_limit.h>
#include <service/standard_streams.h>

#include <chrono>
#include <cstdlib>
#include <ctime>

using binder::SharedRefBase;
using morsk::com::quendar::tavisk::disk_info::ConfineProcess;
using morsk::com::quendar::tavisk::disk_info::DiskInfoService;
using morsk::com::quendar::tavisk::disk_info::RecordLimit;

// What the C++ library calls when it would throw, which here is when memory is out. Its own version
// prints the exception's name, and brings along all that reads such names: 57 kB.
namespace __gnu_cxx {
void __verbose_terminate_handler() {
    std::abort();
}
}  // namespace __gnu_cxx

namespace {

RecordLimit findings;  // INFO records, which a healthy UFS disk causes too
RecordLimit failures;  // all others and diagnostics: no number of findings suppresses them

bool Admit(RecordLimit* limit) {
    if (findings.is_reporting() || failures.is_reporting()) return true;
    timespec now;
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);  // read without a system call
    return limit->Admit(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

// A fatal record is the last one: it always passes.
void InitLimitedLogging(char** argv) {
    const logging::LogdLogger logger(logging::MAIN);
    logging::InitLogging(
        argv,
        [logger](logging::LogId id, logging::LogSeverity severity, auto... record) {
            RecordLimit* const limit = severity <= logging::INFO ? &findings : &failures;
            if (severity == logging::FATAL || Admit(limit)) logger(id, severity, record...);
        },
        logging::DefaultAborter);
    ::orvane::tavisk::disk_info::LimitDiagnostics([] { return Admit(&failures); });
    (void)std::atexit([] {
        findings.ReportSuppressed();
        failures.ReportSuppressed();
    });
}

}  // namespace

// Ends only when the name or the filter is refused or the pool returns, all failures: always 1. A
// lazy service that is no longer needed is ended inside the pool.
int main(int /*argc*/, char** argv) {
    morsk::com::quendar::tavisk::disk_info::PrepareStandardStreams();
    InitLimitedLogging(argv);
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
